# ./dev bench [FAMILY...]
need_packages base bench || finish
families=("$@")
if [ ${#families[@]} = 0 ]; then
    for file in "$root"/int/bench/nqcore/*_bench.cpp; do
        [ -e "$file" ] || die "no benchmarks"
        name=${file##*/}
        families+=("${name%_bench.cpp}")
    done
fi
for family in "${families[@]}"; do
    [ -f "$root/int/bench/nqcore/${family}_bench.cpp" ] || usage_error "$family (no such benchmark)"
done

build bench "benchmarks and peers" "${families[@]/%/_bench}"
results=$root/build/bench/results
mkdir -p "$results"
for family in "${families[@]}"; do
    # Interleaved repetitions: a slow moment of the machine falls on ours and on the peers alike.
    step "bench-$family" "measuring $family" "$root/build/bench/bin/${family}_bench" \
        --benchmark_enable_random_interleaving=true --benchmark_repetitions=7 --benchmark_min_time=0.05 \
        --benchmark_out="$results/$family.json" --benchmark_out_format=json
done
python3 "$root/scripts/bench_report.py" "$root/build/bench/report.html" "${families[@]/%/.json}" ||
    die "not every budget is measured"
note "charts: build/bench/report.html"
finish
