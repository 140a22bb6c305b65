#!/usr/bin/env bash
# Checks an installed tree (cmake --install build --prefix <prefix>):
# the public headers only, each one self-contained, all of them in the
# umbrella header, plus the CMake package and the pkg-config file.
#
#     scripts/check-install.sh <prefix>
set -euo pipefail

prefix=${1:?usage: check-install.sh <prefix>}
inc=$prefix/include/HdwLib
fail=0
problem() {
    echo "check-install: $*" >&2
    fail=1
}

for f in "$inc/HdwLib.h" "$inc/HdwLibExport.h" \
    "$prefix/lib/cmake/HdwLib/HdwLibConfig.cmake" "$prefix/lib/cmake/HdwLib/HdwLibConfigVersion.cmake" \
    "$prefix/lib/cmake/HdwLib/HdwLibTargets.cmake" "$prefix/lib/pkgconfig/hdwlib.pc"; do
    [[ -f $f ]] || problem "missing ${f#"$prefix"/}"
done
compgen -G "$prefix/lib/libHdwLib.so*" >/dev/null || problem "missing lib/libHdwLib.so"

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

if [[ $fail -ne 0 ]]; then
    exit 1
fi
echo "check-install: $prefix: layout, headers and umbrella header are complete"
