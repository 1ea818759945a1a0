#!/bin/bash
# format.sh -i                   formats all sources in place
# format.sh --dry-run -Werror    names what is not formatted; status 1 when there is any
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
find pub int examples -name '*.h' -print0 -o -name '*.cpp' -print0 | sort -z | xargs -0 -n 20 -P 2 clang-format-16 "$@"
