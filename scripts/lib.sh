# Shared helpers of scripts/test and .ci/run (sourced, not run).

# Installs the Debian packages of the arguments that are not installed yet:
# apt-get as root, through sudo otherwise. apt-get update runs only when
# something is missing.
hdw_require_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        dpkg -s "$pkg" 2>/dev/null | grep -q '^Status: install ok installed' || missing+=("$pkg")
    done
    [[ ${#missing[@]} -eq 0 ]] && return 0
    echo "Installing missing Debian packages: ${missing[*]}"
    local sudo=()
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || { echo "need root or sudo to install ${missing[*]}" >&2; return 1; }
        sudo=(sudo)
    fi
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# Configures (when needed) and builds one build folder: hdw_build <dir> [cmake args...]
hdw_build() {
    local dir=$1
    shift
    cmake -S "$HDW_ROOT" -B "$dir" -G Ninja "$@"
    cmake --build "$dir" --parallel "${HDW_JOBS:-2}"
}

HDW_NATIVE_PACKAGES=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev pkg-config
    tshark python3-can python3-pytest pybind11-dev python3-pybind11)
