#!/bin/bash
# tests/device/test.sh [GROUP]... - builds the virtual device with a disk of tests, and
# runs device.py, which has the groups, beside the demo site of this machine.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/../.."
# shellcheck source=scripts/setup.sh
. scripts/setup.sh
# shellcheck source=device/elf.sh
. device/elf.sh

folder=$PWD/build/device
image=$folder/test-image
programs=(tests/{orv,tiny,fault,tool}_tests tools/orv-{render,textdb,check,preview})

# make_disk - the tests, what they need, and a way in for them.
make_disk() {
    local disk=$folder/test-disk name
    rm -rf "$disk"
    cp -r tests/device/files "$disk"
    # A place for the build, whose name the programs know.
    mkdir -p "$disk/source${folder#"$PWD"}/programs" "$disk"/build/{tests,tools,lib} \
        "$disk/source"/{tests,fuzz}
    cp -r docs examples "$disk/source/"
    cp -r tests/pages "$disk/source/tests/"
    cp fuzz/*.dict "$disk/source/fuzz/"
    cp -d "$folder"/programs/*.so* "$disk/build/"
    cp -d "$folder"/programs/tests/*.so* "$disk/build/tests/"
    for name in "${programs[@]}"; do
        copy_program "$folder/packages/files" "$disk/build" "$folder/programs/$name" "$(dirname "$name")"
    done
    mksquashfs "$disk" "$image/test.squashfs" -quiet -no-progress -all-root -noappend >/dev/null
}

alone need python3:python3 :lighttpd
DEVICE_TARGETS="${programs[*]##*/}" ./device.sh --build
rm -rf "$image"
cp -r "$folder/image" "$image"
make_disk
export SITE_FIGURES=$folder/figures
export TZ=UTC PYTHONPATH=tests/web PYTHONDONTWRITEBYTECODE=1 # the device has no other zone
exec scripts/serve.sh build/demo 0 tests/device/device.py "$image" "$@"
