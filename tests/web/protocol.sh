#!/bin/bash
# tests/web/protocol.sh ZARN - the web program's side of HTTP: asks the site that
# tools/serve.sh runs, and for what a web server would not let pass, ZARN itself.
set -euo pipefail
export LC_ALL=C
zarn=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# check WHAT EXPECTED GOT
check() {
    [[ $2 == "$3" ]] && return
    printf '%s\n  expected: %s\n  got:      %s\n' "$@" >&2
    failed=1
}
# ask PATH [CURL-OPTION]... - prints the status; the answer is in head and page.
ask() { curl -sg -m 20 -D "$work/head" -o "$work/page" -w '%{http_code}' "${@:2}" "$SITE_URL$1"; }
header() { sed -n "s/^$1: \(.*\)\r$/\1/Ip" "$work/head"; }
has() { grep -qF -- "$1" "$work/page" && echo yes || echo no; }
sql() { sqlite3 -cmd '.timeout 2000' "$SITE_DB" "$1"; }

# Status, what the page has, path, options: refusals, then the page's language
# by parameter, cookie and Accept-Language.
printf 'save=%s' "$(head -c 20000 /dev/zero | tr '\0' a)" >"$work/long"
many=$(printf 'a=1&%.0s' {1..65})
while read -r status text path; do
    read -ra path <<<"$path"
    got="$(ask "${path[@]}") $(has "$text") $(header content-type)"
    check "${path[*]}" "$status yes text/html; charset=utf-8" "$got"
done <<END_OF_ROWS
200 <h1> devices.htm?find=%3Cb%3E&sort=ip&page=99999999999999999999
200 <h1> overview.htm?&&a&b=&a=1
404 <h1>404 header.frm
404 <h1>404 %2e%2e/%2e%2e/zarn/zarn.cpp
405 <h1>405 overview.htm -d a=b
400 <h1>400 overview.htm?page%5Bid%5D=x
400 <h1>400 settings.htm -d a=%00
400 <h1>400 settings.htm -d a=%C0%AF
413 <h1>413 overview.htm?$many
413 <h1>413 settings.htm -d @$work/long
415 <h1>415 settings.htm -d {} -H Content-Type:text/json
200 lang="de" overview.htm?lang=de -b zarnlang=en -H Accept-Language:en
200 lang="en" overview.htm?lang=xx -b zarnlang=en -H Accept-Language:de
200 lang="de" overview.htm?lang=../ -b zarnlang=de -H Accept-Language:en
200 lang="en" overview.htm -b zarnlang=xx -H Accept-Language:fr,en;q=0.5,de;q=0.4
200 lang="en" overview.htm -b zarnlang=xx -H Accept-Language:de;q=0
200 lang="de" overview.htm -b zarnlang=xx -H Accept-Language:en;q=0,*,DE-at;q=0.001
END_OF_ROWS
check 'allowed methods' '405 GET, HEAD, POST' "$(ask settings.htm -X DELETE) $(header allow)"

# A page is kept by no cache, and runs no foreign script; HEAD tells the same.
for option in -G -I; do
    got="$(ask devices.htm $option) $(header cache-control) $(header x-content-type-options)"
    check "headers $option" '200 no-store nosniff' "$got"
    check "policy $option" "default-src 'none'; style-src 'self'; script-src 'self'" \
        "$(header content-security-policy | cut -d';' -f1-3)"
done

# Settings: a form without the cookie's token or with a wrong value changes nothing.
token=0123456789abcdef0123456789abcdef
form='nameserver=192.0.2.1&first=9&last=99&network=1&ssid=%22a%27%3Cb%3E&channel=36&security=wpa3'
post() { ask settings.htm -b "zarntoken=$token" -d "token=$1&hostname=$2&$form$3"; }
check 'foreign token: typed is not shown' '200 yes no' \
    "$(post "${token/0/1}" evil '') $(has role=\"alert\") $(has evil)"
check 'no cookie' '200 yes' \
    "$(ask settings.htm -d "token=&hostname=evil&$form") $(has role=\"alert\")"
check 'a link cannot fill the form' '200 no no' \
    "$(ask 'settings.htm?typed=1&token=zzz&hostname=evil') $(has evil) $(has zzz)"
for wrong in first=100 first=0x1 network=7 channel=2 security= ssid=%0a nameserver=1.2.3; do
    check "wrong $wrong" '200 yes' "$(post $token ok "&$wrong") $(has role=\"alert\")"
done
check 'nothing was stored' fjord "$(sql 'select hostname from settings')"
check 'saved' '303 settings.htm?saved=1' "$(post $token new '&guests=1') $(header location)"
columns='hostname, nameserver, first_host, last_host, ssid, channel, security, dhcp, guests'
check 'stored' "new|192.0.2.1|9|99|\"a'<b>|36|wpa3|0|1" "$(sql "select $columns from settings")"
check 'noted' 2 "$(sql "select count(*) from event where message = 'Settings changed'")"
check 'the log has no form' 1 "$(grep -qE "$token|evil" "$SITE_LOG"; echo $?)"

# direct STATUS VARIABLE=VALUE... - what lighttpd would have refused or mended.
export ZARN_DOCROOT=$work/root ZARN_DB=$SITE_DB REQUEST_METHOD=GET PATH_INFO=/settings.htm
direct() {
    check "${*:2}" "$1" "$(env "${@:2}" "$zarn" 2>/dev/null |
        sed -n '1s/Status: \([0-9]*\).*/\1/p; /^X-Evil/p')"
}
mkdir "$work/root"
echo secret >"$work/out.htm"
ln -s ../out.htm "$work/root/link.htm"
touch "$work/root/settings.htm"
for path in /../out.htm "/$work/out.htm" /link.htm /./settings.htm /settings.htm/ /.. /; do
    direct 404 "PATH_INFO=$path"
done
post=(REQUEST_METHOD=POST CONTENT_TYPE=application/x-www-form-urlencoded)
direct 400 "${post[@]}" CONTENT_LENGTH=9 <<<'a=b'
direct 400 "${post[@]}" CONTENT_LENGTH=-1 <<<'a=b'
direct 413 "${post[@]}" CONTENT_LENGTH=99999999999999999999 </dev/zero
direct 200 "${post[@]}" CONTENT_LENGTH=3 <<<'a=b&['
direct 400 QUERY_STRING=a=%zz
direct 405 REQUEST_METHOD='GET X'
direct 500 ZARN_DB=/nothere
direct 200 QUERY_STRING=lang=de%0D%0AX-Evil:1 HTTP_COOKIE=$'zarntoken=a\r\nX-Evil:1'

# A save that is killed leaves the old row or the new one, and the next request shows it
# whole: 100 kills, from the start of the program to the end of a save that is let be.
export ZARN_DOCROOT=${zarn%/build*}/examples/site HTTP_COOKIE=zarntoken=$token
# save NAME - starts it.
save() {
    printf 'token=%s&hostname=%s&%s' $token "$1" "$form" >"$work/form"
    env "${post[@]}" CONTENT_LENGTH="$(stat -c %s "$work/form")" "$zarn" <"$work/form" &>/dev/null &
}
exec {never}<> <(:)
start=${EPOCHREALTIME/./}
save k0 && wait $!
whole=$((${EPOCHREALTIME/./} - start)) # microseconds
killed=0 last=k0 names=0
for i in {1..400}; do
    [[ $killed -lt 100 ]] || break
    save "k$i"
    read -rt "$(printf '0.%06d' $((killed * whole / 100)))" -u "$never" || true
    kill -KILL $! 2>/dev/null || true
    wait $! 2>/dev/null && whole=$((whole * 9 / 10)) || killed=$((killed + 1))
    "$zarn" >"$work/page" 2>/dev/null
    name=$(sed -n 's/.* name="hostname".* value="\([^"]*\)".*/\1/p' "$work/page")
    [[ $name != "k$i" ]] || { last=$name && names=$((names + 1)); }
    check "page after kill $i" "$last yes" "$name $(has '</html>')"
done
check 'kills, and saves before them' '100 yes' "$killed $([[ $names -gt 0 ]] && echo yes)"

# 200 requests, 8 at a time.
printf '%s\n' "$SITE_URL"{overview,devices,traffic,events,settings}.htm?x={1..40} >"$work/urls"
whole=$(xargs -P 8 -n 1 curl -s -m 30 <"$work/urls" | grep -c '^</html>')
check 'many at a time' 200 "$whole"
exit $failed
