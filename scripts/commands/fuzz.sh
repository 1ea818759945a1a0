# ./dev fuzz TARGET [--seconds N]
seconds=60
target=
while [ $# -gt 0 ]; do
    case $1 in
        --seconds) seconds=$(value_of "$@"); shift ;;
        -*) usage_error "unexpected argument: $1" ;;
        *) target=${1%_fuzz} ;;
    esac
    shift
done
if [ ! -f "$root/int/fuzz/nqcore/${target}_fuzz.cpp" ]; then
    say "fuzz targets:"
    for file in "$root"/int/fuzz/nqcore/*_fuzz.cpp; do
        name=${file##*/}
        say "  ${name%_fuzz.cpp}"
    done
    exit 2
fi

need_packages base fuzz || finish
build fuzz "$target" "${target}_fuzz"
export ASAN_SYMBOLIZER_PATH=/usr/bin/llvm-symbolizer-16 UBSAN_OPTIONS=print_stacktrace=1
new=$root/build/fuzz/corpus/$target
artifacts=$root/build/fuzz/artifacts
mkdir -p "$new" "$artifacts"
say "[$(elapsed)] fuzzing $target for $seconds s; new inputs in build/fuzz/corpus/$target"
if ! "$root/build/fuzz/bin/${target}_fuzz" -max_total_time="$seconds" -print_final_stats=1 -timeout=10 \
    -artifact_prefix="$artifacts/$target-" "$new" "$root/int/fuzz/nqcore/corpus/$target" 8>&-; then
    failures+=("fuzzing $target; the input is in build/fuzz/artifacts (add it to the corpus)")
fi
finish
