#!/bin/bash
# get-wine.sh           unpacks Debian's 32-bit Wine into the cache, once; prints the folder
# get-wine.sh --where   prints that folder only
# No root, no chroot, no foreign architecture in dpkg: the i386 packages are downloaded and unpacked side by side.
# Needs binutils-mingw-w64-i686 here and libc6-i386 to run it. 137 MB to fetch, 257 MB unpacked.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

download() {
    local packages=$1 apt=$scratch/apt
    [ -f "$packages/.complete" ] && return
    mkdir -p "$apt/sources"
    apt_source deb "$apt/sources"
    private_apt "$apt" -o APT::Architecture=i386 -o APT::Architectures=i386 update
    private_apt "$apt" -o APT::Architecture=i386 -o APT::Architectures=i386 --download-only install wine32 fonts-wine
    touch "$apt/archives/.complete"
    rm -rf "$packages"
    mv "$apt/archives" "$packages"
}

# What maintainer scripts and the C library package would have done.
adapt() {
    local tree=$1 dlls=$1/usr/lib/i386-linux-gnu/wine/i386-windows zlib=$1/usr/i686-w64-mingw32/lib/zlib1.dll
    # Wine's DLLs carry 400 MB of debug information, and every new prefix copies them.
    find "$dlls" -type f -print0 | xargs -0 -P2 -n 40 i686-w64-mingw32-strip --strip-debug
    # Wine takes zlib1.dll for one of its own only with this mark; without it user32 cannot load and programs hang.
    { head -c 64 "$zlib"
      printf 'Wine builtin DLL\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0'
      tail -c +97 "$zlib"; } > "$dlls/zlib1.dll"
    # Debian's wineserver is a script with a fixed path in it.
    ln -sf wineserver32 "$tree/usr/lib/wine/wineserver"
    rm -rf "$tree"/usr/share/{doc,man,locale} "$tree"/usr/*-w64-mingw32 "$dlls/../x86_64-windows"
}

unpack() {
    local root=$1 packages=$cache/wine-packages tree=$scratch/tree deb
    [ -f "$root/.complete" ] && return
    download "$packages"
    mkdir "$tree"
    for deb in "$packages"/*.deb; do
        case ${deb##*/} in
            # The C library is libc6-i386's. The rest serves video, cameras, scanners, directories: never loaded here.
            libc6_* | libc-bin* | iso-codes* | libgstreamer* | libx265* | libaom* | librav1e* | libdav1d* | libgav1* | \
            libabsl* | libgphoto2* | libexif* | libcurl* | libssl* | libldap* | libsasl2* | libkrb5* | libgssapi* | \
            libk5* | libicu* | libmp3lame* | libavif* | libheif* | libyuv* | libde265*) continue ;;
        esac
        dpkg-deb -x "$deb" "$tree"
    done
    adapt "$tree"
    touch "$tree/.complete"
    rm -rf "$root"
    mv "$tree" "$root"
}

root=$(wine_root)
[ "${1:-}" = --where ] || [ -f "$root/.complete" ] || locked wine unpack "$root"
echo "$root"
