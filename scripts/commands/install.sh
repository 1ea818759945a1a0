# ./dev install --prefix DIR [--target linux|win32]
target=linux
prefix=
while [ $# -gt 0 ]; do
    case $1 in
        --prefix) prefix=$(value_of "$@"); shift ;;
        --target) target=$(value_of "$@"); shift ;;
        *) usage_error "unexpected argument: $1" ;;
    esac
    shift
done
[ -n "$prefix" ] || usage_error "--prefix DIR is missing"
[[ $target = linux || $target = win32 ]] || usage_error "--target takes linux or win32, not $target"
# Relative to where the caller stands.
[[ $prefix = /* ]] || prefix=$caller_folder/$prefix

set_up "$target" || finish
build "$target" "what is installed" installed
# Not stripped: stack traces read names from the debug information.
step "install-$target" "installing into $prefix" cmake --install "$root/build/$target" --prefix "$prefix"
note "installed for $target: $prefix"
finish
