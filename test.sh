#!/usr/bin/env bash
# Builds everything with its tests and runs them. Needs nothing but a Debian machine: what is missing is installed.
set -euo pipefail
cd "$(dirname "$0")"

scripts/install-packages.sh --tests
cmake --preset dev
cmake --build --preset dev
scripts/run-tests.sh dev
