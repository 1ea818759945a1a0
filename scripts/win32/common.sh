# Sourced by the scripts in this folder: where things lie in the cache, locks, and apt without touching the system's.
set -euo pipefail

win32_scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
repository=$(cd "$win32_scripts/../.." && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/nqcore

# recipe_id FILE...: a short name for the content of the files that make something. It is part of the folder's name in
# the cache, so that clones at different commits never work on one folder, and a changed recipe is a new folder.
recipe_id() { cat "$@" | sha256sum | cut -c1-10; }

ace_version=7.0.8
ace_source_package=7.0.8+dfsg-2
ace_root() {
    local toolchain=$repository/cmake/i686-w64-mingw32.cmake
    echo "$cache/ace-$ace_version-win32-$(recipe_id "$win32_scripts/build-ace.sh" "$toolchain" \
        "$repository/cmake/ace/CMakeLists.txt" "$repository/cmake/ace/config/ace/config.h")"
}
benchmark_version=1.7.1
benchmark_source_package=1.7.1-1
benchmark_root() {
    echo "$cache/benchmark-$benchmark_version-win32-$(recipe_id "$win32_scripts/build-benchmark.sh" \
        "$repository/cmake/i686-w64-mingw32.cmake")"
}
wine_root() { echo "$cache/wine-$(recipe_id "$win32_scripts/get-wine.sh")"; }

# locked NAME COMMAND...: runs COMMAND while no other process, of this clone or another, holds NAME in the cache.
# COMMAND finds an empty folder in $scratch, which goes when it ends.
locked() {
    local name=$1
    shift
    mkdir -p "$cache"
    (
        flock 9
        scratch=$(mktemp -d "$cache/$name.XXXXXX")
        trap 'rm -rf "$scratch"' EXIT
        "$@" 9>&-
    ) 9> "$cache/$name.lock"
}

# apt_source TYPE FOLDER: writes FOLDER/bookworm.{sources,list} with entries of TYPE (deb, deb-src) for the main
# bookworm archive, taken from the machine's own apt configuration: mirror, proxy and keys stay those of the machine.
apt_source() {
    local type=$1 folder=$2 etc=${NQ_APT_ETC:-/etc/apt} file
    for file in "$etc"/sources.list.d/*.sources; do
        [ -e "$file" ] || continue
        awk -v type="$type" 'BEGIN { RS = ""; FS = "\n" }
            { types = uris = suites = key = ""; off = 0
              for (i = 1; i <= NF; i++) {
                  if ($i ~ /^Types:/) types = $i
                  if ($i ~ /^URIs:/) uris = $i
                  if ($i ~ /^Suites:/) suites = $i " "
                  if ($i ~ /^Signed-By:/) key = "\n" $i
                  if ($i ~ /^Enabled: *no/) off = 1
              }
              if (!off && types ~ /deb( |$)/ && suites ~ / bookworm /)
                  print "Types: " type "\n" uris "\nSuites: bookworm\nComponents: main" key "\n" }' "$file"
    done > "$folder/bookworm.sources"
    for file in "$etc"/sources.list "$etc"/sources.list.d/*.list; do
        [ -e "$file" ] || continue
        sed -nE "/cdrom:/d; s/^deb([[:space:]]+\[[^]]*\])?[[:space:]]+([^[:space:]]+)[[:space:]]+bookworm[[:space:]].*\bmain\b.*/$type\1 \2 bookworm main/p" "$file"
    done | sort -u > "$folder/bookworm.list"
    [ -s "$folder/bookworm.sources" ] || [ -s "$folder/bookworm.list" ] && return
    echo "apt knows no Debian 12 (bookworm) source on this machine" >&2
    return 1
}

# private_apt FOLDER ARGUMENTS...: apt-get with its state in FOLDER and the sources in FOLDER/sources.
private_apt() {
    local folder=$1
    shift
    mkdir -p "$folder"/{lists,archives}/partial
    [ -e "$folder/status" ] || : > "$folder/status"
    apt-get -q -y -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$folder/sources" \
        -o Dir::Etc::preferencesparts=/dev/null \
        -o Dir::State="$folder" -o Dir::State::status="$folder/status" -o Dir::State::lists="$folder/lists" \
        -o Dir::Cache="$folder" -o Dir::Cache::archives="$folder/archives" \
        -o APT::Sandbox::User=root -o Acquire::Languages=none -o APT::Install-Recommends=false \
        -o Debug::NoLocking=true -o Acquire::Retries=3 "$@" >&2
}

# fetch_source PACKAGE VERSION FOLDER: the original archive of a Debian source package, unpacked into FOLDER, once. Its
# signature and hashes are apt's to check. Debian's patches stay out: none concerns what is built for win32.
fetch_source() {
    local package=$1 version=$2 folder=$3 apt=$scratch/apt tree=$scratch/tree
    [ -f "$folder/.complete" ] && return
    mkdir -p "$apt/sources" "$tree"
    apt_source deb-src "$apt/sources"
    private_apt "$apt" update
    (cd "$scratch" && private_apt "$apt" --download-only source "$package=$version")
    tar --no-same-owner -xf "$scratch/${package}_${version%-*}.orig.tar.gz" -C "$tree" --strip-components=1
    touch "$tree/.complete"
    rm -rf "$folder"
    mv "$tree" "$folder"
}

# install_from SOURCE ROOT OPTIONS...: compiles a CMake project for win32 with OPTIONS; ROOT appears when it is whole.
install_from() {
    local source=$1 root=$2 result=$scratch/root
    shift 2
    cmake -S "$source" -B "$scratch/build" -G Ninja \
        -DCMAKE_TOOLCHAIN_FILE="$repository/cmake/i686-w64-mingw32.cmake" -DNQCORE_ACE_ROOT=none \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$result" "$@" >&2
    cmake --build "$scratch/build" >&2
    cmake --install "$scratch/build" --strip > "$scratch/install.log"
    touch "$result/.complete"
    rm -rf "$root"
    mv "$result" "$root"
}
