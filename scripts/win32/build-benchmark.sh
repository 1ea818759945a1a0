#!/bin/bash
# build-benchmark.sh           builds Google Benchmark for win32 from Debian's source package, once, into the cache;
#                              prints the folder
# build-benchmark.sh --where   prints that folder only
# A static library: it serves the benchmarks of one tree and goes nowhere else. Needs what build-ace.sh needs. About ten
# seconds on two cores.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build() {
    local root=$1 source=$cache/benchmark-$benchmark_version-source result=$scratch/root
    [ -f "$root/.complete" ] && return
    fetch_source benchmark "$benchmark_source_package" "$source"
    cmake -S "$source" -B "$scratch/build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$repository/cmake/i686-w64-mingw32.cmake" -DNQCORE_ACE_ROOT=none \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$result" -DBUILD_SHARED_LIBS=OFF \
        -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF -DBENCHMARK_INSTALL_DOCS=OFF >&2
    cmake --build "$scratch/build" >&2
    cmake --install "$scratch/build" --strip > "$scratch/install.log"
    touch "$result/.complete"
    rm -rf "$root"
    mv "$result" "$root"
}

root=$(benchmark_root)
[ "${1:-}" = --where ] || [ -f "$root/.complete" ] || locked benchmark build "$root"
echo "$root"
