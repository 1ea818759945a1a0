# Sourced by ./dev: configuring and building the trees, and what win32 needs besides.

jobs=$(nproc)

# set_up TARGET: packages, and for win32 ACE and Wine in the cache. Returns 1 when something cannot be had.
set_up() {
    need_packages base || return 1
    [ "$1" != win32 ] || set_up_win32
}

# What the tests of a target need besides.
set_up_tests() { [ "$1" != win32 ] || need_packages win32-test; }

set_up_win32() {
    local win32=$root/scripts/win32
    need_packages win32 || return 1
    if [ ! -f "$("$win32/build-ace.sh" --where)/.complete" ]; then
        try_step ace "building ACE for win32, once, into the cache" "$win32/build-ace.sh" || return 1
    fi
    if [ ! -f "$("$win32/get-wine.sh" --where)/.complete" ]; then
        try_step wine "fetching Wine, once, into the cache" "$win32/get-wine.sh" || return 1
    fi
    try_step wine-start "starting Wine" "$win32/wine-run" --prepare
}

# What the benchmarks of win32 need besides; linux has it as a package.
set_up_win32_benchmark() {
    local script=$root/scripts/win32/build-benchmark.sh
    [ -f "$("$script" --where)/.complete" ] ||
        try_step benchmark "building Google Benchmark for win32, once, into the cache" "$script"
}

# What a configured tree depends on besides the CMake files, which ninja watches.
configuration_of() {
    echo "$root"
    sha256sum < "$root/CMakePresets.json"
    [[ $1 != *win32 ]] || "$root/scripts/win32/build-ace.sh" --where
    [ "$1" != bench-win32 ] || "$root/scripts/win32/build-benchmark.sh" --where
}

# configure TREE: TREE is a preset. Does nothing in a tree that is configured.
configure() {
    local stamp=$root/build/$1/.configured
    [ "$(configuration_of "$1")" != "$(cat "$stamp" 2> /dev/null)" ] || return 0
    step "configure-$1" "configuring $1" cmake -S "$root" --preset "$1" --fresh
    configuration_of "$1" > "$stamp"
}

# build TREE WHAT TARGETS...: WHAT for people, TARGETS for ninja.
build() {
    local tree=$1 what=$2
    shift 2
    configure "$tree"
    step "build-$tree" "building $what for $tree" cmake --build "$root/build/$tree" -j "$jobs" --target "$@"
}

# run_program TREE PROGRAM ARGUMENTS...: PROGRAM of that tree, through Wine where it must be.
run_program() {
    local tree=$1 program=$2
    shift 2
    if [[ $tree = *win32 ]]; then
        "$root/scripts/win32/wine-run" "$root/build/$tree/bin/$program.exe" "$@"
    else
        "$root/build/$tree/bin/$program" "$@"
    fi
}
