# ./dev format
[ $# = 0 ] || usage_error "unexpected argument: $1"
need_packages check || finish
step format "formatting the sources" "$root/scripts/format.sh" -i
finish
