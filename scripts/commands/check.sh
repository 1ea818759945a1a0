# ./dev check [STEP...]: what CI adds to the tests, cheapest first. A failed step does not keep the others from running.
all_steps="words layers format headers budget manual interface views consumer memory clang asan replay tsan"

check_words() {
    need_packages check || return 1
    try_step words "no words that point outside the repository" "$root/scripts/check_words.sh"
}

check_layers() { try_step layers "layers, system headers, file lengths" "$root/scripts/check_layers.py"; }

check_format() {
    need_packages check || return 1
    try_step format "formatting" "$root/scripts/format.sh" --dry-run -Werror
}

check_headers() {
    local script=$root/scripts/check_headers.py ace
    set_up win32 || return 1
    ace=$("$root/scripts/win32/build-ace.sh" --where)/include
    configure linux    # writes version.h
    try_step headers-linux "every public header alone and twice, linux" "$script" alone g++ || true
    try_step headers-win32 "every public header alone and twice, win32" "$script" alone i686-w64-mingw32-g++-posix \
        -isystem "$ace" -DACE_HAS_DLL=1 -D_WIN32_WINNT=0x0601 -DWINVER=0x0601
}

check_budget() {
    configure linux
    try_step budget "header budget" "$root/scripts/check_headers.py" budget || return 1
    sed 's/^/        /' "$log_folder/budget.log"
    build linux "the library" nqcore
    try_step size "size of the stripped library" check_size || return 1
    sed 's/^/        /' "$log_folder/size.log"
}

check_size() {
    local limit=700 stripped size
    stripped=$(mktemp)
    strip -o "$stripped" "$root/build/linux/lib/libnqcore.so"
    size=$(stat -c %s "$stripped")
    rm "$stripped"
    echo "$((size / 1024)) KiB of $limit"
    [ "$size" -le $((limit * 1024)) ]
}

check_manual() {
    need_packages manual || return 1
    build linux "the tool's manual" nq manual
    try_step manual "manual page and completions" "$root/scripts/check_manual.sh"
}

check_interface() {
    local target
    for target in linux win32; do
        set_up $target || return 1
        build $target "library" nqcore
        try_step "interface-$target" "the exported interface, $target" "$root/scripts/check_interface.py" $target || true
    done
}

check_views() {
    need_packages check || return 1
    build linux "library" nqcore
    try_step views-gdb "objects as gdb shows them" "$root/scripts/check_views.py" || true
    # The compiler of the tests has no std::format; this one has.
    try_step views-std-format "the formatters for std::format, with libc++" clang++-16 -std=c++20 -fsyntax-only \
        -Wall -Wextra -Werror -stdlib=libc++ -fexperimental-library \
        -I"$root/pub/inc/core" -I"$root/build/linux/include" -I"$root/int/test/nqcore" \
        -isystem /usr/src/googletest/googletest/include -isystem /usr/src/googletest/googlemock/include \
        "$root/int/test/nqcore/format_test.cpp" || true
}

check_consumer() {
    local target
    for target in linux win32; do
        set_up $target || return 1
        build $target "what is installed" installed
        try_step "consumer-$target" "the installed package and its consumer, $target" \
            "$root/scripts/check_consumer.sh" $target || true
    done
}

check_memory() {
    build linux "library and tool" nqcore nq
    try_step memory "nq scrub on streams of 1 GiB stays small" "$root/scripts/check_scrub_memory.py"
}

# What `./dev fuzz` builds: another compiler reads the whole library.
check_clang() {
    need_packages fuzz || return 1
    build fuzz "library and fuzz targets with clang" all
}

check_asan() {
    export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1
    export UBSAN_OPTIONS=print_stacktrace=1
    build asan "everything with the address and undefined-behaviour sanitizers" all
    run_tests asan
}

check_replay() {
    build asan "fuzz replay programs" all
    try_step replay "replaying the fuzz corpora with sanitizers" \
        ctest --test-dir "$root/build/asan" -L fuzz -j "$jobs" --output-on-failure --no-tests=error
}

check_tsan() {
    build tsan "everything with the thread sanitizer" all
    export TSAN_OPTIONS=second_deadlock_stack=1
    # Kernels that randomise addresses widely put libraries where this sanitizer has its own data.
    if setarch -R true 2> /dev/null; then test_prefix=(setarch -R); fi
    NQCORE_STRESS_RACES=1000000 run_tests tsan
    test_prefix=()
}

if [ "${1:-}" = --list ]; then
    say "$all_steps"
    exit
fi
for name in "$@"; do
    [[ " $all_steps " = *" $name "* ]] || usage_error "no step is called $name; ./dev check --list names them"
done
need_packages base || finish
# shellcheck disable=SC2086  # a list of words
[ $# -gt 0 ] || set -- $all_steps
for name; do
    "check_$name" || true
done
finish
