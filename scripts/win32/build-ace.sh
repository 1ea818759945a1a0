#!/bin/bash
# build-ace.sh           builds ACE.dll for win32 from Debian's source package, once, into the cache; prints the folder
# build-ace.sh --where   prints that folder only
# Needs dpkg-dev, the mingw compiler, cmake and ninja; no root. About half a minute on two cores.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build() {
    local source=$cache/ace-$ace_version-source
    [ -f "$1/.complete" ] && return
    fetch_source ace "$ace_source_package" "$source"
    install_from "$repository/cmake/ace" "$1" -DACE_SOURCE_DIR="$source" -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG"
}

root=$(ace_root)
[ "${1:-}" = --where ] || [ -f "$root/.complete" ] || locked ace build "$root"
echo "$root"
