# shellcheck shell=bash
# scripts/setup.sh - sourced by the scripts that build: the Debian packages that they need,
# and what lets several of them run at once, wherever the sources are.

# Ninja ends a path at a quote when it reads what a source depends on, and would build all
# of it each time.
generator=Ninja
builder=ninja:ninja-build
if [[ $PWD == *\'* ]]; then
    generator='Unix Makefiles'
    builder=make:make
    CMAKE_BUILD_PARALLEL_LEVEL=$(nproc)
    export CMAKE_BUILD_PARALLEL_LEVEL
fi

# Sources are compiled two dozen at a time: half of the time. Those of the libraries are not, where
# they may be shipped.
# shellcheck disable=SC2034
together=(-DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=24)

# alone COMMAND [ARGUMENT]... - runs it while no other script of this source tree runs
# one in this way: two would build in one folder, or install at once.
alone() {
    mkdir -p build
    (
        flock 9
        "$@" 9>&-
    ) 9>build/lock
}

# choose WORDS [ARGUMENT]... - for a script whose arguments are words of that list, or --help:
# sets wanted to those that are named, to all of them where none is. For --help it calls the
# script's usage, as for anything else, and ends it.
choose() {
    local argument
    wanted=()
    for argument in "${@:2}"; do
        if [[ $argument == [a-z]* && $argument != *' '* && " $1 " == *" $argument "* ]]; then
            wanted+=("$argument")
        elif [[ $argument == --help ]]; then
            usage
            exit
        else
            usage >&2
            exit 2
        fi
    done
    [[ ${#wanted[@]} -gt 0 ]] || read -ra wanted <<<"$1"
}

# need COMMAND-OR-HEADER:PACKAGE...
# Installs, with apt-get, the packages whose command or header is missing. Where
# this user may not install, names them and ends the script. A header is a name
# that ends in .h or .hpp, looked up in the compiler's folder; a command is looked up in
# PATH; where the first part is empty, the package itself must be installed.
# Another installation that is under way is waited for. The web servers' services are
# left out: the scripts start them themselves, and an installed one would take port 80
# at once.
need() {
    local entry what service missing=() sudo=() without=()
    for entry in "$@"; do
        what=${entry%%:*}
        case $what in
        '') dpkg -s "${entry#*:}" >/dev/null 2>&1 ;;
        *.h | *.hpp) [[ -e /usr/include/$what ]] ;;
        *) command -v "$what" >/dev/null ;;
        esac || missing+=("${entry#*:}")
    done
    [[ ${#missing[@]} -eq 0 ]] && return
    [[ $EUID -eq 0 ]] || sudo=(sudo -n)
    if ! command -v apt-get >/dev/null || ! "${sudo[@]}" true 2>/dev/null; then
        echo "Missing packages, please install: ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}" >&2
    for service in lighttpd nginx fcgiwrap; do
        without+=(-o DPkg::Options::=--path-exclude="/lib/systemd/system/$service.*"
            -o DPkg::Options::=--path-exclude="/etc/init.d/$service")
    done
    "${sudo[@]}" apt-get update -q >&2
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends \
        -o DPkg::Lock::Timeout=600 \
        "${without[@]}" "${missing[@]}" >&2
}
