#!/bin/bash
# scripts/serve.sh BUILD PORT [COMMAND]... - runs lighttpd with the demo site on
# 127.0.0.1, with data of its own in a folder that is gone afterwards. BUILD is a
# build folder that has zarn and orv-textdb; the port 0 stands for any free one.
#
# Without COMMAND it prints the address and goes on until Ctrl-C. With one it runs
# that and ends with its status. The command finds the address in SITE_URL, the
# database in SITE_DB, that of its sessions in SITE_SESSIONS, the web server's error log in
# SITE_LOG. Where SITE_FIGURES is set it is the folder of what the device measures.
set -euo pipefail
build=$(realpath "$1")
port=$2
shift 2
scripts=$(dirname "$(realpath "$0")")
site=$(realpath "$scripts/../examples/site")
PATH=$PATH:/usr/sbin
work=$(mktemp -d)
server=

clean_up() {
    [[ -z $server ]] || kill "$server" 2>/dev/null || true
    wait
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

# What is no static file is a page, or a name that zarn refuses.
write_configuration() {
    local figures=
    [[ -z ${SITE_FIGURES-} ]] || figures=", \"ZARN_FIGURES\" => \"$SITE_FIGURES\""
    cat <<END
server.modules = ("mod_setenv", "mod_alias", "mod_rewrite", "mod_cgi")
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$site"
server.pid-file = "$work/pid"
server.upload-dirs = ("$work")
server.tag = ""
server.max-request-size = 1024 # KiB
server.errorfile-prefix = "$work/errors/"
mimetype.assign = (".css" => "text/css; charset=utf-8", ".js" => "text/javascript; charset=utf-8",
    ".html" => "text/html; charset=utf-8")
url.rewrite-once = ("^/(?!(?:style\.css|chart\.js|live\.js)(?:\?|\$))(.*)\$" => "/zarn/\$1")
alias.url = ("/zarn" => "$build/examples/zarn/zarn")
# As the pages have them, for what the server answers itself.
setenv.set-response-header = ("X-Content-Type-Options" => "nosniff",
    "Referrer-Policy" => "same-origin", "Cross-Origin-Resource-Policy" => "same-origin",
    "Content-Security-Policy" => "default-src 'none'; style-src 'self'; script-src 'self'; \
connect-src 'self'; img-src data:; form-action 'self'; base-uri 'none'; frame-ancestors 'none'")
\$HTTP["url"] =~ "^/zarn/" {
    cgi.assign = ("" => "")
    setenv.add-environment = ("ZARN_DOCROOT" => "$site",
        "ZARN_DB" => "$work/data/router.db", "ZARN_ROOT" => "$work/data/root",
        "ZARN_SESSIONS" => "$work/sessions"$figures)
} else {
    setenv.add-response-header = ("Cache-Control" => "max-age=600")
}
END
}

# One page for all that the server refuses itself.
make_errors() {
    local status
    mkdir "$work/errors"
    for status in 400 403 404 405 408 411 413 414 417 431 500 501 502 503 504 505; do
        ln -s "$site/error.html" "$work/errors/$status.html"
    done
}

# start - returns when the server takes requests, or fails when it has ended.
start() {
    write_configuration >"$work/lighttpd.conf"
    lighttpd -D -f "$work/lighttpd.conf" 2>&3 3>&- &
    server=$!
    while [[ ! -s $work/pid ]]; do
        kill -0 "$server" 2>/dev/null || return 1
        sleep 0.05
    done
}

# Standard error may be a socket or another user's terminal: it cannot be opened anew.
exec 3>&2
[[ $# -eq 0 ]] || exec 3>>"$work/error.log"
"$scripts/site-data.sh" "$build" "$work/data"
make_errors
tries=0
[[ $port != 0 ]] || tries=20
port=${port/#0/$((20000 + RANDOM % 10000))}
until start; do
    [[ $((tries--)) -gt 0 ]] || exit 2 # lighttpd has said why
    port=$((20000 + RANDOM % 10000))
done
export SITE_URL=http://127.0.0.1:$port/ SITE_DB=$work/data/router.db \
    SITE_SESSIONS=$work/sessions/sessions.db SITE_LOG=$work/error.log
if [[ $# -gt 0 ]]; then
    "$@"
    exit
fi
echo "The demo site is at $SITE_URL - Ctrl-C ends it."
wait "$server"
