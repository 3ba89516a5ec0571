# shellcheck shell=bash
# device/elf.sh - puts programs for the device into a folder; sourced.

# needed FILE - the names of the shared libraries that it is linked with.
needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }

# copy_libraries FILES ROOT FILE - copies the libraries that FILE needs, and those that
# they need, from the unpacked packages FILES to ROOT/lib. Those of this project are
# not there; they are copied by whoever knows them.
copy_libraries() {
    local name found
    for name in $(needed "$3"); do
        [[ ! -e $2/lib/$name ]] || continue
        found=$(find "$1/lib" "$1/usr/lib" -name "$name" -print -quit)
        [[ -n $found ]] || continue
        cp -L "$found" "$2/lib/$name"
        copy_libraries "$1" "$2" "$2/lib/$name"
    done
}

# copy_program FILES ROOT PROGRAM FOLDER - copies PROGRAM, stripped, to FOLDER in ROOT,
# with the libraries that it needs.
copy_program() {
    mkdir -p "$2/$4"
    arm-linux-gnueabihf-strip -o "$2/$4/$(basename "$3")" "$3"
    copy_libraries "$1" "$2" "$3"
}
