# ./dev docs [--check]: reference and guide as pages in build/docs/site; --check opens every page in a browser.
check=
while [ $# -gt 0 ]; do
    case $1 in
        --check) check=1 ;;
        *) usage_error "unexpected argument: $1" ;;
    esac
    shift
done
need_packages base docs || finish
[ -z "$check" ] || need_packages docs-check || finish
site=$root/build/docs/site
mkdir -p "$root/build/docs"
build linux "the tool's manual" manual
step docs-read "reading the headers" doxygen "$root/scripts/docs/Doxyfile"
step docs-write "writing the pages" "$root/scripts/docs/build.py" "$root/build/linux/manual/man/nq.1"
try_step docs-links "links and anchors" "$root/scripts/docs/check_links.py" "$site" || true
if [ -n "$check" ]; then
    try_step docs-pages "every page in a browser, on a phone and on a desk" \
        "$root/scripts/docs/check_pages.py" "$site" || true
    note "pictures: build/docs/pictures"
fi
note "open build/docs/site/index.html"
finish
