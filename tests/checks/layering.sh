#!/usr/bin/env bash
# Who may include whom. Each finding is a line of its own; none means that the house stands as drawn in
# docs/architecture.md.
set -euo pipefail
cd "$(dirname "$0")/../.."

# The rooms that a room may call, beside itself, the ground floor and the log.
declare -A below=(
    [platform]=""
    [diagnostics]="platform text threading"
    [threading]="platform diagnostics"
    [text]="platform diagnostics"
    [rpc]="platform diagnostics"
    [collection]="platform diagnostics threading"
    [io]="platform diagnostics text"
    [win32]="platform diagnostics"
    [xml]="platform diagnostics text"
    [system]="platform diagnostics threading text rpc collection io win32 xml"
)

findings=0
finding() {
    echo "$1"
    findings=$((findings + 1))
}

# The includes of the files of a folder, as "file:line:<header>" or "file:line:"header"".
includes() {
    grep -rnoE --include='*.h' --include='*.cpp' '^[[:space:]]*#[[:space:]]*include[[:space:]]+[<"][^>"]+[>"]' "$@" |
        sed -E 's/#[[:space:]]*include[[:space:]]+//; s/:[[:space:]]+/:/' || true
}

# A standard header of C++ has no suffix and no folder.
is_standard() {
    # The instructions of the processor are the compiler's, not the system's.
    [[ $1 =~ ^'<'[a-z_]+'>'$ || $1 == '<immintrin.h>' ]]
}

may_call() {
    [ "$1" = "$2" ] || [[ " ${below[$1]} " == *" $2 "* ]]
}

check_room() {
    local room=$1 place=$2 line header name other
    while IFS= read -r line; do
        header=${line##*:}
        if [ "${header:0:1}" = '<' ]; then
            is_standard "$header" || [ "$place" = src/platform ] ||
                finding "$line: only src/platform may include a system's or another library's header"
            continue
        fi
        name=${header//\"/}
        if [ "$place" != "src/$room" ] && [[ $name != corvalen/* ]]; then
            finding "$line: an installed header includes installed headers only"
        fi
        name=${name#corvalen/}
        [[ $name == */* ]] || continue
        other=${name%%/*}
        may_call "$room" "$other" || finding "$line: $room does not call $other"
    done < <(includes "$place")
}

for room in "${!below[@]}"; do
    for place in "src/$room" "include/corvalen/$room"; do
        [ -d "$place" ] && check_room "$room" "$place"
    done
done
for place in src/*/ include/corvalen/*/; do
    room=$(basename "$place")
    [ -n "${below[$room]+there}" ] || finding "$place: a room that is not drawn in $0"
done

while IFS= read -r header; do
    grep -qF "#include \"$header\"" include/corvalen/corvalen.h ||
        finding "include/corvalen/corvalen.h does not include $header"
done < <(cd include && find corvalen/*/ -name '*.h')

# Examples are what a host can write: they know the installed headers and their own.
while IFS= read -r line; do
    file=${line%%:*}
    header=${line##*:}
    header=${header//\"/}
    [[ $header == '<'* || $header == corvalen/* ]] && continue
    [ -e "$(dirname "$file")/$header" ] || [ -e "$(cut -d/ -f1-2 <<<"$file")/$header" ] ||
        finding "$line: an example includes installed headers only"
done < <(includes examples)

# What the system or another library offers is reached through the ground floor.
outside=$(grep -rnE --include='*.h' --include='*.cpp' --exclude-dir=platform \
    '\b(pthread_[a-z_]+|iconv(_open|_close)?|syscall|futex|mmap|pugi)\b *(\(|::)|std::(thread|jthread|mutex|recursive_mutex|timed_mutex|recursive_timed_mutex|shared_mutex|condition_variable|counting_semaphore|this_thread)\b' \
    src include | grep -vE '^[^:]+:[0-9]+: *//' || true)
[ -z "$outside" ] || finding "$outside
above: threads, locks and system calls belong to src/platform"

[ "$findings" -eq 0 ]
