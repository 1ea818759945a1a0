# Sourced by ./dev package: making the packages and trying them as their users would.

package_folder=$root/build/package
version=$(sed -n 's/^project(nqcore VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")

package_linux() {
    need_packages base docs package || return 1
    try_step package-linux "building Debian packages" build_debian_packages || return 1
    try_step package-lint "lintian" lintian --allow-root --fail-on warning "$package_folder/debian"/*.changes || return 1
    try_step package-try "installing them into a clean Debian, using and removing them" \
        "$root/scripts/try_debian_packages.sh" "$package_folder/debian" || return 1
    note "linux: $(cd "$package_folder/debian" && ls -- *.deb | grep -c .) packages in build/package/debian"
}

# dpkg-buildpackage works in a source tree that has debian/ at its top, and writes its results beside it.
build_debian_packages() {
    local tree=$package_folder/debian/nqcore-$version
    rm -rf "$package_folder/debian"
    mkdir -p "$tree"
    copy_sources "$tree"
    cp -r "$root/packaging/debian" "$tree/debian"
    if [ "$(cd "$tree" && dpkg-parsechangelog -S Version)" != "$version" ]; then
        echo "packaging/debian/changelog does not begin with version $version" >&2
        return 1
    fi
    (cd "$tree" && DEB_BUILD_OPTIONS="parallel=$jobs " dpkg-buildpackage -b -us -uc)
}

# What git knows or would add: an archive of a tree with changes has them.
copy_sources() {
    (cd "$root" && git ls-files -z --cached --others --exclude-standard | tar -c --null --files-from=- --ignore-failed-read) |
        tar -x -C "$1"
}

package_win32() {
    set_up win32 || return 1
    need_packages package || return 1
    build win32 "what is installed" installed
    try_step package-win32 "packing the win32 archive" pack_win32 || return 1
    try_step package-try-win32 "unpacking the archive elsewhere and using it" \
        "$root/scripts/try_win32_archive.sh" "$package_folder/nqcore-$version-win32.zip" || return 1
    note "win32: build/package/nqcore-$version-win32.zip"
}

pack_win32() {
    local name=nqcore-$version-win32
    rm -rf "${package_folder:?}/$name" "$package_folder/$name.zip"
    mkdir -p "$package_folder"
    cmake --install "$root/build/win32" --prefix "$package_folder/$name" --strip
    cp -r "$root/examples" "$package_folder/$name/share/doc/nqcore/examples"
    win32_readme > "$package_folder/$name/README.txt"
    # Without owners and times of access, which say nothing to who unpacks it.
    (cd "$package_folder" && zip -q -9 -X -r "$name.zip" "$name")
}

# What the archive is and carries, with the versions that went into it; line ends as Windows has them.
win32_readme() {
    local ace gcc mingw cli11 json
    ace=$(. "$root/scripts/win32/common.sh" && echo "ace $ace_source_package")
    gcc=$(dpkg-query -W -f '${Built-Using}' gcc-mingw-w64-i686-posix-runtime | tr -d '(=)' | tr -s ' ')
    mingw=$(source_of mingw-w64-i686-dev)
    cli11=$(source_of libcli11-dev)
    json=$(source_of nlohmann-json3-dev)
    sed -e "s/@VERSION@/$version/; s/@FAMILY@/${version%.*}/; s/@GCC@/$(win32_compiler)/" \
        -e "s/@ACE_SOURCE@/$ace/; s/@GCC_SOURCE@/$gcc/; s/@MINGW_SOURCE@/$mingw/" \
        -e "s/@CLI11_SOURCE@/$cli11/; s/@JSON_SOURCE@/$json/; s/\$/\r/" "$root/packaging/win32/README.txt.in"
}

win32_compiler() { i686-w64-mingw32-g++-posix -dumpversion | cut -d- -f1; }
source_of() { dpkg-query -W -f '${source:Package} ${source:Version}' "$1"; }
