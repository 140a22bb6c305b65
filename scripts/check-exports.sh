#!/usr/bin/env bash
# Fails when the library exports anything but its public classes.
#
#   scripts/check-exports.sh build/HdwLib/libHdwLib.so
#   scripts/check-exports.sh build-win64/bin/HdwLib.dll
#
# Every exported symbol must belong to a CKVX_ class (members, vtables,
# typeinfo, template instantiations over them). Internal code (namespace hdw,
# the platform halves, anonymous namespaces) must stay hidden.
set -euo pipefail

lib=${1:?usage: check-exports.sh <libHdwLib.so|HdwLib.dll>}
[[ -f $lib ]] || { echo "check-exports: $lib not found" >&2; exit 2; }

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

# Allowed beyond the CKVX_ classes: the standard base of CKVX_Exception, and
# the linker's own symbols on Linux.
allowed='CKVX_|^typeinfo( name)? for std::exception$|^_init$|^_fini$|^__bss_start$|^_edata$|^_end$'
internal=$(grep -E 'hdw::|\(anonymous namespace\)|[Pp]latform' <<<"$exports" || true)
stray=$(grep -Ev "$allowed" <<<"$exports" || true)

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
