#!/usr/bin/env bash
# Runs the pair on a channel of its own and looks at the answer.
set -euo pipefail
programs=$1
channel=echo_test_$$

exec {output}< <(exec "$programs/echo-server" "$channel")
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT
read -r -t 60 line <&"$output"
[ "$line" = ready ]
answer=$("$programs/echo-client" "$channel" "a text with blanks")
[ "$answer" = "a text with blanks" ]
wait "$server"
trap - EXIT
