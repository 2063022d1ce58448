#!/usr/bin/env bash
# Builds the demo and runs it: a message centre and three clients exchange text messages through one channel, and one
# client is killed on the way. Needs nothing but a Debian machine: what is missing is installed.
set -euo pipefail
cd "$(dirname "$0")"

scripts/install-packages.sh
cmake --preset demo
cmake --build --preset demo
echo
build/demo/examples/demo examples/messages.txt build/demo/logs "$@"
