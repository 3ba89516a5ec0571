#!/bin/bash
# device/fetch.sh FOLDER - gets the device's Debian packages into FOLDER and
# unpacks them: kernel has the kernel and its modules, files the rest.
#
# apt-get works on lists, settings and a package database in FOLDER/apt, so that
# this machine's own packages, architectures and lists stay as they are. Its sources
# are used. What has been fetched is not fetched again; remove FOLDER to have newer
# packages.
set -euo pipefail
mkdir -p "$1"
folder=$(realpath "$1")
list=$(realpath "$(dirname "$0")/packages.txt")

# packages USE
packages() { awk -v use="$1" '$1 == use {print $2}' "$list"; }

prepare_apt() {
    mkdir -p "$folder"/apt/{lists,archives}/partial "$folder/kernel" "$folder/files"
    : >"$folder/apt/status"
    cat >"$folder/apt/apt.conf" <<END
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Sandbox::User "$(id -un)";
Debug::NoLocking "true";
Dir::State "$folder/apt";
Dir::State::Lists "$folder/apt/lists";
Dir::State::status "$folder/apt/status";
Dir::Cache "$folder/apt";
END
    export APT_CONFIG=$folder/apt/apt.conf
}

fetch() {
    local kernel
    # A source that has nothing for this architecture fails alone; what is then
    # really missing fails below.
    apt-get -q update || true
    # shellcheck disable=SC2046 # a word for each package
    apt-get -q -y --download-only install $(packages device) $(packages tests) $(packages measure)
    kernel=$(apt-cache depends linux-image-armmp | sed -n 's/.*Depends: \(linux-image-[^ ]*\)/\1/p')
    # These would bring what only a whole Debian system needs.
    # shellcheck disable=SC2046
    (cd "$folder/apt/archives" && apt-get -q download "$kernel" $(packages headers))
}

unpack() {
    local archive
    for archive in "$folder"/apt/archives/*.deb; do
        case $archive in
        */linux-image-*) dpkg-deb -x "$archive" "$folder/kernel" ;;
        *) dpkg-deb -x "$archive" "$folder/files" ;;
        esac
    done
}

# A link to a path from / means the device's.
mend_links() {
    local link
    find "$folder/files" -type l -lname '/*' | while read -r link; do
        ln -sfn "$folder/files$(readlink "$link")" "$link"
    done
}

# The mark holds the list, so that a changed list is fetched.
cmp -s "$list" "$folder/fetched" && exit
echo "Fetching the device's packages" >&2
rm -rf "$folder/kernel" "$folder/files"
prepare_apt
fetch >"$folder/apt/log" 2>&1 || {
    tail -n 20 "$folder/apt/log" >&2
    exit 1
}
unpack
mend_links
cp "$list" "$folder/fetched"
