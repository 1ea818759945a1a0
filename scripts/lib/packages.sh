# Sourced by ./dev: Debian packages. scripts/packages/PURPOSE lists what each purpose needs.

package_list() {
    local purpose
    for purpose in "$@"; do
        sed -E 's/#.*//; /^[[:space:]]*$/d' "$root/scripts/packages/$purpose"
    done | sort -u
}

missing_packages() {
    local package
    for package in $(package_list "$@"); do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2> /dev/null)" = installed ] || echo "$package"
    done
}

# need_packages PURPOSE...: installs what is missing; touches nothing when nothing is. Returns 1 when it cannot.
need_packages() {
    local missing
    missing=$(missing_packages "$@" | xargs)
    [ -n "$missing" ] || return 0
    if ! may_install; then
        say "needs root once: apt-get update && apt-get install --no-install-recommends $missing"
        failures+=("installing packages")
        return 1
    fi
    # shellcheck disable=SC2086  # one argument for each package
    try_step "packages-$1" "installing Debian packages: $missing" install_packages $missing
}

# Asks for sudo's password here: a step runs in the background, where nobody could be asked.
may_install() {
    [ "$(id -u)" = 0 ] || { command -v sudo > /dev/null && sudo -v; }
}

install_packages() {
    local as_root=()
    [ "$(id -u)" = 0 ] || as_root=(sudo -n)
    # apt's own locks do not make a second `apt-get update` wait.
    exec 7> "/tmp/nqcore-apt-$(id -u).lock"
    flock 7
    # What an interrupt left half-configured.
    "${as_root[@]}" dpkg --configure -a 7>&-
    "${as_root[@]}" apt-get -q update 7>&-
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=600 \
        install --no-install-recommends "$@" 7>&-
}
