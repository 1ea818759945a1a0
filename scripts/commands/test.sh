# ./dev test [--target linux|win32|all] [-R REGEX] [--allow-missing-win32]
target=all
allow_missing=
filter=()
while [ $# -gt 0 ]; do
    case $1 in
        --target) target=$(value_of "$@"); shift ;;
        -R) filter=(-R "$(value_of "$@")"); shift ;;
        --allow-missing-win32) allow_missing=1 ;;
        *) usage_error "unexpected argument: $1" ;;
    esac
    shift
done
case $target in
    linux | win32) targets=$target ;;
    all) targets="linux win32" ;;
    *) usage_error "--target takes linux, win32 or all, not $target" ;;
esac

# Says so loudly when win32 cannot be had; that is a failure unless the caller allows it.
win32_missing() {
    say
    say "*** win32 CANNOT BE TESTED HERE: its compiler, ACE or Wine could not be had (see above) ***"
    note "win32: NOT TESTED"
    [ -z "$allow_missing" ] || failures=("${failures_before[@]}")
}

tested=
for tree in $targets; do
    failures_before=("${failures[@]}")
    if ! set_up "$tree" || ! set_up_tests "$tree"; then
        [ "$tree" = win32 ] || finish
        win32_missing
        continue
    fi
    targets_to_build=all
    if [ ${#filter[@]} != 0 ]; then
        configure "$tree"
        targets_to_build=$(matching_tests "$tree" "${filter[1]}")
        [ -n "$targets_to_build" ] || die "no test program of $tree matches ${filter[1]}"
    fi
    # shellcheck disable=SC2086  # a list of names
    build "$tree" "library, tool and tests" $targets_to_build
    run_tests "$tree" "${filter[@]}" || true
    tested+=" $tree"
done
if [ "$tested" = " linux win32" ] && [ ${#filter[@]} = 0 ]; then
    try_step compare "comparing what nq writes on both targets" "$root/scripts/compare_nq_targets.py" || true
fi
finish
