#!/usr/bin/env bash
# Installs what is missing of the named groups from Debian's packages, and says what it does.
#
#   scripts/install-packages.sh [--tests] [--lint] [--fuzz] [--bench]
#
# Without a group: what the library, the examples and the tools are built with. --tests adds the test framework and
# what locales are made of, --lint the second compiler with its format and lint tools, --fuzz the fuzzer's run-time
# library, and --bench the libraries that the benchmarks run beside ours.
set -euo pipefail

wanted=(g++ cmake ninja-build pkg-config libpugixml-dev)
for group in "$@"; do
    case "$group" in
        --tests) wanted+=(libgtest-dev locales) ;;
        --lint) wanted+=(clang-14 clang-tidy-14 clang-format-14) ;;
        --fuzz) wanted+=(clang-14 libclang-rt-14-dev) ;;
        --bench)
            wanted+=(libbenchmark-dev libzmq3-dev libnng-dev libboost-dev libsystemd-dev dbus-daemon libspdlog-dev
                libgoogle-glog-dev libevent-dev libxml2-dev libicu-dev iceoryx libiceoryx-posh-dev
                libiceoryx-binding-c-dev libiceoryx-hoofs-dev)
            ;;
        *)
            echo "unknown group: $group (known: --tests --lint --fuzz --bench)" >&2
            exit 2
            ;;
    esac
done

if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "packages: this is not a Debian machine; going on with what is here."
    echo "packages: the names in Debian are: ${wanted[*]}"
    exit 0
fi

installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing=()
for package in "${wanted[@]}"; do
    installed "$package" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
    echo "packages: all there (${#wanted[@]} looked for)"
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "packages: missing: ${missing[*]}" >&2
        echo "packages: neither root nor sudo here; install them as root: apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

# A mirror that is out of reach for a moment is no reason to give up.
persistently() {
    local try
    for try in 1 2 3 4; do
        "$@" && return 0
        echo "packages: try $try failed: $*" >&2
        sleep $((try * 5))
    done
    return 1
}

apt() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Acquire::Retries=3 "$@" </dev/null
}

# The lists of a machine may be missing or too old to hold what is asked for: then fetch them first.
if ! apt -s install --no-install-recommends "${missing[@]}" >/dev/null 2>&1; then
    echo "packages: fetching Debian's lists of packages"
    persistently apt update
fi
echo "packages: installing ${missing[*]}"
if ! apt install -y --no-install-recommends "${missing[@]}" >/dev/null; then
    persistently apt update
    persistently apt install -y --no-install-recommends "${missing[@]}" >/dev/null
fi
echo "packages: done"
