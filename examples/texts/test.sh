#!/usr/bin/env bash
# Looks at the forms of a text that all of them have, of one that only UCS-2 has, and of bytes that are no UTF-8.
set -euo pipefail
programs=$1

diff - <("$programs/texts" "é€" "aж" $'b\xFF' | tr -d '\377') <<'EOF'
é€
  GSM      051B65
  Latin-1  E980
  UCS-2    E900AC20
aж
  GSM      61 incomplete
  Latin-1  61 incomplete
  UCS-2    61003604
b
  GSM      62 malformed incomplete
  Latin-1  62 malformed incomplete
  UCS-2    6200 malformed incomplete
EOF
