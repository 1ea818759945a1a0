# ./dev test [--target linux|win32|all] [-R REGEX] [--allow-missing-win32]
target=all
allow_missing=
filter=()
while [ $# -gt 0 ]; do
    case $1 in
        --target) target=${2:?--target needs a name}; shift ;;
        -R) filter=(-R "${2:?-R needs an expression}"); shift ;;
        --allow-missing-win32) allow_missing=1 ;;
        *) usage_error "$1" ;;
    esac
    shift
done
case $target in
    linux | win32) targets=$target ;;
    all) targets="linux win32" ;;
    *) usage_error "$target" ;;
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
    if ! set_up "$tree"; then
        [ "$tree" = win32 ] || finish
        win32_missing
        continue
    fi
    build "$tree" "library, tool and tests" all
    run_tests "$tree" "${filter[@]}" || true
    tested+=" $tree"
done
if [ "$tested" = " linux win32" ] && [ ${#filter[@]} = 0 ]; then
    try_step compare "comparing what nq writes on both targets" "$root/scripts/compare_nq_targets.py" || true
fi
finish
