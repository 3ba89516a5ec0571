#!/bin/bash
# scripts/site-data.sh BUILD FOLDER - makes what the demo site shows, afresh, in FOLDER:
# router.db, and root, the interpreter's own files. BUILD is a build folder that has
# orv-textdb. Says nothing when all went well: a page is what the reader wants.
set -euo pipefail
build=$1
data=$2
site=$(dirname "$(realpath "$0")")/../examples/site
root=$data/root

rm -rf "$data"
mkdir -p "$root/etc" "$root/var/log"
cat "$site"/database-*.sql | sqlite3 "$data/router.db"
for po in "$site"/texts/*.po; do
    "$build/tools/orv-textdb" build -o "$root/etc/htmltext_$(basename "$po" .po).db" "$po" >/dev/null
done
ln -s htmltext_en.db "$root/etc/htmltext.db"
ln -s ../etc/htmltext_en.db "$root/var/htmltext.db"
