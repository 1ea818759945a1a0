#!/bin/bash
# check_manual.sh: what nq_manual wrote into build/linux/manual is a manual page without warnings that has every command, and
# completions that the shells can read and that answer.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
manual=$root/build/linux/manual
nq=$root/build/linux/bin/nq
fail() { printf '%s\n' "$*" >&2; exit 1; }

warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=100 man --warnings -E UTF-8 -l -Tutf8 -Z "$manual/man/nq.1" 2>&1 > /dev/null)
[ -z "$warnings" ] || fail "the manual page: $warnings"
page=$(MANWIDTH=100 man -l "$manual/man/nq.1" | col -b)

commands=$("$nq" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z0-9-]*\) .*/\1/p')
[ "$(wc -w <<< "$commands")" -gt 5 ] || fail "nq --help lists no commands"
for name in $commands; do
    grep -q "^ *nq $name" <<< "$page" || fail "the manual page does not have nq $name"
done

# complete WORD...: what bash offers for the last of the words.
complete() {
    bash -c 'source "$0"; compopt() { :; }; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _nq; echo "${COMPREPLY[*]}"' \
        "$manual/bash/nq" "$@"
}
expect() {
    local wanted=$1
    shift
    [ "$(complete "$@")" = "$wanted" ] || fail "bash offers '$(complete "$@")' for: $*"
}
# shellcheck disable=SC2086  # one word for each
for name in $commands; do
    expect "$name" nq "$name"
done
expect "check" nq utf8 c
expect "utc" nq time --from u
expect "--base64 --base32" nq encode --ba
expect "--json" nq --brief error list --j

zsh -n "$manual/zsh/_nq"
fish -n "$manual/fish/nq.fish"
offered=$(fish -c "source '$manual/fish/nq.fish'; complete -C 'nq utf8 c'" | cut -f1)
[ "$offered" = check ] || fail "fish offers '$offered' for: nq utf8 c"
echo "$(wc -w <<< "$commands") commands in the manual page and the completions"
