#!/bin/busybox sh
# The guest's first program: loads the drivers of the shared root, mounts
# the host's / read-only over 9p under a tmpfs overlay, and hands over to
# the program the kernel command line names (usbvm.init=).
/bin/busybox --install -s /bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
for m in $(cat /modules/order); do insmod "/modules/$m" || echo "usbvm: insmod $m failed"; done
mkdir -p /lower /upper /newroot
if ! mount -t 9p -o trans=virtio,version=9p2000.L,msize=512000,cache=loose,ro hostroot /lower; then
    echo "usbvm: the host's root could not be mounted over 9p"
    poweroff -f
fi
mount -t tmpfs -o size=1200m,mode=0755 tmpfs /upper
mkdir -p /upper/data /upper/work
if ! mount -t overlay overlay -o lowerdir=/lower,upperdir=/upper/data,workdir=/upper/work /newroot; then
    echo "usbvm: the overlay could not be mounted"
    poweroff -f
fi
init=$(sed -n 's/.*usbvm\.init=\([^ ]*\).*/\1/p' /proc/cmdline)
umount /proc /sys /dev
exec switch_root /newroot "${init:-/bin/sh}"
