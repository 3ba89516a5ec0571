#!/bin/bash
# archive.sh ARCHIVE SOURCE COMPILER [EMULATOR]... - the static library has the names for
# web programs and no others, needs the C library alone, and makes the documents' pages in
# a program that uses names of the library's inside for its own data.
set -euo pipefail
archive=$(realpath "$1") source=$(realpath "$2") compiler=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wanted=$(sed -n '/^global:/,/systemRoot/s/^ *\([A-Za-z_][A-Za-z0-9_]*\);/\1/p' \
    "$source/interface/exports.map" | sort)
diff <(echo "$wanted") <(nm -g --defined-only "$archive" | awk 'NF == 3 {print $3}' | sort)
"$compiler" -static -I"$source/interface" "$source/tests/archive_host.c" "$archive" -o "$work/host"
"$source/tests/archive_pages.py" "$source" "$@" "$work/host"
