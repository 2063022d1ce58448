#!/usr/bin/env bash
# Runs the tests of a built preset and closes with the line "N passed, N failed".
#
#   scripts/run-tests.sh PRESET [ctest options...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift

# Some tests want a locale with a decimal comma. It is made here, for them alone.
locales=$PWD/build/locales
if [ ! -d "$locales/de_DE.UTF-8" ] && [ -e /usr/share/i18n/locales/de_DE ]; then
    mkdir -p "$locales"
    localedef --quiet -i de_DE -f UTF-8 "$locales/de_DE.UTF-8" || echo "no locale de_DE.UTF-8 could be made"
fi
[ ! -d "$locales/de_DE.UTF-8" ] || export LOCPATH=$locales
export LSAN_OPTIONS=suppressions=$PWD/scripts/leaks-of-libc.txt:print_suppressions=0

report=$PWD/build/$preset/test-report.xml
rm -f "$report"
status=0
ctest --preset "$preset" -j2 --timeout 300 --repeat until-pass:1 --output-junit "$report" "$@" || status=$?

count() {
    sed -nE "s/.*\b$1=\"([0-9]+)\".*/\1/p" "$report" | head -n 1
}
if [ ! -s "$report" ]; then
    echo "0 passed, 1 failed"
    exit 1
fi
total=$(count tests)
failed=$(count failures)
skipped=$(($(count skipped) + $(count disabled)))
echo
[ "$skipped" -eq 0 ] || echo "left out on this machine: $skipped"
echo "$((total - failed - skipped)) passed, $failed failed"
[ "$total" -gt 0 ] && [ "$status" -eq 0 ]
