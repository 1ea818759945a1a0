#!/bin/bash
# build-ace.sh           builds ACE.dll for win32 from Debian's source package, once, into the cache; prints the folder
# build-ace.sh --where   prints that folder only
# Needs dpkg-dev, the mingw compiler, cmake and ninja; no root. About half a minute on two cores.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# The package's signature and hashes are apt's to check. Its patch concerns Perl scripts only, so the original archive
# is unpacked as it is.
fetch_source() {
    local source=$1 work
    [ -f "$source/.complete" ] && return
    work=$(mktemp -d "$cache/fetch-ace.XXXXXX")
    mkdir "$work/sources" "$work/tree"
    apt_source deb-src "$work/sources"
    private_apt "$work" update
    (cd "$work" && private_apt "$work" --download-only source "ace=$ace_source_package")
    tar -xf "$work/ace_${ace_source_package%-*}.orig.tar.gz" -C "$work/tree" --strip-components=1
    touch "$work/tree/.complete"
    rm -rf "$source"
    mv "$work/tree" "$source"
    rm -rf "$work"
}

build() {
    local root=$1 source=$cache/ace-$ace_version-source build
    [ -f "$root/.complete" ] && return
    fetch_source "$source"
    build=$(mktemp -d "$cache/build-ace.XXXXXX")
    cmake -S "$repository/cmake/ace" -B "$build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$repository/cmake/i686-w64-mingw32.cmake" -DNQCORE_ACE_ROOT=none \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG" \
        -DACE_SOURCE_DIR="$source" -DCMAKE_INSTALL_PREFIX="$build/root" >&2
    cmake --build "$build" >&2
    cmake --install "$build" --strip > "$build/install.log"
    touch "$build/root/.complete"
    rm -rf "$root"
    mv "$build/root" "$root"
    rm -rf "$build"
}

root=$(ace_root)
[ "${1:-}" = --where ] || [ -f "$root/.complete" ] || locked ace build "$root"
echo "$root"
