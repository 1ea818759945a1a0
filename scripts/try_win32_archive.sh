#!/bin/bash
# try_win32_archive.sh ARCHIVE.zip: unpacks the archive into an empty folder, builds its examples with CMake and by hand
# with pkg-config, runs them and nq in a Wine of their own, and sees that nothing else was written. Environment and home
# are empty, and the archive names no path of the build machine: nothing but the archive and the compiler can take part.
set -euo pipefail
archive=$(realpath "$1")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}
wine_run=$root/scripts/win32/wine-run
work=$(mktemp -d)
export NQ_WINEPREFIX=$work/wine
trap '"$wine_run" --stop > /dev/null 2>&1 || true; rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}
clean() { env -i PATH=/usr/bin:/bin HOME="$work/home" LC_ALL=C.UTF-8 "$@"; }
# Windows looks for DLLs beside the program and in the path.
run() {
    local path
    path=Z:$(tr / '\\' <<< "$folder/bin")
    clean XDG_CACHE_HOME="$cache" NQ_WINEPREFIX="$NQ_WINEPREFIX" WINEPATH="$path" "$wine_run" "$@"
}
# Windows programs end their lines with CR LF.
expect() {
    local wanted=$1
    shift
    run "$@" | tr -d '\r' > "$work/output"
    diff -u "$wanted" "$work/output"
}
contents() { (cd "$folder" && find . -type f -print0 | sort -z | xargs -0 sha256sum && find . ! -type f | sort); }

echo "--- the archive"
name=$(basename "$archive" .zip)
folder=$work/somewhere/$name
examples=$folder/share/doc/nqcore/examples
[ "$(unzip -Z1 "$archive" | cut -d/ -f1 | sort -u)" = "$name" ] || fail "not one folder: $name"
mkdir "$work/somewhere" "$work/home"
unzip -q "$archive" -d "$work/somewhere"
contents > "$work/before"
named=$(grep -rlF -e "$root/" -e "$cache/" -e "$HOME/" "$folder" || true)
[ -z "$named" ] || fail "paths of the build machine in" "$named"
if grep -nE '@|sources .?$' "$folder/README.txt"; then fail "the README is not filled in"; fi
for licence in ACE GCC GPL-3 mingw-w64 CLI11 nlohmann-json; do
    [ -s "$folder/share/doc/nqcore/licences/$licence.txt" ] || fail "no licence of $licence"
done

"$wine_run" --prepare
touch "$work/started"

# use_cmake SOURCE: configures and builds the project SOURCE as the README says.
use_cmake() {
    local build
    build=$work/build/$(basename "$1")
    clean cmake -S "$1" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$folder/share/nqcore/i686-w64-mingw32.cmake"
    grep -qxF "nqcore_DIR:PATH=$folder/lib/cmake/nqcore" "$build/CMakeCache.txt" || fail "another nqcore was found"
    clean cmake --build "$build"
}
for project in "$examples"/*/CMakeLists.txt; do
    source=$(dirname "$project")
    project_name=$(basename "$source")
    echo "--- CMake: $project_name"
    use_cmake "$source"
    expect "$source/expected-output.txt" "$work/build/$project_name/$project_name.exe"
done

echo "--- CMake: ACE of the archive"
mkdir "$work/with_ace"
cat > "$work/with_ace/CMakeLists.txt" << 'TEXT'
cmake_minimum_required(VERSION 3.25)
project(with_ace LANGUAGES CXX)
find_package(nqcore 0.1 CONFIG REQUIRED COMPONENTS ace)
add_executable(with_ace main.cpp)
target_link_libraries(with_ace PRIVATE nqcore::nqcore ACE::ACE)
TEXT
cat > "$work/with_ace/main.cpp" << 'TEXT'
#include <nqcore/abs_rel_time.h>
#include <nqcore/ace_timeout.h>
#include <ace/Auto_Event.h>
#include <ace/Init_ACE.h>
#include <cstdio>

int main() {
    ACE::init();
    {
        ACE_Auto_Event event;
        const auto deadline = (nqcore::AbsoluteTime::now() + nqcore::RelativeTime::milliseconds(50)).as_ace_timeout();
        std::printf("%d\n", event.wait(deadline));
    }
    std::printf("%d\n", ACE::fini());
}
TEXT
use_cmake "$work/with_ace"
printf '%s\n' -1 0 > "$work/wanted"
expect "$work/wanted" "$work/build/with_ace/with_ace.exe"

echo "--- pkg-config: consumer"
# shellcheck disable=SC2046  # pkg-config's answer is a list of arguments
clean i686-w64-mingw32-g++-posix -Wall -Wextra -Werror "$examples/consumer/main.cpp" -o "$work/by-hand.exe" \
    $(clean PKG_CONFIG_LIBDIR="$folder/lib/pkgconfig" pkg-config --cflags --libs nqcore)
expect "$examples/consumer/expected-output.txt" "$work/by-hand.exe"

echo "--- nq"
sed -n 's/^#define NQCORE_VERSION "\(.*\)"/nq \1/p' "$folder/include/nqcore/version.h" > "$work/wanted"
expect "$work/wanted" "$folder/bin/nq.exe" --version
echo 'caf? 41111-------1111' > "$work/wanted"
printf 'caf\351 4111111111111111\n' > "$work/input"
expect "$work/wanted" "$folder/bin/nq.exe" scrub -q "Z:$work/input"

echo "--- nothing was written: removing is deleting the folder"
contents | diff "$work/before" -
written=$(find "$work/home" "$NQ_WINEPREFIX/drive_c" -mindepth 1 -newer "$work/started" -type f)
[ -z "$written" ] || fail "written:" "$written"
