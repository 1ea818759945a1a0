#!/bin/bash
# build-benchmark.sh           builds Google Benchmark for win32 from Debian's source package, once, into the cache;
#                              prints the folder
# build-benchmark.sh --where   prints that folder only
# A static library: it serves the benchmarks of one tree and goes nowhere else. Needs what build-ace.sh needs. About ten
# seconds on two cores.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build() {
    local source=$cache/benchmark-$benchmark_version-source
    [ -f "$1/.complete" ] && return
    fetch_source benchmark "$benchmark_source_package" "$source"
    install_from "$source" "$1" -DBUILD_SHARED_LIBS=OFF \
        -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF -DBENCHMARK_INSTALL_DOCS=OFF
}

root=$(benchmark_root)
[ "${1:-}" = --where ] || [ -f "$root/.complete" ] || locked benchmark build "$root"
echo "$root"
