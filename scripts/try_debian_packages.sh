#!/bin/bash
# try_debian_packages.sh FOLDER: installs the packages of FOLDER into a Debian that has nothing else of this project, builds
# the examples there with CMake and by hand with pkg-config, runs them and nq, and removes the packages again.
set -euo pipefail
packages=$(realpath "$1")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
clean=$(mktemp -d)
trap 'rm -rf "$clean"' EXIT

inside() { chroot "$clean" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }

echo "--- a clean Debian, and the packages in it"
# Installed while the new system still has the package lists and this one's network settings.
mmdebstrap --quiet --variant=apt --include=g++,gdb,cmake,make,pkg-config \
    --customize-hook="cp '$packages'/*.deb \"\$1/root/\"" \
    --customize-hook='chroot "$1" dpkg-query -W -f "\${Package}\\n" | sort > "$1/root/before"' \
    --customize-hook='chroot "$1" sh -c "apt-get install -q -y --no-install-recommends /root/*.deb"' \
    bookworm "$clean"
cp -r "$root/examples" "$clean/root/examples"

echo "--- examples with CMake"
for project in "$root"/examples/*/CMakeLists.txt; do
    name=$(basename "$(dirname "$project")")
    inside sh -c "cmake -S /root/examples/$name -B /root/build/$name > /dev/null && cmake --build /root/build/$name"
    inside "/root/build/$name/$name" | diff -u "$root/examples/$name/expected-output.txt" -
done
echo "--- examples/consumer with pkg-config"
inside sh -c 'g++ /root/examples/consumer/main.cpp -o /root/by-hand $(pkg-config --cflags --libs nqcore)'
inside /root/by-hand | diff -u "$root/examples/consumer/expected-output.txt" -

echo "--- gdb finds the views by itself"
# With the library as a file: a program cannot be run under it where there is no /proc.
inside sh -c "gdb -batch -ex 'info pretty-printer' /usr/lib/*/libnqcore.so.*.*.*" | grep -A3 '^ *nqcore'

echo "--- nq, its manual page and completions"
inside nq --version
inside sh -c 'printf "caf\351 4111111111111111\n" | nq scrub -q' | grep -qx 'caf? 41111-------1111'
for file in usr/share/man/man1/nq.1.gz usr/share/bash-completion/completions/nq usr/share/zsh/vendor-completions/_nq \
    usr/share/fish/vendor_completions.d/nq.fish; do
    [ -s "$clean/$file" ] || { echo "missing: /$file" >&2; exit 1; }
done

echo "--- guide and reference"
"$root/scripts/docs/check_links.py" "$clean/usr/share/doc/nqcore-doc/html"

echo "--- removing"
inside sh -c 'apt-get purge -q -y "*nqcore*" "libnqmoduleregistry*" && apt-get autoremove -q -y --purge'
inside dpkg-query -W -f '${Package}\n' | sort > "$clean/root/after"
left=$(find "$clean/usr" "$clean/etc" -name '*nqcore*' -o -name '*nqmodule*' -o -name nq -o -name 'nq.*' | grep -v '^$' || true)
[ -z "$left" ] || { printf 'left behind:\n%s\n' "$left" >&2; exit 1; }
diff "$clean/root/before" "$clean/root/after"
echo "all as it was before"
