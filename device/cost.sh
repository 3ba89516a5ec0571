#!/bin/bash
# device/cost.sh FOLDER - starts the device that device.sh has built in FOLDER, and
# prints what the overview page costs there: by orv-render, Lua and the shell, which make the
# same bytes, and by zarn, which checks who asks for it besides. Fails when the bytes differ.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=device/machine.sh
. device/machine.sh
# shellcheck source=device/elf.sh
. device/elf.sh
folder=$1
packages=$folder/packages/files
disk=$folder/cost-disk
image=$folder/cost-image

# add_way NAME PROGRAM [FILE]... - what a way needs, in a folder of its own.
add_way() {
    mkdir -p "$disk/$1"/{bin,lib,page}
    copy_program "$packages" "$disk/$1" "$2" bin
    [[ $# -lt 3 ]] || cp -r "${@:3}" "$disk/$1/page/"
}

# The texts as Lua has them and as sed does, which are much the same to write.
make_texts() {
    msgfmt -o "$folder/en.mo" examples/site/texts/en.po
    python3 - "$folder/en.mo" "$disk" <<'END'
import gettext, json, re, sys

with open(sys.argv[1], "rb") as file:
    texts = sorted((key, text) for key, text in gettext.GNUTranslations(file)._catalog.items() if key)
with open(sys.argv[2] + "/lua/page/texts.lua", "w") as file:
    print("return {", *(f"[{json.dumps(key)}]={json.dumps(text, ensure_ascii=False)},"
                        for key, text in texts), "}", sep="\n", file=file)
with open(sys.argv[2] + "/shell/page/texts.sed", "w") as file:
    print("/{?/!b", file=file)
    for key, text in texts:
        text = re.sub(r"[\\/&]", r"\\\g<0>", text).replace("\n", "\\n")
        print(f"s/{{?{key}?}}/{text}/g", file=file)
END
}

make_disk() {
    local site=examples/site machine=arm-linux-gnueabihf
    rm -rf "$disk" "$image"
    add_way zarn "$folder/programs/examples/zarn/zarn" $site/*.{htm,frm,sql,svg} \
        "$folder/site-data/root/etc/htmltext_en.db"
    add_way orv "$folder/programs/tools/orv-render" \
        $site/{overview.htm,header.frm,menu.frm,footer.frm,errorbox.frm,icon.svg} \
        "$folder/site-data/root/etc/htmltext_en.db"
    for way in zarn orv; do
        $machine-strip -o "$disk/$way/lib/liborvinterpreter.so.1" "$folder/programs/liborvinterpreter.so"
    done
    add_way lua "$packages/usr/bin/lua5.1" bench/device/{page.lua,overview.lp}
    mkdir -p "$disk/lua/lib/"{cgilua,luasql}
    cp "$packages/usr/share/lua/5.1/cgilua/lp.lua" "$disk/lua/lib/cgilua/"
    $machine-strip -o "$disk/lua/lib/luasql/sqlite3.so" \
        "$packages/usr/lib/$machine/lua/5.1/luasql/sqlite3.so"
    copy_libraries "$packages" "$disk/lua" "$disk/lua/lib/luasql/sqlite3.so"
    add_way shell "$packages/usr/bin/sqlite3" bench/device/page.sh
    make_texts
    cp bench/device/start "$disk/"
    $machine-gcc -O2 -static -o "$disk/launch" bench/engines/launch.c
    cp -r "$folder/image" "$image"
    mksquashfs "$disk" "$image/test.squashfs" -quiet -no-progress -all-root -noappend >/dev/null
}

# size FOLDER - bytes in it, without the libraries that each way needs: C's and SQLite's.
size() {
    find "$@" -type f ! -name 'libc.so*' ! -name 'libm.so*' ! -name 'libdl.so*' \
        ! -name 'ld-linux*' ! -name 'libsqlite3*' -printf '%s\n' | awk '{ sum += $1 } END { print sum }'
}

# The machine's clock counts instructions, whatever else runs on this machine.
run_machine() {
    local arguments
    mapfile -t arguments < <(machine_arguments "$image" 64 "" "")
    timeout 500 qemu-system-arm "${arguments[@]}" -icount shift=0,sleep=off \
        -serial "file:$folder/cost.log" </dev/null
}

make_disk
run_machine
tr -d '\r' <"$folder/cost.log" | sed -n '/^costs$/,/^end$/{//d;p}' >"$folder/costs"
printf '%-6s %12s %10s %10s %8s\n' way instructions memory programs pages
while read -r way millions memory rest; do
    if [[ -n $rest || ! -d $disk/$way ]]; then
        echo "$way $millions $memory $rest" >&2 # what went wrong there
        continue
    fi
    printf '%-6s %10s M %7s KB %7s KB %5s KB\n' "$way" "$millions" "$memory" \
        $(($(size "$disk/$way"/{bin,lib}) / 1000)) $(($(size "$disk/$way/page") / 1000))
done <"$folder/costs"
echo "of the programs: the library $(size "$disk"/orv/lib/liborv*) bytes, zarn $(size "$disk"/zarn/bin)," \
    "orv-render $(size "$disk"/orv/bin), the C++ runtime $(size "$disk"/orv/lib/lib{stdc++,gcc_s}*)"
[[ $(wc -l <"$folder/costs") == 4 ]] # nothing else was said
