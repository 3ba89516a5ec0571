#!/bin/bash
# tests/scripts.sh SOURCE - the scripts of a source tree where things are not as usual:
# in a copy of it with a quote in its path, called through links and with CDPATH set.
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
copy="$work/it's"
failed=0

# check WHAT EXPECTED GOT
check() {
    [[ $2 == "$3" ]] && return
    printf '%s\n  expected: %s\n  got:      %s\n' "$@" >&2
    failed=1
}

mkdir -p "$copy" "$work/fake" "$work/links/"{scripts,packaging}
tar c -C "$source" --exclude=./build --exclude=./.git . | tar x -C "$copy"
sed -i s/=Release/=None/ "$copy/demo.sh" # sooner built, and the same pages
export CC=clang CXX=clang++ # likewise
export CDPATH=$work
cd "$work/links"

# Asked for help, or wrongly, a script says so and installs nothing: whatever it looks
# for is missing here.
for command in apt-get sudo dpkg; do
    printf '#!/bin/bash\necho "$0 $*" >>%q/installed\nexit 1\n' "$work" >"$work/fake/$command"
done
chmod +x "$work/fake"/*
for command in bash cat dirname nproc realpath; do
    ln -s "$(command -v "$command")" "$work/fake"
done
while read -r status script arguments; do
    [[ -e $script ]] || ln -s "$copy/$script" "$script"
    read -ra arguments <<<"$arguments"
    got=0
    PATH=$work/fake "./$script" "${arguments[@]}" &>"$work/said" || got=$?
    check "$script ${arguments[*]}" "$status 1" "$got $(grep -c "^Usage: \|'--wrong'" "$work/said")"
done <<'END_OF_ROWS'
0 demo.sh --help
2 demo.sh --wrong
0 test.sh --help
2 test.sh --wrong
2 test.sh --fuzz x
2 test.sh --cross --wrong
0 bench.sh --help
2 bench.sh --wrong
0 scripts/cross.sh --help
2 scripts/cross.sh --wrong
0 scripts/builds.sh --help
2 scripts/builds.sh --wrong
0 device.sh --help
2 device.sh --wrong
0 packaging/packages.sh --help
2 packaging/packages.sh --wrong
0 packaging/dist.sh --help
2 packaging/dist.sh --wrong
0 packaging/site.sh --help
2 packaging/site.sh --wrong
END_OF_ROWS
got=0
DEVICE_MEMORY=59 PATH=$work/fake ./device.sh --build &>"$work/said" || got=$?
check 'a device of too little memory' '2 1' "$got $(grep -c 'need 60 MB' "$work/said")"
check 'nothing is installed' no "$([[ -e $work/installed ]] && echo yes || echo no)"

# What a release has made of a database does not change: a script with the next number does.
if release=$(git -C "$source" describe --tags --abbrev=0 --match 'v*' 2>/dev/null); then
    check "scripts of $release" '' "$(git -C "$source" diff --name-only --diff-filter=a "$release" -- \
        'examples/site/database-*.sql')"
fi

# Three at once build once and show the same page: in German, with an English text where
# there is no German one, and without a complaint. The fourth finds all built.
pids=()
for i in {1..3}; do
    ./demo.sh --lang de settings.htm >"$work/page$i" 2>"$work/said$i" &
    pids+=($!)
done
for pid in "${pids[@]}"; do
    wait "$pid" || check 'one of three' 0 $?
done
./demo.sh --lang de settings.htm >"$work/page" 2>"$work/said"
check 'nothing is built anew' 0 "$(grep -c Building "$work/said")"
check 'no complaint' 0 "$(grep -ci 'warning\|not translated' "$work/said")"
check 'fallback' 1 "$(grep -c 'It keeps nobody out' "$work/page")"
check 'one page' 1 "$(sha256sum "$work"/page* | cut -d' ' -f1 | sort -u | wc -l)"

# The server's messages go where standard error goes, be it a socket.
python3 - "$((20000 + RANDOM % 10000))" <<'END' || check 'serves beside a socket' 0 $?
import socket, subprocess, sys, urllib.request

ours, theirs = socket.socketpair()
with subprocess.Popen(["./demo.sh", "--serve", sys.argv[1]], stdout=subprocess.PIPE,
                      stderr=theirs, text=True) as server:
    theirs.close()
    try:
        address = server.stdout.readline().split()[-5]
        with urllib.request.urlopen(address + "login.htm") as page:
            assert b"</html>" in page.read()
    finally:
        server.terminate()
END
exit $failed
