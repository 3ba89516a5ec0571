#!/bin/bash
# device/image.sh PACKAGES PROGRAMS SITE-DATA IMAGE - makes the device's disks and
# its first file system in the folder IMAGE. PACKAGES is of fetch.sh, PROGRAMS a build
# for the device, SITE-DATA of site-data.sh.
#
#   kernel, initrd   what the machine is started with
#   root.squashfs    the system, read-only
#   data.ext4        what is written: empty, the first start puts the settings there
set -euo pipefail
export PATH=$PATH:/usr/sbin:/sbin
packages=$1 programs=$2 data=$3 image=$4
here=$(dirname "$0")
# shellcheck source=device/elf.sh
. "$here/elf.sh"
# In the order in which they are loaded.
modules=(virtio_mmio virtio_blk failover net_failover virtio_net squashfs crc16 crc32c_generic
    mbcache jbd2 ext4)

make_initrd() {
    local initrd=$image/initrd.files module
    mkdir -p "$initrd"/{bin,modules}
    cp "$packages/files/bin/busybox" "$initrd/bin/"
    cp "$here/init" "$initrd/"
    for module in "${modules[@]}"; do
        find "$packages/kernel/lib/modules" -name "$module.ko" -exec cp {} "$initrd/modules/" \;
        echo "$module"
    done >"$initrd/modules/order"
    (cd "$initrd" && find . | cpio --quiet -R 0:0 -o -H newc) | gzip >"$image/initrd"
}

# A link for each program that BusyBox has in it.
make_applets() {
    local applet
    qemu-arm "$1/bin/busybox" --list-full | while read -r applet; do
        mkdir -p "$1/$(dirname "$applet")"
        [[ -e $1/$applet ]] || ln -s /bin/busybox "$1/$applet"
    done
}

copy_site() {
    local root=$1 site page
    site=$(dirname "$0")/../examples/site
    cp -r "$site" "$root/usr/share/zarn"
    rm -r "$root/usr/share/zarn/texts"
    cp "$data/root"/etc/htmltext*.db "$root/etc/"
    ln -s /data/zarn/htmltext.db "$root/var/htmltext.db"
    ln -s /data/shadow "$root/etc/shadow"
    mkdir "$root/usr/share/zarn/factory"
    cp "$data/router.db" "$root/usr/share/zarn/factory/"
    ln -s /etc/htmltext_en.db "$root/usr/share/zarn/factory/htmltext.db"
    # The web server sees styles and scripts, and of the pages their names.
    mv "$root"/usr/share/zarn/*.{css,js} "$root/www/"
    for page in "$root"/usr/share/zarn/*.{htm,csv}; do
        : >"$root/www/$(basename "$page")"
    done
    mkdir "$root/www/cgi-bin"
    ln -s /usr/lib/zarn/page "$root/www/cgi-bin/index.cgi"
}

make_root() {
    local root=$image/root.files
    cp -r "$here/root" "$root"
    mkdir -p "$root"/{bin,data,dev,lib,proc,sys,test,tmp,usr/bin,usr/share,var,www}
    cp "$packages/files/bin/busybox" "$root/bin/"
    make_applets "$root"
    copy_program "$packages/files" "$root" "$programs/examples/zarn/zarn" /usr/bin
    copy_program "$packages/files" "$root" "$programs/tools/orv-render" /usr/bin
    # BusyBox does not know the hashes of passwords that zarn makes.
    rm "$root/sbin/sulogin"
    copy_program "$packages/files" "$root" "$packages/files/sbin/sulogin" /sbin
    arm-linux-gnueabihf-strip -o "$root/lib/liborvinterpreter.so.1" "$programs/liborvinterpreter.so"
    ln -s /data/log "$root/var/log"
    copy_site "$root"
    mksquashfs "$root" "$image/root.squashfs" -quiet -no-progress -all-root -noappend >/dev/null
}

rm -rf "$image"
mkdir -p "$image"
cp "$packages"/kernel/boot/vmlinuz-* "$image/kernel"
make_initrd
make_root
mke2fs -q -t ext4 "$image/data.ext4" 16M
rm -r "$image"/{initrd,root}.files
