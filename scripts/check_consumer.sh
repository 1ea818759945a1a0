#!/bin/bash
# check_consumer.sh linux|win32
# Installs the built tree into a temporary folder and uses it as a stranger would: the projects of examples/ are configured
# with find_package and run, examples/consumer is compiled a second time by hand with pkg-config; nq is started.
set -euo pipefail
target=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
flags=(-std=c++20 -Wall -Wextra -Werror)

case $target in
    linux)
        compiler=g++
        toolchain=()
        suffix=
        run() { "$@"; }
        flags+=("-Wl,-rpath,$prefix/lib")
        ;;
    win32)
        compiler=i686-w64-mingw32-g++-posix
        toolchain=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/i686-w64-mingw32.cmake")
        suffix=.exe
        # Windows looks for DLLs beside the program and in the path.
        run() { WINEPATH="Z:$(tr / '\\' <<< "$prefix/bin")" "$root/scripts/win32/wine-run" "$@"; }
        ;;
esac

# expect FILE COMMAND...: COMMAND succeeds and writes exactly FILE; Windows programs end their lines with CR LF.
expect() {
    local wanted=$1
    shift
    run "$@" | tr -d '\r' | tee "$work/output"
    diff -u "$wanted" "$work/output"
}

cmake --install "$root/build/$target" --prefix "$prefix"
cp -r "$root/examples" "$work/examples"

for project in "$work"/examples/*/CMakeLists.txt; do
    source=$(dirname "$project")
    name=$(basename "$source")
    echo "--- find_package: $name"
    cmake -S "$source" -B "$work/build/$name" -G Ninja "${toolchain[@]}" -Dnqcore_DIR="$prefix/lib/cmake/nqcore"
    cmake --build "$work/build/$name"
    expect "$source/expected-output.txt" "$work/build/$name/$name$suffix"
done

echo "--- pkg-config"
export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig
# shellcheck disable=SC2046  # pkg-config's answer is a list of arguments
"$compiler" "${flags[@]}" "$work/examples/consumer/main.cpp" -o "$work/by-hand$suffix" $(pkg-config --cflags --libs nqcore)
expect "$work/examples/consumer/expected-output.txt" "$work/by-hand$suffix"

echo "--- installed nq"
version=$(sed -n 's/^#define NQCORE_VERSION "\(.*\)"/\1/p' "$prefix/include/nqcore/version.h")
echo "nq $version" > "$work/version"
expect "$work/version" "$prefix/bin/nq$suffix" --version
