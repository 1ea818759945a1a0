# ./dev demo [--target linux|win32]
target=linux
while [ $# -gt 0 ]; do
    case $1 in
        --target) target=$(value_of "$@"); shift ;;
        *) usage_error "unexpected argument: $1" ;;
    esac
    shift
done
[[ $target = linux || $target = win32 ]] || usage_error "--target takes linux or win32, not $target"

set_up "$target" || finish
build "$target" "library and tool" nq
output=$root/build/demo/$target
rm -rf "$output"
mkdir -p "$output"

# To Windows programs / is drive Z:.
drive=
[ "$target" = linux ] || drive=Z:

# scrub FILE NAME: the cleaned text goes to NAME.clean, the report to NAME.report.
scrub() { run_program "$target" nq scrub "$drive$1" > "$output/$2.clean" 2> "$output/$2.report"; }

for input in "$root"/examples/logs/*.log /var/log/dpkg.log; do
    if [ ! -r "$input" ]; then
        say "no $input on this machine"
        continue
    fi
    name=$(basename "$input" .log)
    step "demo-$name" "nq scrub ${input#"$root"/}" scrub "$input" "$name"
    python3 "$root/scripts/show_changes.py" "$input" "$output/$name.clean"
    sed 's/^/    /' "$output/$name.report" | tr -d '\r'
done
note "cleaned logs and reports: build/demo/$target"
[ "$target" = win32 ] || note "the tool: build/linux/bin/nq"
finish
