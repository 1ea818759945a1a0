#!/bin/bash
# bench_scrub.sh [NQ]: `nq scrub` against a perl that does the same, on 1 MiB (programs started and all) and on 64 MiB
# of an ASCII application log, and with two jobs against itself; prints times and ratios. NQ: the program (default: the
# linux tree's). The budget against perl is 20.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
nq=${1:-build/linux/bin/nq}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# A fixed seed: everybody measures the same text. About 100 bytes a line, one card number in 200 lines.
perl -e '
    srand 7;
    my @levels = qw(INFO INFO INFO DEBUG WARN ERROR);
    my @tasks = ("request served", "cache refreshed", "session opened", "session closed", "retrying upstream");
    my $ms = 0;
    for (my $size = 0; $size < 1 << 20;) {
        $ms += int rand 400;
        my $card = int(rand 200) == 0 ? " card=4111111111111111" : "";
        my $line = sprintf("2026-11-%02d %02d:%02d:%02d.%03d %-5s [worker-%d] %s id=%08x took=%dus user=%d%s from 10.0.%d.%d\n",
            1 + $ms / 86400000 % 28, $ms / 3600000 % 24, $ms / 60000 % 60, $ms / 1000 % 60, $ms % 1000,
            $levels[rand @levels], rand 16, $tasks[rand @tasks], rand 2**32, rand 90000, rand 1e6, $card,
            rand 256, rand 256);
        print $line;
        $size += length $line;
    }' > "$folder/1.log"
for _ in {1..64}; do cat "$folder/1.log"; done > "$folder/64.log"

ours() { "$nq" scrub --quiet "$1" > "$2"; }
ours_with_two_jobs() { "$nq" scrub --quiet --jobs 2 "$1" > "$2"; }
perls() { perl scripts/bench_scrub.pl < "$1" > "$2"; }
microseconds() {
    local begin=${EPOCHREALTIME/./}
    "$@"
    echo $((${EPOCHREALTIME/./} - begin))
}

ours "$folder/1.log" "$folder/ours"
perls "$folder/1.log" "$folder/perls"
cmp "$folder/ours" "$folder/perls" || { echo "the two do not do the same"; exit 1; }

# compare SIZE RUNS OURS THEIRS NAME: two functions on SIZE MiB. Interleaved, the median of each: a slow moment of the
# machine falls on both.
compare() {
    local size=$1 runs=$2 run
    : > "$folder/t.ours"
    : > "$folder/t.theirs"
    for ((run = 0; run < runs; ++run)); do
        microseconds "$3" "$folder/$size.log" /dev/null >> "$folder/t.ours"
        microseconds "$4" "$folder/$size.log" /dev/null >> "$folder/t.theirs"
    done
    awk -v size="$size" -v names="$5" -v a="$(median ours)" -v b="$(median theirs)" 'BEGIN {
        split(names, name, ",")
        printf "%2d MiB: %s %.2f ms (%.0f MiB/s), %s %.2f ms (%.0f MiB/s), ratio %.2f\n",
            size, name[1], a / 1e3, size * 1e6 / a, name[2], b / 1e3, size * 1e6 / b, b / a }'
}
median() { sort -n "$folder/t.$1" | awk '{ time[NR] = $1 } END { print time[int((NR + 1) / 2)] }'; }

compare 1 21 ours perls "nq,perl"
compare 64 5 ours perls "nq,perl"
compare 64 15 ours_with_two_jobs ours "nq with 2 jobs,with 1"
