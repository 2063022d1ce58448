#!/usr/bin/env bash
# Our sources look as .clang-format says. With --fix: makes them look so.
set -euo pipefail
cd "$(dirname "$0")/../.."

if ! command -v clang-format-14 >/dev/null; then
    echo "clang-format-14 is not installed"
    exit 77
fi
mode=(--dry-run -Werror)
[ "${1:-}" = --fix ] && mode=(-i)
find bench examples fuzz include src tests tools \( -name '*.cpp' -o -name '*.h' \) -print0 |
    xargs -0 -r clang-format-14 "${mode[@]}"
