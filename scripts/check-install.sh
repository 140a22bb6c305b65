#!/usr/bin/env bash
# Checks an installed tree (cmake --install build --prefix <prefix>):
# the public headers only, each one self-contained, all of them in the
# umbrella header, plus the CMake package and the pkg-config file; then the
# installed programs: hdwtool's RUNPATH points from its folder to the
# library's, and with no LD_LIBRARY_PATH hdwtool answers --help, lists the
# ports of the installed hdwsim over loopback UDP and runs a short demo.
#
#     scripts/check-install.sh <prefix>
#     scripts/check-install.sh --programs <prefix>   # the programs only
set -euo pipefail

only_programs=0
if [[ ${1:-} == --programs ]]; then
    only_programs=1
    shift
fi
prefix=${1:?usage: check-install.sh [--programs] <prefix>}
prefix=$(cd "$prefix" && pwd)
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
inc=$prefix/include/HdwLib
fail=0
problem() {
    echo "check-install: $*" >&2
    fail=1
}

check_programs() {
    local tool=$prefix/bin/hdwtool sim=$prefix/bin/hdwsim lib libdir runpath want out
    for f in "$tool" "$sim"; do
        [[ -x $f ]] || problem "missing ${f#"$prefix"/}"
    done
    [[ -x $tool && -x $sim ]] || return 0
    lib=$(find "$prefix" -name 'libHdwLib.so.*' -type f -print -quit)
    [[ -n $lib ]] || { problem "no libHdwLib.so.* under $prefix"; return 0; }
    libdir=$(dirname "$lib")
    want="\$ORIGIN/$(realpath --relative-to="$prefix/bin" "$libdir")"
    runpath=$(readelf -d "$tool" | sed -n 's/.*(\(RUNPATH\|RPATH\)).*\[\(.*\)\]$/\2/p')
    echo "check-install: bin/hdwtool RUNPATH [$runpath], library in ${libdir#"$prefix"/}"
    [[ ":$runpath:" == *":$want:"* ]] || problem "bin/hdwtool RUNPATH is [$runpath], not [$want]"

    # The installed programs alone: nothing from the environment or the build.
    local run=(env -u LD_LIBRARY_PATH -u HDWTOOL_LINK)
    "${run[@]}" "$tool" --help >/dev/null || problem "hdwtool --help failed"
    out=$("$here/with-hdwsim" --udp --hdwsim "$sim" halden "${run[@]}" "$tool" list --link '3:{link}' --format csv) ||
        problem "hdwtool list against the installed hdwsim failed"
    grep -q 'a429rx' <<<"$out" || problem "hdwtool list showed no ARINC 429 receiver: $out"
    echo "check-install: hdwtool list: $(grep -c . <<<"$out") lines from the installed hdwsim"
    out=$("${run[@]}" "$tool" demo --duration 2 2>&1) || problem "hdwtool demo failed: $out"
    grep '^result:' <<<"$out" || problem "hdwtool demo printed no result line"
}

if [[ $only_programs -eq 1 ]]; then
    check_programs
    [[ $fail -eq 0 ]] || exit 1
    echo "check-install: $prefix: the installed programs run without LD_LIBRARY_PATH"
    exit 0
fi

# The library folder is the one holding libHdwLib.so (lib, lib64, lib/<multiarch>).
lib=$(find "$prefix" -name 'libHdwLib.so' -print -quit)
[[ -n $lib ]] || problem "missing lib/libHdwLib.so"
libdir=$(dirname "${lib:-$prefix/lib/libHdwLib.so}")
for f in "$inc/HdwLib.h" "$inc/HdwLibExport.h" \
    "$libdir/cmake/HdwLib/HdwLibConfig.cmake" "$libdir/cmake/HdwLib/HdwLibConfigVersion.cmake" \
    "$libdir/cmake/HdwLib/HdwLibTargets.cmake" "$libdir/pkgconfig/hdwlib.pc"; do
    [[ -f $f ]] || problem "missing ${f#"$prefix"/}"
done

# Only the layer folders, and no platform or internal headers.
for d in "$inc"/*/; do
    [[ -d $d ]] || continue
    case $(basename "$d") in
    core | framework | links | units | bus) ;;
    *) problem "unexpected folder include/HdwLib/$(basename "$d")" ;;
    esac
done
stray=$(find "$inc" \( -name internal -o -name posix -o -name win32 \) -print)
[[ -z $stray ]] || problem "platform or internal folders installed: $stray"

# Every public header is in the umbrella header and compiles on its own.
cxx=${CXX:-g++}
while IFS= read -r h; do
    rel=${h#"$prefix"/include/}
    [[ $rel == HdwLib/HdwLib.h || $rel == HdwLib/HdwLibExport.h ]] && continue
    grep -q "^#include <$rel>" "$inc/HdwLib.h" || problem "$rel is not in the umbrella header HdwLib/HdwLib.h"
    echo "#include <$rel>" | "$cxx" -std=c++20 -fsyntax-only -Wall -Wextra -I"$prefix/include" -x c++ - ||
        problem "$rel does not compile on its own"
done < <(find "$inc" -name '*.h' | sort)

check_programs

if [[ $fail -ne 0 ]]; then
    exit 1
fi
echo "check-install: $prefix: layout, headers, umbrella header and programs are complete"
