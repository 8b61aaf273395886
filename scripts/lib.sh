# Shared by the scripts of this folder; sourced, never run. Leaves the shell in the root of the tree.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 2
jobs=${ORU_JOBS:-$(nproc)}
ORU_CMAKE_OPTIONS=()

say() { printf '\n== %s\n' "$*"; }
die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# Prints the comment at the head of the calling script.
usage() { awk 'NR > 1 && !/^#/ {exit} NR > 1 {sub(/^# ?/, ""); print}' "$0"; }

# need_value OPTION REST...: the option must be followed by a value.
need_value() {
    if [ $# -lt 2 ]; then
        printf '%s: %s needs a value; see --help\n' "$(basename "$0")" "$1" >&2
        exit 2
    fi
}

missing_packages() {  # FILE...
    local package
    grep -hvE '^[[:space:]]*(#|$)' "$@" | while read -r package; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || echo "$package"
    done
}

# Installs what the lists of Debian packages name and this machine lacks. Asks nothing; touches nothing else.
install_packages() {  # FILE...
    local missing as_root=()
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" != 0 ]; then
        if ! sudo -n true 2>/dev/null && ! { [ -t 0 ] && command -v sudo >/dev/null; }; then
            die "these packages are missing and need root: apt-get install ${missing[*]}"
        fi
        as_root=(sudo)
    fi
    say "installing ${#missing[@]} missing packages"
    "${as_root[@]}" apt-get update -qq || die "apt-get update failed"
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends \
        -o Dpkg::Use-Pty=0 "${missing[@]}" >"${TMPDIR:-/tmp}/oru-packages.$$.log" 2>&1 || {
        tail -n 20 "${TMPDIR:-/tmp}/oru-packages.$$.log" >&2
        die "apt-get could not install: ${missing[*]}"
    }
    rm -f "${TMPDIR:-/tmp}/oru-packages.$$.log"
}

# Configures a preset and builds the named targets, or all of them. The configure log is shown only when it fails.
build_preset() {  # PRESET [TARGET...]
    local preset=$1 log
    shift
    log=build/$preset/configure.log
    mkdir -p "build/$preset"
    local launcher=()
    if command -v ccache >/dev/null; then
        launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_CUDA_COMPILER_LAUNCHER=ccache)
    fi
    say "configure and build: $preset"
    cmake --preset "$preset" "${launcher[@]}" "${ORU_CMAKE_OPTIONS[@]}" >"$log" 2>&1 || {
        cat "$log" >&2
        die "configuring preset $preset failed"
    }
    grep -E '^-- ORU:|warning:|CMake Warning' "$log" || true
    local targets=()
    [ $# -eq 0 ] || targets=(--target "$@")
    cmake --build --preset "$preset" -j "$jobs" "${targets[@]}" >"build/$preset/build.log" 2>&1 || {
        { grep -E 'error|warning|FAILED|undefined' -A 12 "build/$preset/build.log" | head -n 120 >&2; } || true
        tail -n 3 "build/$preset/build.log" >&2
        die "building preset $preset failed; the log is build/$preset/build.log"
    }
    tail -n 1 "build/$preset/build.log"
}
