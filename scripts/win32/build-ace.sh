#!/bin/bash
# build-ace.sh           builds ACE.dll for win32 from Debian's source package, once, into the cache; prints the folder
# build-ace.sh --where   prints that folder only
# Needs dpkg-dev, the mingw compiler, cmake and ninja; no root. About half a minute on two cores.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# The package's signature and hashes are apt's to check. Its patch concerns Perl scripts only, so the original archive
# is unpacked as it is.
fetch_source() {
    local source=$1 apt=$scratch/apt tree=$scratch/tree
    [ -f "$source/.complete" ] && return
    mkdir -p "$apt/sources" "$tree"
    apt_source deb-src "$apt/sources"
    private_apt "$apt" update
    (cd "$scratch" && private_apt "$apt" --download-only source "ace=$ace_source_package")
    tar --no-same-owner -xf "$scratch/ace_${ace_source_package%-*}.orig.tar.gz" -C "$tree" --strip-components=1
    touch "$tree/.complete"
    rm -rf "$source"
    mv "$tree" "$source"
}

build() {
    local root=$1 source=$cache/ace-$ace_version-source result=$scratch/root
    [ -f "$root/.complete" ] && return
    fetch_source "$source"
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
