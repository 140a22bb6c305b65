#!/usr/bin/env bash
# Fails when the library exports anything but its public classes.
#
#   scripts/check-exports.sh build/HdwLib/libHdwLib.so
#   scripts/check-exports.sh build-win64/bin/HdwLib.dll
#
# Every exported symbol must belong to a public class: a CKVX_ class or a
# class that a public header declares with HDWLIB_EXPORT (members, vtables,
# typeinfo, template instantiations over them). Internal code (namespace hdw,
# the platform halves, anonymous namespaces) must stay hidden.
set -euo pipefail

lib=${1:?usage: check-exports.sh <libHdwLib.so|HdwLib.dll>}
[[ -f $lib ]] || { echo "check-exports: $lib not found" >&2; exit 2; }
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Public classes without the CKVX_ prefix (CUart ...), from the public headers.
public_names=$(find "$root"/HdwLib/{core,framework,links,units,bus} -maxdepth 1 -name '*.h' 2>/dev/null -print0 |
    xargs -0 -r grep -hoE 'class HDWLIB_EXPORT [A-Za-z_][A-Za-z0-9_]*' | awk '{ print $3 }' | grep -v '^CKVX_' |
    sort -u | paste -sd '|' - || true)

list_exports() {
    case $lib in
    *.dll | *.DLL)
        local objdump
        for objdump in x86_64-w64-mingw32-objdump i686-w64-mingw32-objdump objdump; do
            command -v "$objdump" >/dev/null && break
        done
        # The export table lists "[ordinal] name"; i686 names carry a leading underscore.
        "$objdump" -p "$lib" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
            sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]*//p' | sed 's/^_\(_Z\)/\1/' | c++filt
        ;;
    *)
        nm -D --defined-only "$lib" | awk '{ print $3 }' | c++filt
        ;;
    esac
}

exports=$(list_exports)
total=$(grep -c . <<<"$exports" || true)
if [[ $total -eq 0 ]]; then
    echo "check-exports: $lib exports nothing (is HDWLIB_EXPORT defined?)" >&2
    exit 1
fi

# Allowed beyond the public classes: the standard base of CKVX_Exception, the
# linker's own symbols on Linux, and the standard library's own template code
# instantiated for plain types (std::deque<unsigned char> ...), which the
# standard headers give default visibility; those never carry a library
# name (an hdw:: type inside one is still caught below).
allowed='CKVX_|^typeinfo( name)? for std::exception$|^_init$|^_fini$|^__bss_start$|^_edata$|^_end$'
allowed+='|^(void |bool |unsigned |__gnu_cxx::__enable_if<.*>::__type )?std::|^__gnu_cxx::'
if [[ -n $public_names ]]; then
    allowed+="|\\b($public_names)\\b"
fi
case $lib in
*.dll | *.DLL)
    # GCC for Windows exports the typeinfo of every polymorphic class that a
    # translation unit with exports emits (so that RTTI matches across DLLs),
    # internal ones included. That is data for dynamic_cast, not an entry point.
    exports=$(grep -Ev '^typeinfo( name)? for ' <<<"$exports" || true)
    ;;
esac
internal=$(grep -E 'hdw::|\(anonymous namespace\)|[Pp]latform' <<<"$exports" || true)
stray=$(grep -Ev "$allowed" <<<"$exports" | grep -Ev 'hdw::|\(anonymous namespace\)|[Pp]latform' || true)

status=0
if [[ -n $internal ]]; then
    echo "check-exports: internal symbols exported from $lib:" >&2
    sed 's/^/  /' <<<"$internal" >&2
    status=1
fi
if [[ -n $stray ]]; then
    echo "check-exports: symbols outside the public classes exported from $lib:" >&2
    sed 's/^/  /' <<<"$stray" >&2
    status=1
fi
if [[ $status -eq 0 ]]; then
    echo "check-exports: $lib: $total symbols, all public"
fi
exit $status
