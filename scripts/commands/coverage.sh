# ./dev coverage: what tests and fuzz corpora reach of the library, as HTML and as a line of summary.
need_packages base || finish
build coverage "everything, with counters" all
find "$root/build/coverage" -name '*.gcda' -delete
run_tests coverage || true
try_step coverage-replay "replaying the fuzz corpora" \
    ctest --test-dir "$root/build/coverage" -L fuzz -j "$jobs" --output-on-failure --no-tests=error || true
try_step coverage "adding up the counts" \
    "$root/scripts/coverage.py" "$root/build/coverage" --html "$root/build/coverage/report" || true
note "$(tail -n 1 "$log_folder/coverage.log")"
note "pages: build/coverage/report/index.html"
finish
