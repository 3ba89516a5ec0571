#!/bin/bash
# exports.sh LIBRARY MAP [ARCHIVE MAP] - the library exports the names of the map with their
# versions and no others, runs nothing when it is loaded, and needs nothing but the C library
# (and a sanitizer's runtime), and of the heap no more than every allocator has: hosts bring
# their own. The archive has the names of its map and no others.
set -euo pipefail
library=$1 map=$2
wanted=$(awk '/^ORV_.* \{$/ { version = $1 } /^(global|local):/ { listed = $1 == "global:" }
    listed && sub(/;$/, "") { print $1 "@@" version }' "$map" | sort)
got=$(nm -D --defined-only "$library" | awk '$2 != "A" {print $3}' | sort) # versions of their own not: lld has none
diff <(echo "$wanted") <(echo "$got")
[[ $# -lt 3 ]] || diff <(sed -n '/^global:/,/^local:/s/^ *\([A-Za-z_]*\);/\1/p' "$4") \
    <(nm -g --defined-only "$3" | awk 'NF == 3 {print $3}')
needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
if grep -q '^lib[au].*san\.so' <<<"$needed" || nm -D "$library" | grep __asan_init >/dev/null; then
    needed=$(grep -Ev '^lib(asan|ubsan|m|gcc_s)\.so' <<<"$needed")
elif readelf -d "$library" | grep -E '\((INIT|FINI)'; then
    echo "Something of the library runs at its loading." >&2
    exit 1
fi
diff <(echo libc.so.6) <(echo "$needed")
heap=$(nm -D -u "$library" | sed -nE 's/^ *U ([a-z_]*(alloc|free|align|usable|strdup|strndup)[a-z_]*).*/\1/p' |
    grep -v ^__ | sort)
diff <(printf '%s\n' calloc free malloc realloc) <(echo "$heap")
if nm -D -u "$library" | grep ' _Z' | grep -v __cxxabiv1; then  # of sanitizers
    echo "The library needs the C++ runtime." >&2
    exit 1
fi
