#!/usr/bin/env bash
# publish.sh [--quick] [--to FOLDER] [BUILD]: runs the benchmarks that are built in BUILD (build/release), and
# writes benchmarks.md and images/ from what they print into FOLDER (docs). On a machine that does nothing
# else; --quick only shows that the way from the programs to the page works.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
build=$root/build/release
to=$root/docs
quick=()
while [ $# -gt 0 ]; do
    case $1 in
        --quick) quick=(--quick) ;;
        --to) to=${2:?a folder}; shift ;;
        -*) echo "usage: $0 [--quick] [--to FOLDER] [BUILD]" >&2; exit 2 ;;
        *) build=$1 ;;
    esac
    shift
done

results=$build/bench/results
rm -rf "$results"
mkdir -p "$results" "$to"

# One after the other: they would disturb each other. Runs in the results, where a program may leave a file.
run() {
    local program=$1
    shift
    if [ ! -x "$build/bench/$program" ]; then
        echo "publish: $program is not built, left out" >&2
        return
    fi
    echo "publish: $program" >&2
    (cd "$results" && "$build/bench/$program" "$@" > "$program.part")
    mv "$results/$program.part" "$results/$program.txt"
}

run rpc "${quick[@]}" --csv "$results/rpc.csv"
for program in mailbox pool log lock text byte_queues delete_tree xml; do
    run "$program"
done

python3 "$here/page.py" "$results" "$to"
if [ -f "$results/rpc.csv" ]; then
    python3 "$here/draw.py" "$results/rpc.csv" "$to/images"
fi
