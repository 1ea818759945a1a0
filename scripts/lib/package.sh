# Sourced by ./dev package: making the packages and trying them as their users would.

package_folder=$root/build/package
version=$(sed -n 's/^project(nqcore VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")

package_linux() {
    need_packages base && need_packages package || return 1
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
    build win32 "library and tool" nqcore nq
    try_step package-win32 "packing the win32 archive" pack_win32 || return 1
    try_step package-try-win32 "unpacking and using the archive" try_win32_archive || return 1
    note "win32: build/package/nqcore-$version-win32.zip"
}

pack_win32() {
    local name=nqcore-$version-win32
    rm -rf "${package_folder:?}/$name" "$package_folder/$name.zip"
    mkdir -p "$package_folder"
    cmake --install "$root/build/win32" --prefix "$package_folder/$name" --strip
    (cd "$package_folder" && zip -q -9 -r "$name.zip" "$name")
}

try_win32_archive() {
    local unpacked=$package_folder/unpacked status=0
    rm -rf "$unpacked"
    unzip -q "$package_folder/nqcore-$version-win32.zip" -d "$unpacked"
    "$root/scripts/check_consumer.sh" win32 "$unpacked/nqcore-$version-win32" || status=$?
    rm -rf "$unpacked"
    return $status
}
