#!/usr/bin/env python3
"""Real USB drives under a real kernel: boots a Linux guest under QEMU with
emulated USB sticks, runs the build's own scenario tests inside it, and
reports each one.

The guest is Debian's own kernel (fetched once with apt-get and kept in the
build folder) with a tiny initramfs that mounts this machine's / read-only
over 9p below a tmpfs overlay, so the guest runs this machine's programs and
the build's binaries unchanged, and nothing of the host is changed. The
guest asks for hot-plugging by printing "@@usbvm qmp <monitor command>" on
its serial console; this script passes that to QEMU's monitor. A picture
the guest takes ("@@usbvm picture <name> <PNG in base64>") is kept in
BUILD/screenshots.

Exit codes: 0 every scenario passed, 1 a scenario failed or the guest did not
finish, 77 skipped (not root, or QEMU cannot be had), 2 bad arguments.
"""
import argparse
import base64
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PACKAGES = [
    "qemu-system-x86", "busybox-static", "cpio", "kmod", "fdisk", "dosfstools", "e2fsprogs", "cryptsetup-bin",
    "lvm2", "libblockdev-crypto2", "udisks2", "polkitd", "dbus", "udev", "passwd", "util-linux",
]
INITRAMFS_MODULES = ["virtio_pci", "9pnet_virtio", "9p", "overlay"]
SKIP = 77


def say(text):
    print(f"usbvm: {text}", flush=True)


def run(command, **kw):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **kw)


def missing_packages():
    missing = []
    for p in PACKAGES:
        r = subprocess.run(["dpkg-query", "-W", "-f=${Status}", p], stdout=subprocess.PIPE,
                           stderr=subprocess.DEVNULL, text=True)
        if "install ok installed" not in r.stdout:
            missing.append(p)
    return missing


def install_packages():
    missing = missing_packages()
    if not missing:
        return True
    say("installing " + " ".join(missing))
    env = dict(os.environ, DEBIAN_FRONTEND="noninteractive")
    try:
        run(["apt-get", "update", "-qq"], env=env)
        run(["apt-get", "install", "-y", "-qq", "--no-install-recommends"] + missing, env=env)
    except subprocess.CalledProcessError as e:
        say("apt-get failed:\n" + e.stdout[-2000:])
        return False
    return not missing_packages()


def kernel(work):
    """Debian's kernel package, unpacked into the build folder once: (vmlinuz, modules folder, version)."""
    depends = run(["apt-cache", "depends", "linux-image-amd64"]).stdout
    m = re.search(r"Depends: (linux-image-(\S+))", depends)
    if not m:
        raise RuntimeError("apt-cache names no kernel package for linux-image-amd64")
    package, version = m.group(1), m.group(2)
    folder = os.path.join(work, "kernel", package)
    ready = os.path.join(folder, "ready")
    if not os.path.exists(ready):
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        say(f"fetching the guest kernel {package} (once; kept in {folder})")
        run(["apt-get", "download", package], cwd=folder)
        deb = [f for f in os.listdir(folder) if f.endswith(".deb")][0]
        run(["dpkg-deb", "-x", deb, os.path.join(folder, "root")], cwd=folder)
        os.remove(os.path.join(folder, deb))
        run(["depmod", "-b", os.path.join(folder, "root"), version])
        open(ready, "w").close()
    root = os.path.join(folder, "root")
    return os.path.join(root, "boot", "vmlinuz-" + version), os.path.join(root, "lib", "modules", version), version


def initramfs(work, modules, version):
    """Static busybox, the drivers of the shared root and the init script, as a cpio archive."""
    init = os.path.join(HERE, "initramfs-init.sh")
    out = os.path.join(work, f"initrd-{version}.gz")
    if os.path.exists(out) and os.path.getmtime(out) >= os.path.getmtime(init):
        return out
    tree = os.path.join(work, "initramfs")
    shutil.rmtree(tree, ignore_errors=True)
    for d in ["bin", "modules", "proc", "sys", "dev"]:
        os.makedirs(os.path.join(tree, d))
    shutil.copy("/bin/busybox", os.path.join(tree, "bin", "busybox"))
    shutil.copy(init, os.path.join(tree, "init"))
    os.chmod(os.path.join(tree, "init"), 0o755)
    order = []
    root = modules[: modules.rindex("/lib/modules/")]
    for name in INITRAMFS_MODULES:
        deps = run(["modprobe", "-d", root, "-S", version, "--show-depends", name]).stdout
        for line in deps.splitlines():
            parts = line.split()
            if len(parts) >= 2 and parts[0] == "insmod" and os.path.basename(parts[1]) not in order:
                shutil.copy(parts[1], os.path.join(tree, "modules"))
                order.append(os.path.basename(parts[1]))
    with open(os.path.join(tree, "modules", "order"), "w") as f:
        f.write("\n".join(order) + "\n")
    listing = subprocess.run(["find", "."], cwd=tree, check=True, stdout=subprocess.PIPE).stdout
    archive = subprocess.run(["cpio", "-o", "-H", "newc", "--quiet"], cwd=tree, input=listing, check=True,
                             stdout=subprocess.PIPE).stdout
    with open(out + ".tmp", "wb") as f:
        f.write(subprocess.run(["gzip", "-1"], input=archive, check=True, stdout=subprocess.PIPE).stdout)
    os.replace(out + ".tmp", out)
    return out


def mkfs(path, size_mb, fs, label):
    with open(path, "wb") as f:
        f.truncate(size_mb << 20)
    if fs == "ext4":
        run(["mkfs.ext4", "-q", "-F", "-L", label, path])
    elif fs == "vfat":
        run(["mkfs.vfat", "-n", label, path])


def disk(path, size_mb, partitions):
    """A disk image with an MBR and file systems: partitions are (MiB, type, fs or None, label)."""
    with open(path, "wb") as f:
        f.truncate(size_mb << 20)
    script = "label: dos\n" + "".join(f"size={mb}MiB, type={kind}\n" for mb, kind, _, _ in partitions)
    run(["sfdisk", "-q", path], input=script)
    table = json.loads(run(["sfdisk", "-J", path]).stdout)["partitiontable"]["partitions"]
    for (mb, _, fs, label), entry in zip(partitions, table):
        if fs is None:
            continue
        part = path + ".part"
        mkfs(part, mb, fs, label)
        run(["dd", f"if={part}", f"of={path}", "bs=512", f"seek={entry['start']}", "conv=notrunc", "status=none"])
        os.remove(part)


def images(folder):
    """The sticks, named as the scenarios know them. Their file systems are made here; the
    encrypted and LVM ones are made by the guest, which has the drivers."""
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    p = lambda name: os.path.join(folder, name)
    disk(p("kstick.img"), 48, [(46, "c", "vfat", "KSTICK")])
    disk(p("parts.img"), 96, [(44, "83", "ext4", "PART1"), (44, "c", "vfat", "PART2")])
    mkfs(p("unit0.img"), 32, "ext4", "UNIT0")
    mkfs(p("unit1.img"), 32, "vfat", "UNIT1")
    disk(p("secret.img"), 64, [(62, "83", None, "")])
    disk(p("lvm.img"), 112, [(24, "83", "ext4", "BOOTPART"), (84, "8e", None, "")])
    disk(p("user.img"), 32, [(30, "c", "vfat", "USERSTICK")])
    disk(p("hot.img"), 32, [(30, "c", "vfat", "HOTPLUG")])


def usb_devices(folder):
    """QEMU options for the sticks present at boot (hot.img is plugged in later by the guest)."""
    args = ["-device", "qemu-xhci,id=xhci,p2=15,p3=15"]
    sticks = [("kstick", "KSTICK0001"), ("parts", "PARTS0001"), ("secret", "SECRET0001"), ("lvm", "LVM0001"),
              ("user", "USER0001")]
    for name, serial in sticks:
        args += ["-drive", f"if=none,id=d-{name},format=raw,file={folder}/{name}.img",
                 "-device", f"usb-storage,bus=xhci.0,drive=d-{name},serial={serial},removable=on,id=u-{name}"]
    # One USB device with two units, as a card reader with two slots has.
    args += ["-drive", f"if=none,id=d-unit0,format=raw,file={folder}/unit0.img",
             "-drive", f"if=none,id=d-unit1,format=raw,file={folder}/unit1.img",
             "-device", "usb-bot,bus=xhci.0,id=bot,serial=UNITS0001",
             "-device", "scsi-hd,bus=bot.0,scsi-id=0,lun=0,drive=d-unit0,removable=on",
             "-device", "scsi-hd,bus=bot.0,scsi-id=0,lun=1,drive=d-unit1,removable=on"]
    return args


class Monitor:
    """QEMU's machine protocol on a Unix socket, for the monitor commands the guest asks for."""

    def __init__(self, path, deadline):
        while True:
            try:
                self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
                self.sock.connect(path)
                break
            except OSError:
                if time.time() > deadline:
                    raise
                time.sleep(0.1)
        self.file = self.sock.makefile("rw")
        self.file.readline()  # the greeting
        self.call({"execute": "qmp_capabilities"})

    def call(self, request):
        self.file.write(json.dumps(request) + "\n")
        self.file.flush()
        while True:
            answer = json.loads(self.file.readline())
            if "return" in answer or "error" in answer:
                return answer

    def human(self, command):
        answer = self.call({"execute": "human-monitor-command", "arguments": {"command-line": command}})
        if "error" in answer:
            return "error: " + answer["error"].get("desc", "?")
        return answer["return"].strip() or "ok"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, help="the build folder (the guest kernel is kept in BUILD/usbvm)")
    parser.add_argument("--tests", required=True, help="the scenario test program to run in the guest")
    parser.add_argument("--filter", default="", help="a GoogleTest filter for the scenarios")
    parser.add_argument("--script", default="", help="a shell script to run in the guest in place of the scenarios")
    parser.add_argument("--timeout", type=int, default=600, help="seconds the whole guest run may take")
    parser.add_argument("--memory", type=int, default=2048, help="the guest's memory in MiB")
    args = parser.parse_args()
    started = time.time()

    if os.geteuid() != 0:
        say("skipped: needs root (the guest's packages, and QEMU's share of / with every file readable)")
        return SKIP
    if not install_packages() or not shutil.which("qemu-system-x86_64"):
        say("skipped: QEMU and the guest's packages are not installed and could not be installed")
        return SKIP
    tests = os.path.abspath(args.tests)
    if not os.access(tests, os.X_OK):
        say(f"{tests} is not a program")
        return 2

    work = os.path.join(os.path.abspath(args.build), "usbvm")
    os.makedirs(work, exist_ok=True)
    if os.path.exists(os.path.join(work, "summary.txt")):
        os.remove(os.path.join(work, "summary.txt"))
    vmlinuz, modules, version = kernel(work)
    initrd = initramfs(work, modules, version)
    folder = os.path.join(work, "run")
    images(folder)
    log_path, qmp_path = os.path.join(folder, "serial.log"), os.path.join(folder, "qmp.sock")
    append = " ".join([
        "console=ttyS0", "panic=-1", "quiet", "loglevel=3",
        "usbvm.init=" + os.path.join(HERE, "guest-init.sh"), "usbvm.modules=" + modules, "usbvm.tests=" + tests,
    ] + (["usbvm.filter=" + args.filter] if args.filter else [])
      + (["usbvm.script=" + os.path.abspath(args.script)] if args.script else []))
    accel = ["-accel", "kvm", "-cpu", "host"] if os.access("/dev/kvm", os.W_OK) else ["-accel", "tcg"]
    command = ["qemu-system-x86_64", "-m", str(args.memory), "-smp", os.environ.get("USBVM_SMP", "1"), "-no-reboot", "-display", "none",
               "-nodefaults", "-serial", "file:" + log_path, "-qmp", f"unix:{qmp_path},server=on,wait=off",
               "-kernel", vmlinuz, "-initrd", initrd, "-append", append,
               "-virtfs", "local,path=/,mount_tag=hostroot,security_model=none,readonly=on,multidevs=remap",
               ] + accel + usb_devices(folder)
    say(f"booting {version} with {len(usb_devices(folder)) // 2} USB options ({accel[1]})")
    qemu = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    deadline = started + args.timeout
    monitor = Monitor(qmp_path, time.time() + 30)

    results, guest_rc, ready_at, pending = [], None, None, ""
    position = 0
    while guest_rc is None and time.time() < deadline and qemu.poll() is None:
        with open(log_path, "rb") as f:
            f.seek(position)
            chunk = f.read()
        position += len(chunk)
        pending += chunk.decode("utf-8", "replace")
        *lines, pending = pending.split("\n")
        for line in lines:
            line = line.rstrip("\r")
            m = re.match(r".*@@usbvm (\w+) ?(.*)$", line)
            if not (m and m.group(1) == "picture"):
                print(line, flush=True)
            if m and m.group(1) == "picture":
                name, _, data = m.group(2).partition(" ")
                say(f"picture: {keep_picture(args.build, name, data)}")
            elif m and m.group(1) == "qmp":
                say(f"monitor: {m.group(2)}: {monitor.human(m.group(2).replace('@', folder + '/'))}")
            elif m and m.group(1) == "ready":
                ready_at = time.time() - started
            elif m and m.group(1) == "exit":
                guest_rc = int(m.group(2))
            t = re.match(r"\[ +(OK|FAILED|SKIPPED) +\] (\S+\.\S+) \((\d+) ms\)", line)
            if t:
                results.append((t.group(2), t.group(1), int(t.group(3))))
        if not lines:
            time.sleep(0.1)
    try:
        qemu.wait(timeout=30)
    except subprocess.TimeoutExpired:
        qemu.kill()
        qemu.wait()
    wall = time.time() - started

    passed = sum(1 for r in results if r[1] == "OK")
    failed = sum(1 for r in results if r[1] == "FAILED")
    skipped = sum(1 for r in results if r[1] == "SKIPPED")
    report = [f"{outcome:8} {name} ({ms / 1000:.1f} s)" for name, outcome, ms in results]
    if guest_rc is None:
        report.append(f"the guest did not finish within {args.timeout} s" if time.time() >= deadline else
                      f"QEMU ended without the guest finishing: {qemu.stdout.read().strip()}")
    ready = f"guest ready after {ready_at:.0f} s; " if ready_at is not None else ""
    report.append(f"{len(results)} scenarios: {passed} passed, {failed} failed, {skipped} skipped; {ready}"
                  f"wall {wall:.0f} s")
    print()
    for line in report:
        say(line)
    # Kept for CI's log and for whoever reads the run afterwards.
    with open(os.path.join(work, "summary.txt"), "w") as f:
        f.write("".join(f"usbvm: {line}\n" for line in report))
    return 0 if guest_rc == 0 and failed == 0 and (passed > 0 or args.script) else 1


def keep_picture(build, name, data):
    """A PNG the guest sent as base64, kept with the build's screenshots."""
    if not re.fullmatch(r"[\w-]+", name):
        return f"{name!r} is not a picture's name"
    folder = os.path.join(build, "screenshots")
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, name + ".png")
    try:
        with open(path, "wb") as f:
            f.write(base64.b64decode(data, validate=True))
    except (ValueError, OSError) as e:
        return f"{name}: not kept ({e})"
    return path


if __name__ == "__main__":
    sys.exit(main())
