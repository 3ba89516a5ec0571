#!/bin/bash
# tools/site-data.sh BUILD FOLDER [TOOLTIPS] - makes what the demo site shows, afresh,
# in FOLDER: router.db, and root, the interpreter's own files. BUILD is a build
# folder that has orv-textdb. On a device the key "tooltip=" stands on the kernel's
# command line; here a file takes its place.
set -euo pipefail
build=$1
data=$2
tooltips=${3-}
site=$(realpath "$(dirname "$0")/../examples/site")
root=$data/root

rm -rf "$data"
mkdir -p "$root/etc" "$root/var/log" "$root/proc"
sqlite3 "$data/router.db" <"$site/router.sql"
for po in "$site"/texts/*.po; do
    "$build/tools/orv-textdb" build -o "$root/etc/htmltext_$(basename "$po" .po).db" "$po" >&2
done
ln -s htmltext_en.db "$root/etc/htmltext.db"
ln -s ../etc/htmltext_en.db "$root/var/htmltext.db"
[[ -z $tooltips ]] || echo "quiet tooltip=$tooltips" >"$root/proc/cmdline"
