#!/bin/bash
# device.sh - a virtual ARM device with the library, zarn and the demo site: builds
# it from this source and Debian's packages, and starts it.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")"
# shellcheck source=scripts/setup.sh
. scripts/setup.sh
# shellcheck source=device/machine.sh
. device/machine.sh

folder=$PWD/build/device
image=$folder/image

usage() {
    cat <<'END'
Usage: ./device.sh [OPTION]
Builds an ARM device in build/device, starts it, shows that it answers, and ends it.

  --serve [PORT]  leave it running, with its site on 127.0.0.1, PORT (default: 8081),
                  until Ctrl-C
  --console       leave it running, with its shell here; poweroff ends it
  --build         build it only
  --cost          print what a page costs there, made by the library and by other means
  --help          print this text

The device's settings are the factory's at each start. Its memory (64 MB, at least 60)
and kernel options (none) are set with DEVICE_MEMORY and DEVICE_OPTIONS:
DEVICE_OPTIONS=tooltip=2 ./device.sh --serve
END
}

fail() {
    echo "device.sh: $1" >&2
    exit 2
}

say() { printf '%4d s  %s\n' "$SECONDS" "$1" >&2; }

# quietly LOG COMMAND... - shows what it printed only when it fails.
quietly() {
    local log=$folder/$1.log
    "${@:2}" >"$log" 2>&1 </dev/null || {
        tail -n 30 "$log" >&2
        fail "the device could not be built; all is in build/device/$1.log"
    }
}

build_programs() {
    local files=$folder/packages/files
    local machine=lib/arm-linux-gnueabihf
    cmake -S . -B "$folder/programs" -G "$generator" --toolchain "$PWD/cmake/arm.cmake" \
        -DCMAKE_SKIP_RPATH=ON -DCMAKE_FIND_ROOT_PATH="$files" \
        -DCMAKE_EXE_LINKER_FLAGS="-L$files/usr/$machine -Wl,-rpath-link,$files/$machine:$files/usr/$machine" \
        -DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST
    cmake --build "$folder/programs" --target "$@"
}

build() {
    mkdir -p "$folder"
    need cmake:cmake "$builder" bison:bison g++:g++ arm-linux-gnueabihf-g++:g++-arm-linux-gnueabihf \
        qemu-system-arm:qemu-system-arm qemu-arm:qemu-user mksquashfs:squashfs-tools cpio:cpio \
        :e2fsprogs curl:curl
    say "the device's Debian packages"
    device/fetch.sh "$folder/packages"
    say "the library and the programs for it"
    quietly programs build_programs orvinterpreter zarn orv-render "$@"
    say "the site's texts and settings"
    quietly site ./demo.sh # builds what makes them
    quietly data scripts/site-data.sh build/demo "$folder/site-data"
    say "its disks"
    quietly image device/image.sh "$folder/packages" "$folder/programs" "$folder/site-data" \
        "$image"
}

# start PORT
start() {
    say "starting it"
    start_machine "$image" "$folder/console.log" "$memory" "${DEVICE_OPTIONS-}" \
        ",hostfwd=tcp:127.0.0.1:$1-:80"
    trap kill_machine EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    await_page "http://127.0.0.1:$1/" 120 || {
        cat "$folder"/console.log* >&2
        fail "the device does not answer"
    }
    say "it answers"
}

# show_pages ADDRESS - signs in as the first visitor, who chooses the password; prints the
# status and size of each page.
show_pages() {
    local page cookies=$folder/cookies
    rm -f "$cookies"
    curl -s -m 60 -o /dev/null -c "$cookies" -H "Origin: $1" \
        -d 'password=birch-heron-7&repeat=birch-heron-7' "$1/login.htm"
    for page in examples/site/*.htm; do
        curl -s -m 60 -o /dev/null -b "$cookies" -w '%{http_code} %{size_download} bytes  %{url}\n' \
            "$1/$(basename "$page")"
    done
}

console() {
    local arguments
    mapfile -t arguments < <(machine_arguments "$image" "$memory" \
        "${DEVICE_OPTIONS-}" "")
    exec qemu-system-arm "${arguments[@]}" -serial mon:stdio
}

port=8081
case ${1-} in
'' | --console | --build | --cost) [[ $# -le 1 ]] || fail "$1 stands alone, see --help" ;;
--serve)
    [[ $# -le 2 ]] || fail "too many arguments, see --help"
    port=${2:-$port}
    [[ $port =~ ^[1-9][0-9]{0,4}$ && $port -le 65535 ]] || fail "'$port' is no port"
    ! (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null || fail "port $port is taken"
    ;;
--help)
    usage
    exit
    ;;
*) fail "wrong option '$1', see --help" ;;
esac
memory=${DEVICE_MEMORY:-64}
[[ $memory =~ ^[1-9][0-9]{0,4}$ && $memory -ge 60 ]] ||
    fail "DEVICE_MEMORY=$memory: Debian's kernel and a sign-in need 60 MB (docs/device.md)"

# shellcheck disable=SC2086 # targets that tests want as well
build ${DEVICE_TARGETS-}
case ${1-} in
'')
    port=$(free_port)
    start "$port"
    show_pages "http://127.0.0.1:$port"
    ;;
--serve)
    start "$port"
    echo "The device's site is at http://127.0.0.1:$port/ - Ctrl-C ends it."
    wait "$machine_pid"
    ;;
--console) console ;;
--cost)
    need msgfmt:gettext python3:python3
    say "measuring"
    device/cost.sh "$folder"
    ;;
esac
