# shellcheck shell=bash
# device/machine.sh - starts and stops the virtual device; sourced. One machine
# at a time; it ends with the script that started it.

machine_pid=

# free_port - a TCP port of this machine that nothing listens on.
free_port() {
    local port
    while port=$((20000 + RANDOM % 10000)) && (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do :; done
    echo "$port"
}

# machine_arguments IMAGE MEMORY KERNEL-OPTIONS FORWARDS - prints qemu's arguments, one
# a line: a small ARM board with the image's disks. Without FORWARDS (qemu's hostfwd
# settings) there is no way in; out of it there is none at all.
machine_arguments() {
    printf '%s\n' -M virt -cpu cortex-a7 -m "$2" -nodefaults -display none -no-reboot \
        -kernel "$1/kernel" -initrd "$1/initrd" \
        -append "console=ttyAMA0 quiet panic=-1 $3" \
        -netdev "user,id=net,restrict=on$4" -device virtio-net-device,netdev=net
    machine_disk root "$1/root.squashfs" on
    machine_disk data "$1/data.ext4" off
    [[ ! -e $1/test.squashfs ]] || machine_disk test "$1/test.squashfs" on
}

# machine_disk NAME FILE READ-ONLY
machine_disk() {
    printf '%s\n' -drive "if=none,id=$1,file=$2,format=raw,read-only=$3,cache=writethrough" \
        -device "virtio-blk-device,drive=$1,serial=$1"
}

# start_machine IMAGE LOG MEMORY KERNEL-OPTIONS FORWARDS - starts it in the background;
# what its console says goes to the file LOG.
start_machine() {
    local arguments
    mapfile -t arguments < <(machine_arguments "$1" "$3" "$4" "$5")
    qemu-system-arm "${arguments[@]}" -serial "file:$2" </dev/null >>"$2.qemu" 2>&1 &
    machine_pid=$!
}

# await_page URL SECONDS - returns when the device answers a request for URL, whatever
# it says; fails when the machine has ended or the time is over.
await_page() {
    local end=$((SECONDS + $2))
    until curl -s -m 5 -o /dev/null "$1"; do
        kill -0 "$machine_pid" 2>/dev/null && [[ $SECONDS -lt $end ]] || return 1
        sleep 0.3
    done
}

# kill_machine - as when its power is cut.
kill_machine() {
    [[ -n $machine_pid ]] || return 0
    kill -9 "$machine_pid" 2>/dev/null || true
    wait "$machine_pid" 2>/dev/null || true
    machine_pid=
}
