# ./dev install --prefix DIR [--target linux|win32]
target=linux
prefix=
while [ $# -gt 0 ]; do
    case $1 in
        --prefix) prefix=${2:?--prefix needs a folder}; shift ;;
        --target) target=${2:?--target needs a name}; shift ;;
        *) usage_error "$1" ;;
    esac
    shift
done
[ -n "$prefix" ] || usage_error "no --prefix"
[[ $target = linux || $target = win32 ]] || usage_error "$target"
# Relative to where the caller stands.
[[ $prefix = /* ]] || prefix=$caller_folder/$prefix

set_up "$target" || finish
build "$target" "library and tool" nqcore nq
# Not stripped: stack traces read names from the debug information.
step "install-$target" "installing into $prefix" cmake --install "$root/build/$target" --prefix "$prefix"
note "installed for $target: $prefix"
finish
