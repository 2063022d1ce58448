#!/usr/bin/env bash
# Starts the service with a registry of its own, waits for two beats, ends it, and looks into its log.
set -euo pipefail
programs=$1

folder=$(mktemp -d)
service=
trap '[ -z "$service" ] || kill "$service" 2>/dev/null || true; rm -rf "$folder"' EXIT
mkdir -p "$folder/corvalen/registry"
cp "$(dirname "$0")/../registry/example.reg" "$folder/corvalen/registry/"

export XDG_CONFIG_DIRS=$folder XDG_CONFIG_HOME=$folder/none
exec {output}< <(exec "$programs/service" "$folder/log")
service=$!
for expected in 'Say "hello" in C:\Temp' beat beat; do
    read -r -t 60 line <&"$output"
    [[ $line == *"$expected" ]]
done
kill -TERM "$service"
wait "$service"
service=
[ "$(grep -c 'SERVICE - beat' "$folder/log.rlg")" -ge 2 ]
tail -n 1 "$folder/log.rlg" | grep -q 'SERVICE - told to end'
