#!/usr/bin/env bash
# The library exports what the checked-in list says, no more and no less.
#
#   exported-symbols.sh LIBRARY [--update]
set -euo pipefail
library=$1
list=$(dirname "$0")/exported-symbols.txt

# Templates of the standard library are visible in every library that uses them; they are not ours.
exported() {
    nm -D --defined-only --demangle "$library" | cut -c 20- |
        grep -vE '(^|for |variable )(std|__gnu_cxx|__cxxabiv1)::|^[a-z].* std::' | LC_ALL=C sort -u
}

if [ "${2:-}" = --update ]; then
    exported >"$list"
    exit
fi
if ! diff -u "$list" <(exported); then
    echo "lines with - are missing from the library, lines with + are not in the list"
    exit 1
fi
