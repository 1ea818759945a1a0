# ./dev package [--target linux|win32|all]: Debian packages and the win32 archive, below build/package.
target=all
while [ $# -gt 0 ]; do
    case $1 in
        --target) target=$(value_of "$@"); shift ;;
        *) usage_error "unexpected argument: $1" ;;
    esac
    shift
done
[[ $target = linux || $target = win32 || $target = all ]] || usage_error "--target takes linux, win32 or all, not $target"
. "$root/scripts/lib/package.sh"

if [[ $target != win32 ]]; then
    package_linux || finish
fi
if [[ $target != linux ]]; then
    package_win32 || finish
fi
finish
