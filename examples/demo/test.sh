#!/usr/bin/env bash
# Runs the demo in short, with logs in a folder of its own.
set -euo pipefail
programs=$1
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
"$programs/demo" "$(dirname "$0")/../messages.txt" "$logs" 5
