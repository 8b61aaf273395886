#!/usr/bin/env bash
# Installs into an empty prefix, moves it, and builds and runs the examples against it, by find_package and pkg-config.
# Usage: install_test.sh BUILD_FOLDER EXAMPLES_FOLDER C++_COMPILER WORK_FOLDER
set -euo pipefail
build=$1 examples=$2 compiler=$3 work=$4
prefix=$work/moved
rm -rf "$work"
mkdir -p "$work"

cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
mv "$work/prefix" "$prefix"
headers=$(cd "$prefix/include" && find . -name '*.hpp' | LC_ALL=C sort)
strangers=$(grep -v '^\./oru/' <<<"$headers" || true)
[ -z "$strangers" ] || { echo "headers outside oru/ are installed: $strangers"; exit 1; }

echo "-- each installed header alone"
for header in $headers; do
    case $header in */interop/*) continue ;; esac
    echo "#include \"${header#./}\"" | "$compiler" -std=c++20 -Wall -Wextra -Werror -fsyntax-only -x c++ -I"$prefix/include" -
done

export XDG_DATA_HOME=$work/data
libdir=$(dirname "$(find "$prefix" -name 'liboru_koruone.so')")

echo "-- the tool"
"$prefix/bin/koruone" --version

echo "-- find_package"
cmake -S "$examples" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/configure.log"
cmake --build "$work/build" -j 2 >"$work/build.log" || { cat "$work/build.log"; exit 1; }
grep -q "$prefix" "$work/build/CMakeCache.txt" || { echo "find_package took another installation"; exit 1; }
(cd "$work" && "$work/build/first_frames")

echo "-- pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046  # flags are words
"$compiler" -std=c++20 "$examples/first_frames.cpp" -o "$work/first_frames" $(pkg-config --cflags --libs oru_koruone)
(cd "$work" && LD_LIBRARY_PATH=$libdir "$work/first_frames")

echo "-- light"
# Programs start with few libraries: what a live camera does not need lies in the modules.
objects=$(ldd "$work/build/first_frames" | wc -l)
[ "$objects" -le 25 ] || { echo "first_frames loads $objects shared objects"; exit 1; }
echo "first_frames loads $objects shared objects"
cat >"$work/smallest.cpp" <<'EOF'
#include <ctime>
#include <fstream>
#include <iostream>
#include <oru/CameraOne.hpp>

int main() {
    const bool none = oru::CameraOne().getDeviceList().empty();
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line) && line.rfind("VmHWM:", 0) != 0) {
    }
    std::cout << std::stol(line.substr(6)) << ' ' << std::clock() * 1000000 / CLOCKS_PER_SEC << '\n';
    return none ? 1 : 0;
}
EOF
# shellcheck disable=SC2046  # flags are words
"$compiler" -std=c++20 "$work/smallest.cpp" -o "$work/smallest" $(pkg-config --cflags --libs oru_koruone)
# The fastest of some runs: others use the machine as well.
read -r memory microseconds < <(for _ in 1 2 3 4 5 6 7 8; do
    LD_LIBRARY_PATH=$libdir "$work/smallest"
done | sort -n -k 2,2 | head -n 1)
echo "a program that lists the cameras takes $memory KiB and $microseconds us of a processor"
if [ "$memory" -gt 12288 ] || [ "$microseconds" -gt 10000 ]; then exit 1; fi

echo "-- without a module"
rm "$libdir"/liboru_koruone_stream.so.*
status=0
(cd "$work" && "$work/build/stream_to_myself" $((30000 + $$ % 10000))) >"$work/alone.log" 2>&1 || status=$?
[ "$status" -ne 0 ] || { echo "a stream ran without its module"; exit 1; }
grep -q 'liboru_koruone_stream.so.*oru-koruone-stream is missing' "$work/alone.log" || { cat "$work/alone.log"; exit 1; }
echo "version $(pkg-config --modversion oru_koruone)"
