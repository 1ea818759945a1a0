# ./dev bench [--target linux|win32] [FAMILY...]: on linux the families against their peers, on win32 the kernels
# against their scalar rows.
target=linux
families=()
while [ $# -gt 0 ]; do
    case $1 in
        --target) target=$(value_of "$@"); shift ;;
        -*) usage_error "unexpected argument: $1" ;;
        *) families+=("$1") ;;
    esac
    shift
done
case $target in
    linux) tree=bench pattern='*_bench.cpp' what="benchmarks and peers" report=() ;;
    win32) tree=bench-win32 pattern='*_kernels_internal_bench.cpp' what="benchmarks of kernels" report=(--kernels) ;;
    *) usage_error "--target takes linux or win32, not $target" ;;
esac

known=" "
for file in "$root"/int/bench/nqcore/$pattern; do
    [ -e "$file" ] || die "no benchmarks"
    name=${file##*/}
    known+="${name%_bench.cpp} "
done
for family in "${families[@]}"; do
    [[ $known = *" $family "* ]] || usage_error "no benchmark of $target is called $family"
done
# shellcheck disable=SC2206  # a list of words
[ ${#families[@]} -gt 0 ] || families=($known)

if [ "$target" = linux ]; then
    need_packages base bench || finish
else
    set_up win32 || finish
    set_up_win32_benchmark || finish
fi
build "$tree" "$what" "${families[@]/%/_bench}"
mkdir -p "$root/build/$tree/results"
for family in "${families[@]}"; do
    # Interleaved repetitions: a slow moment of the machine falls on ours and on the peers alike. The path of the
    # results is a relative one, which Windows programs take too.
    step "$tree-$family" "measuring $family" run_program "$tree" "${family}_bench" \
        --benchmark_enable_random_interleaving=true --benchmark_repetitions=7 --benchmark_min_time=0.05 \
        --benchmark_out="build/$tree/results/$family.json" --benchmark_out_format=json
done
python3 "$root/scripts/bench_report.py" "${report[@]}" "$root/build/$tree/report.html" "${families[@]/%/.json}" ||
    die "the report lacks what is named above"
note "charts: build/$tree/report.html"
finish
