#!/usr/bin/env bash
# Every text of the project stands on its own: it points to no paper that a reader does not have, and to no path of
# one machine.
set -euo pipefail
cd "$(dirname "$0")/../.."

words='(\bspe[c](ification)?s?\b|\bPart(s)? [0-9]+(\.[0-9]+)?\b|\bissue #?[0-9]+\b|left to the implemente[r])'
paths='(/wor[k]/|/far[m]/|/roo[t]/|[.]library/)'
found=0
look() {
    if grep -rnI --exclude-dir=.git --exclude=.git --exclude-dir=build --exclude-dir=.cache "$@" . | cut -c 1-160; then
        found=1
    fi
}
look -iE "$words"
look -E "$paths"
exit $found
