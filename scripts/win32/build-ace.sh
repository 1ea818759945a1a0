#!/bin/bash
# build-ace.sh           builds ACE.dll for win32 from Debian's source package, once, into the cache; prints the folder
# build-ace.sh --where   prints that folder only
# Needs dpkg-dev, the mingw compiler, cmake and ninja; no root. About half a minute on two cores.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build() {
    local root=$1 source=$cache/ace-$ace_version-source result=$scratch/root
    [ -f "$root/.complete" ] && return
    fetch_source ace "$ace_source_package" "$source"
    cmake -S "$repository/cmake/ace" -B "$scratch/build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$repository/cmake/i686-w64-mingw32.cmake" -DNQCORE_ACE_ROOT=none \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG" \
        -DACE_SOURCE_DIR="$source" -DCMAKE_INSTALL_PREFIX="$result" >&2
    cmake --build "$scratch/build" >&2
    cmake --install "$scratch/build" --strip > "$scratch/install.log"
    touch "$result/.complete"
    rm -rf "$root"
    mv "$result" "$root"
}

root=$(ace_root)
[ "${1:-}" = --where ] || [ -f "$root/.complete" ] || locked ace build "$root"
echo "$root"
