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
    printf '%s\n  expected: %s\n  got:      %s\n' "$1" "$2" "$3" >&2
    failed=1
}
# ask PATH [CURL-OPTION]... - prints the status; the answer is in head and page.
ask() {
    curl -s -g -m 20 -D "$work/head" -o "$work/page" -w '%{http_code}' "${@:2}" "$SITE_URL$1"
}
header() { sed -n "s/^$1: \(.*\)\r$/\1/Ip" "$work/head"; }
has() { grep -qF -- "$1" "$work/page" && echo yes || echo no; }
sql() { sqlite3 -cmd '.timeout 2000' "$SITE_DB" "$1"; }

# Statuses.
printf 'save=%s' "$(head -c 20000 /dev/zero | tr '\0' a)" >"$work/long"
many=$(printf 'a=1&%.0s' {1..65})
while read -r status path options; do
    # shellcheck disable=SC2086
    check "$path $options" "$status" "$(ask "$path" $options)"
    [[ $status == 200 ]] || check "$path: small page" yes "$(has "<h1>$status ")"
    check "$path: type" 'text/html; charset=utf-8' "$(header content-type)"
done <<END_OF_ROWS
200
200 devices.htm?find=%3Cb%3E&sort=ip&page=99999999999999999999
200 overview.htm?&&a&b=&a=1
404 nothere.htm
404 header.frm
404 sub/../overview.htm/
404 %2e%2e/%2e%2e/zarn/zarn.cpp
405 overview.htm -X PUT
405 overview.htm -d a=b
400 overview.htm?page%5Bid%5D=x
400 overview.htm?=x
400 settings.htm -d a=%00
400 settings.htm -d a=%C0%AF
400 settings.htm -d a=%F9%80%80%80
400 settings.htm -d a=%4
413 overview.htm?$many
413 settings.htm -d @$work/long
415 settings.htm -d {} -H Content-Type:text/json
END_OF_ROWS
check 'allowed methods' '405 GET, HEAD, POST' "$(ask settings.htm -X DELETE) $(header allow)"

# Headers, with and without a page.
check 'GET' 200 "$(ask devices.htm)"
grep -viE '^(date|content-length|set-cookie):' "$work/head" >"$work/get"
check 'caching, sniffing' 'no-store nosniff' "$(header cache-control) $(header x-content-type-options)"
check 'policy' "default-src 'none'; style-src 'self'; script-src 'self'" \
    "$(header content-security-policy | cut -d';' -f1-3)"
: >"$work/page"
check 'HEAD' 200 "$(ask devices.htm -I)"
check 'HEAD has the headers' '' "$(diff "$work/get" <(grep -viE '^(date|set-cookie):' "$work/head"))"

# The language: parameter, cookie, Accept-Language.
while read -r lang query cookie accept; do
    ask "overview.htm?$query" -b "zarnlang=$cookie" -H "Accept-Language: $accept" >/dev/null
    check "language of $query $cookie $accept" yes "$(has "<html lang=\"$lang\">")"
done <<'END_OF_ROWS'
de lang=de en en
en lang=xx en de
de lang=../ de en
en lang xx fr,en;q=0.5,de;q=0.4
en x=1 xx de;q=0
de x=1 xx en;q=0,*,DE-at;q=0.001
END_OF_ROWS

# Settings.
token=0123456789abcdef0123456789abcdef
form='nameserver=198.51.100.1&first=9&last=99&network=1&ssid=%22a%27%3Cb%3E&channel=36&security=wpa3'
post() { ask settings.htm -b "zarntoken=$token" -d "token=$1&hostname=$2&$form$3"; }
check 'foreign token: typed is not shown' '200 yes no' \
    "$(post "${token/0/1}" evil '') $(has role=\"alert\") $(has evil)"
check 'no cookie' '200 yes' "$(ask settings.htm -d "token=&hostname=evil&$form") $(has role=\"alert\")"
check 'a link cannot fill the form' '200 no no' \
    "$(ask 'settings.htm?typed=1&token=zzz&hostname=evil') $(has evil) $(has zzz)"
check 'wrong value: typed is shown' '200 yes yes' \
    "$(post $token 'A%22%3E%3Cb%3E' '') $(has role=\"alert\") $(has 'value="A&quot;&gt;&lt;b&gt;"')"
for wrong in first=100 first=0x1 network=7 channel=2 security= ssid=%0a nameserver=1.2.3; do
    check "wrong $wrong" '200 yes' "$(post $token ok "&$wrong") $(has role=\"alert\")"
done
check 'nothing was stored' fjord "$(sql 'select hostname from settings')"
check 'saved' '303 settings.htm?saved=1' "$(post $token new-name '&guests=1') $(header location)"
check 'saved' "new-name|198.51.100.1|9|99|1|\"a'<b>|36|wpa3|0|0|1" "$(sql 'select hostname, nameserver,
    first_host, last_host, network, ssid, channel, security, dhcp, hidden, guests from settings')"
check 'the change is noted' 2 "$(sql "select count(*) from event where message = 'Settings changed'")"
check 'the log has the diagnostics, and no form' 'yes no' \
    "$(grep -q 'settings.htm: Real Time' "$SITE_LOG" && echo yes) $(grep -qE "$token|evil" "$SITE_LOG" || echo no)"

# direct STATUS VARIABLE=VALUE... - what lighttpd would have refused or mended.
direct() {
    check "${*:2}" "$1" "$(env ZARN_DOCROOT="$work/root" ZARN_DB="$SITE_DB" "${@:2}" "$zarn" \
        2>/dev/null | sed -n '1s/Status: \([0-9]*\).*/\1/p')"
}
mkdir "$work/root"
echo secret >"$work/out.htm"
ln -s ../out.htm "$work/root/link.htm"
touch "$work/root/settings.htm"
for path in /../out.htm //../out.htm "/$work/out.htm" /link.htm /./settings.htm /settings.htm/ /.. /; do
    direct 404 REQUEST_METHOD=GET "PATH_INFO=$path"
done
post=(REQUEST_METHOD=POST PATH_INFO=/settings.htm CONTENT_TYPE=application/x-www-form-urlencoded)
direct 400 "${post[@]}" CONTENT_LENGTH=9 <<<'a=b'
direct 400 "${post[@]}" CONTENT_LENGTH=-1 <<<'a=b'
direct 413 "${post[@]}" CONTENT_LENGTH=99999999999999999999 </dev/zero
direct 200 "${post[@]}" CONTENT_LENGTH=3 <<<'a=b&['
direct 400 REQUEST_METHOD=GET PATH_INFO=/settings.htm QUERY_STRING=a=%zz
direct 405 REQUEST_METHOD='GET X' PATH_INFO=/settings.htm
direct 500 REQUEST_METHOD=GET PATH_INFO=/settings.htm ZARN_DB=/nothere
split=(REQUEST_METHOD=GET PATH_INFO=/settings.htm QUERY_STRING=lang=de%0D%0AX-Evil:1)
direct 200 "${split[@]}" HTTP_COOKIE=$'zarntoken=a\r\nX-Evil:1'

# Many at a time.
whole=$(for x in {1..40}; do
    printf '%s\n' "$SITE_URL"{overview,devices,traffic,events,settings}".htm?x=$x"
done | xargs -P 8 -n 1 curl -s -m 30 | grep -c '^</html>')
check '200 requests at 8 at a time' 200 "$whole"
exit $failed
