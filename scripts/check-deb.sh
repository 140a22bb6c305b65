#!/usr/bin/env bash
# Checks the Debian package that `cpack -G DEB` made in a build folder:
# its control fields and contents (dpkg-deb), then the package unpacked into a
# throw-away folder (dpkg -x), whose usr/bin/hdwtool must run from there with
# no LD_LIBRARY_PATH (scripts/check-install.sh --programs). With --system (as
# root, on a machine without hdwlib) it is also installed for real with
# dpkg -i, "hdwtool demo" runs from /usr/bin, and dpkg --purge removes it again.
#
#     scripts/check-deb.sh [--system] build/hdwlib_0.1.0_amd64.deb
set -euo pipefail

system=0
if [[ ${1:-} == --system ]]; then
    system=1
    shift
fi
deb=${1:?usage: check-deb.sh [--system] <package.deb>}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
fail=0
problem() {
    echo "check-deb: $*" >&2
    fail=1
}

field() { dpkg-deb -f "$deb" "$1"; }
echo "check-deb: $(basename "$deb"): $(field Package) $(field Version) $(field Architecture)"
echo "check-deb: Depends: $(field Depends)"
[[ $(field Package) == hdwlib ]] || problem "package name is $(field Package), not hdwlib"
[[ $(field Maintainer) == "HdwLib developers" ]] || problem "maintainer is $(field Maintainer)"
[[ -n $(field Version) ]] || problem "no version"
# dpkg-shlibdeps found the C and C++ runtimes the programs and the library use.
depends=", $(field Depends),"
for dep in libc6 libstdc++6; do
    [[ $depends == *", $dep "* || $depends == *", $dep,"* ]] || problem "Depends lacks $dep"
done
[[ $depends != *hdwlib* ]] || problem "the package depends on itself"

# One path a line (a symbolic link's line ends in "-> target").
contents=$(dpkg-deb -c "$deb" | awk '{ print ($1 ~ /^l/) ? $(NF - 2) : $NF }')
for want in ./usr/bin/hdwtool ./usr/bin/hdwsim ./usr/include/HdwLib/HdwLib.h \
    ./usr/include/HdwLib/HdwLibExport.h; do
    grep -qx "$want" <<<"$contents" || problem "$want is not in the package"
done
for pattern in '^\./usr/lib[^ ]*/libHdwLib\.so\.[0-9.]*$' '^\./usr/lib[^ ]*/pkgconfig/hdwlib\.pc$' \
    '^\./usr/lib[^ ]*/cmake/HdwLib/HdwLibConfig\.cmake$'; do
    grep -Eq "$pattern" <<<"$contents" || problem "nothing in the package matches $pattern"
done
# The library in the multiarch folder where the system has one (Debian).
if multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null) && [[ -n $multiarch ]]; then
    grep -Eq "^\./usr/lib/$multiarch/libHdwLib\.so\.[0-9.]*$" <<<"$contents" ||
        problem "libHdwLib.so is not in /usr/lib/$multiarch"
fi
outside=$(grep -Ev '^\./$|^\./usr(/|$)' <<<"$contents" || true)
if [[ -n $outside ]]; then
    problem "files outside /usr: $outside"
else
    echo "check-deb: $(grep -vc '/$' <<<"$contents") files, all under /usr"
fi

# Unpacked without installing: the relative RUNPATH finds the unpacked library.
root=$(mktemp -d "${TMPDIR:-/tmp}/hdwlib-deb.XXXXXX")
trap 'rm -rf "$root"' EXIT
dpkg -x "$deb" "$root"
"$here/check-install.sh" --programs "$root/usr" || fail=1

if [[ $system -eq 1 ]]; then
    if [[ $(id -u) -ne 0 ]]; then
        echo "check-deb: --system needs root; skipped"
    elif dpkg -s hdwlib 2>/dev/null | grep -q '^Status: install' || [[ -e /usr/bin/hdwtool || -e /usr/bin/hdwsim ]]; then
        echo "check-deb: hdwlib or its programs are already on this machine; dpkg -i skipped"
    else
        trap 'dpkg --purge hdwlib >/dev/null 2>&1 || true; rm -rf "$root"' EXIT
        dpkg -i "$deb"
        out=$(env -u LD_LIBRARY_PATH /usr/bin/hdwtool demo --duration 2 2>&1) || problem "installed hdwtool demo failed: $out"
        grep '^result:' <<<"$out" || problem "installed hdwtool demo printed no result line"
        dpkg --purge hdwlib
        [[ ! -e /usr/bin/hdwtool ]] || problem "dpkg --purge left /usr/bin/hdwtool"
    fi
fi

[[ $fail -eq 0 ]] || exit 1
echo "check-deb: $(basename "$deb") is complete and its programs run"
