#!/bin/bash
# tools/screenshots.sh - makes docs/screenshots/ anew, with headless Chromium: pages
# of the demo site on a desk and on a phone.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/.."
# shellcheck source=tools/setup.sh
. tools/setup.sh

# shoot NAME WIDTH HEIGHT PAGE
shoot() {
    chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync \
        --user-data-dir="$profile" --hide-scrollbars --lang=en --window-size="$2,$3" \
        --screenshot="$PWD/docs/screenshots/$1.png" "$SITE_URL$4" 2>/dev/null
    # A palette is enough for flat colours, and a third of the size.
    pngquant --force --skip-if-larger --ext .png 32 "docs/screenshots/$1.png" || [[ $? == 98 ]]
}

if [[ -z ${SITE_URL-} ]]; then
    alone need :lighttpd chromium:chromium pngquant:pngquant
    ./demo.sh >/dev/null # builds what the site needs
    exec tools/serve.sh build/demo 0 tools/screenshots.sh
fi
profile=$(mktemp -d)
trap 'rm -rf "$profile"' EXIT
mkdir -p docs/screenshots
shoot overview 900 760 overview.htm
shoot devices 1100 900 devices.htm?sort=volume
shoot traffic 900 700 traffic.htm
shoot devices-phone 390 844 devices.htm
shoot settings-phone 390 844 settings.htm?lang=de
