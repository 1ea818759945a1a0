# Sourced by ./dev: running the tests of a built tree.

# Put before ctest when a test run needs it.
test_prefix=()

# matching_tests TREE REGEX: in a configured tree, the targets of the test programs. They have the same names, but for
# those that run once more in other circumstances.
matching_tests() {
    ctest --test-dir "$root/build/$1" -N -L gtest -R "$2" 2> /dev/null | sed -nE 's/^ *Test *#[0-9]*: //p' | sed -E 's/_test_(on|missing)$/_test/' | sort -u
}

# run_tests TREE [CTEST OPTIONS]: notes the tree's line of counts; returns 1 when a test failed or none ran.
run_tests() {
    local tree=$1 folder=$root/build/$1 line status=0 counted=0
    shift
    rm -rf "$folder/test-results"
    mkdir -p "$folder/test-results"
    try_step "test-$tree" "running the tests of $tree" \
        "${test_prefix[@]}" ctest --test-dir "$folder" -L gtest -j "$jobs" --output-on-failure --no-tests=error \
        --output-junit "$folder/test-results/ctest.xml" "$@" || status=1
    line=$(python3 "$root/scripts/count_tests.py" "$tree" "$folder/test-results/ctest.xml" "$folder/test-results" \
        2>> "$log_folder/test-$tree.log") || counted=1
    if [ "$counted" -gt "$status" ]; then
        status=1
        failures+=("counting the tests of $tree")
    fi
    if [ "$status" != 0 ]; then
        grep -a "^$tree: FAILED " "$log_folder/test-$tree.log" | head -n 50 || true
    fi
    say "        $line"
    note "$line"
    return "$status"
}
