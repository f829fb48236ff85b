#!/bin/bash
# The USB guest's init: the host's programs on a tmpfs overlay, the services
# a desktop has (system bus, udev, polkit, udisks2), two ordinary users, then
# the scenarios against the build's own programs. Everything it prints goes
# to the serial console, where the host reads it; "@@usbvm" lines are meant
# for the host.
set -u
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
arg() { sed -n "s/.*usbvm\.$1=\([^ ]*\).*/\1/p" /proc/cmdline; }
uptime_s() { cut -d' ' -f1 /proc/uptime; }
finish() {
    echo "@@usbvm exit $1"
    sync
    busybox poweroff -f
}

mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
mount -t tmpfs -o mode=1777 tmpfs /dev/shm
mount -t tmpfs -o mode=0755 tmpfs /run
modules=$(arg modules)
mkdir -p "/lib/modules/$(uname -r)"
mount --bind "$modules" "/lib/modules/$(uname -r)" || finish 90
# /tmp stays the host's, seen through the overlay: the build may live there.
mkdir -p /media /run/usbvm
hostname usbvm

# Two users: one the system knows nothing special of, one polkit lets manage disks.
useradd -M -N -u 4242 -s /bin/sh kuser
useradd -M -N -u 4243 -s /bin/sh kadmin
mkdir -p /etc/polkit-1/rules.d
cat >/etc/polkit-1/rules.d/50-kestrine-usbvm.rules <<'RULES'
polkit.addRule(function(action, subject) {
    if (action.id.indexOf("org.freedesktop.udisks2.") == 0 && subject.user == "kadmin")
        return polkit.Result.YES;
});
RULES

# The system bus, without starting services on demand: nothing here could
# answer (no systemd), and a request would wait for its timeout.
mkdir -p /run/dbus /run/usbvm/no-services
sed -e 's|<standard_system_servicedirs/>|<servicedir>/run/usbvm/no-services</servicedir>|' \
    -e 's|<includedir>system.d</includedir>|<includedir>/usr/share/dbus-1/system.d</includedir>|' \
    -e '/<servicehelper>/d' -e '/<syslog\/>/d' /usr/share/dbus-1/system.conf >/run/usbvm/system-bus.conf
dbus-daemon --config-file=/run/usbvm/system-bus.conf --fork || finish 91
/usr/lib/polkit-1/polkitd --no-debug >/run/usbvm/polkitd.log 2>&1 &
polkitd=$!
/lib/systemd/systemd-udevd --daemon
udevadm trigger --type=subsystems --action=add
udevadm trigger --type=devices --action=add
udevadm settle --timeout=120
/usr/libexec/udisks2/udisksd >/run/usbvm/udisksd.log 2>&1 &
udisksd=$!
on_bus() {
    busctl --system --timeout=5 call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus \
        NameHasOwner s "$1" 2>/dev/null | grep -q true
}
for _ in $(seq 300); do
    on_bus org.freedesktop.UDisks2 && on_bus org.freedesktop.PolicyKit1 && break
    if ! kill -0 "$polkitd" "$udisksd" 2>/dev/null; then
        echo "usbvm: polkitd or udisksd ended at start-up:"
        cat /run/usbvm/polkitd.log /run/usbvm/udisksd.log
        finish 93
    fi
    sleep 0.2
done
echo "@@usbvm ready $(uptime_s)"

export HOME=/root XDG_RUNTIME_DIR=/run/usbvm/runtime QT_QPA_PLATFORM=offscreen KESTRINE_USBVM=1
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
mkdir -p -m 0700 "$XDG_RUNTIME_DIR"
cd /run/usbvm || finish 92
filter=$(arg filter) script=$(arg script)
if [ -n "$script" ]; then
    bash -x "$script" 2>&1
else
    "$(arg tests)" --gtest_color=no ${filter:+--gtest_filter="$filter"} 2>&1
fi
rc=$?
echo "@@usbvm services: udisksd log follows"
tail -n 20 /run/usbvm/udisksd.log
finish "$rc"
