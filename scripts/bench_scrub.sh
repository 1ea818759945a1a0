#!/bin/bash
# bench_scrub.sh [NQ]: `nq scrub` against a perl that does the same, on 1 MiB (programs started and all) and on 64 MiB of
# an ASCII application log; prints times and ratios. NQ: the program (default: the linux tree's). The budget is 20.
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
perls() { perl scripts/bench_scrub.pl < "$1" > "$2"; }
microseconds() {
    local begin=${EPOCHREALTIME/./}
    "$@"
    echo $((${EPOCHREALTIME/./} - begin))
}

ours "$folder/1.log" "$folder/ours"
perls "$folder/1.log" "$folder/perls"
cmp "$folder/ours" "$folder/perls" || { echo "the two do not do the same"; exit 1; }

# Interleaved, the median of each: a slow moment of the machine falls on both.
for size in 1 64; do
    runs=$((size == 1 ? 21 : 5))
    : > "$folder/t.ours"
    : > "$folder/t.perls"
    for ((run = 0; run < runs; ++run)); do
        microseconds ours "$folder/$size.log" /dev/null >> "$folder/t.ours"
        microseconds perls "$folder/$size.log" /dev/null >> "$folder/t.perls"
    done
    a=$(sort -n "$folder/t.ours" | sed -n "$((runs / 2 + 1))p")
    b=$(sort -n "$folder/t.perls" | sed -n "$((runs / 2 + 1))p")
    awk -v size="$size" -v a="$a" -v b="$b" 'BEGIN {
        printf "%2d MiB: nq %.2f ms (%.0f MiB/s), perl %.1f ms (%.0f MiB/s), ratio %.1f\n",
            size, a / 1e3, size * 1e6 / a, b / 1e3, size * 1e6 / b, b / a }'
done
