#!/usr/bin/env python3
"""Kestrine beside the system's own tools, in one run.

Paired runs on loop drives of this machine (it needs root), medians of CPU
time and wall time, and the machine's load before and after:

  list      kestrinectl list --json     beside  lsblk -J -o NAME,LABEL,FSTYPE,SIZE,MOUNTPOINT
            at 1, 8 and 32 mounted drives
  watch     a mount seen by kestrinectl watch --json  beside  findmnt --poll
            (latency from the mount's return to the line; CPU per mount/unmount)
  window    a mount seen in the Kestrine window's list (the Qt program offscreen,
            --print-rows printing each repaint that changed the rows) beside findmnt --poll
  idle      wake-ups (context switches) of kestrinectl watch and of the window
            while nothing happens, and their resident memory
  closewait CPU time of the half-second close wait (kestrine_wait_bench)

The last line sums it up:
  list/lsblk cpu X.XX  watch/findmnt X.XX  window/findmnt X.XX  idle-wakeups N  closewait-cpu-ms N

    compare.py --build BUILD [--runs N] [--cycles N] [--idle SECONDS]

For information only: the figures depend on the machine and its load.
Exit codes: 0 measured, 77 not root or a tool missing, 1 a measure failed.
"""
import argparse
import ctypes
import json
import os
import queue
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time

libc = ctypes.CDLL("libc.so.6", use_errno=True)
libc.mount.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_ulong, ctypes.c_void_p]
libc.umount2.argtypes = [ctypes.c_char_p, ctypes.c_int]


def say(text):
    print(f"compare: {text}", flush=True)


def run(command, **kwargs):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **kwargs)


class Drives:
    """Loop devices with ext4 file systems, mounted in a folder of their own."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="kestrine-compare-")
        self.drives = []  # (device, mount point or None)

    def add(self, label, mounted=True):
        image = os.path.join(self.folder, f"{label}.img")
        with open(image, "wb") as f:
            f.truncate(8 << 20)
        run(["mkfs.ext4", "-q", "-L", label, image])
        device = run(["losetup", "--find", "--show", image]).stdout.strip()
        point = os.path.join(self.folder, label)
        os.makedirs(point)
        self.drives.append([device, None, point])
        if mounted:
            self.mount(len(self.drives) - 1)
        return len(self.drives) - 1

    def mount(self, index):
        device, _, point = self.drives[index]
        if libc.mount(device.encode(), point.encode(), b"ext4", 0, None) != 0:
            raise OSError(ctypes.get_errno(), f"mount {device}")
        self.drives[index][1] = point

    def unmount(self, index):
        point = self.drives[index][1]
        if libc.umount2(point.encode(), 0) != 0:
            raise OSError(ctypes.get_errno(), f"umount {point}")
        self.drives[index][1] = None

    def close(self):
        for device, point, _ in reversed(self.drives):
            if point:
                libc.umount2(point.encode(), 2)  # MNT_DETACH
            subprocess.run(["losetup", "-d", device], stderr=subprocess.DEVNULL)
        shutil.rmtree(self.folder, ignore_errors=True)


def timed(command, env=None):
    """CPU seconds (user + system, the child's) and wall seconds of one run."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime), wall


def paired(a, b, runs):
    """Medians of CPU and wall of a and b, run in turns (first a, then b first)."""
    ta, tb = [], []
    for i in range(runs):
        if i % 2 == 0:
            ta.append(timed(a))
            tb.append(timed(b))
        else:
            tb.append(timed(b))
            ta.append(timed(a))
    med = lambda xs, k: statistics.median(x[k] for x in xs)
    return med(ta, 0), med(ta, 1), med(tb, 0), med(tb, 1)


class Lines:
    """A program whose output lines are read as they come, with their time."""

    def __init__(self, command, env=None):
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                                        env=env, bufsize=1)
        self.lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put((time.perf_counter(), line.rstrip("\n")))

    def wait_for(self, text, limit=10.0):
        """The time of the first line holding text; None when none came in time."""
        end = time.perf_counter() + limit
        while True:
            try:
                at, line = self.lines.get(timeout=max(0.0, end - time.perf_counter()))
            except queue.Empty:
                return None
            if text in line:
                return at

    def drain(self):
        while not self.lines.empty():
            self.lines.get_nowait()

    def cpu(self):
        """CPU seconds of every thread so far (schedstat, in nanoseconds)."""
        total = 0
        for task in os.listdir(f"/proc/{self.process.pid}/task"):
            with open(f"/proc/{self.process.pid}/task/{task}/schedstat") as f:
                total += int(f.read().split()[0])
        return total / 1e9

    def switches(self):
        total = 0
        for task in os.listdir(f"/proc/{self.process.pid}/task"):
            with open(f"/proc/{self.process.pid}/task/{task}/status") as f:
                for line in f:
                    if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                        total += int(line.split()[1])
        return total

    def resident_mb(self):
        with open(f"/proc/{self.process.pid}/status") as f:
            for line in f:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1]) / 1024
        return 0.0

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(timeout=5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def reaction(drives, index, label, watchers, cycles):
    """Median latency per watcher from a mount's return to its line, and CPU per cycle."""
    latencies = {name: [] for name in watchers}
    cpu_before = {name: w.cpu() for name, (w, _) in watchers.items()}
    for _ in range(cycles):
        for w, _ in watchers.values():
            w.drain()
        drives.mount(index)
        mounted = time.perf_counter()
        for name, (w, text) in watchers.items():
            at = w.wait_for(text(label))
            if at is not None:
                latencies[name].append(at - mounted)
        time.sleep(0.05)
        drives.unmount(index)
        time.sleep(0.15)  # every watcher has seen the unmount
    cpu = {name: (w.cpu() - cpu_before[name]) / cycles for name, (w, _) in watchers.items()}
    return {name: (statistics.median(v) if v else None, len(v)) for name, v in latencies.items()}, cpu


def idle(programs, seconds):
    before = {name: p.switches() for name, p in programs.items()}
    time.sleep(seconds)
    return {name: p.switches() - before[name] for name, p in programs.items()}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", required=True, help="a Release build with kestrinectl, kestrine and kestrine_wait_bench")
    parser.add_argument("--runs", type=int, default=15, help="paired runs per listing measure")
    parser.add_argument("--cycles", type=int, default=20, help="mount/unmount cycles for the reaction")
    parser.add_argument("--idle", type=float, default=20, help="seconds to count idle wake-ups")
    args = parser.parse_args()

    ctl = os.path.join(args.build, "tools", "kestrinectl")
    window = os.path.join(args.build, "tools", "kestrine")
    wait_bench = os.path.join(args.build, "bench", "kestrine_wait_bench")
    if os.geteuid() != 0:
        say("skipped: loop drives need root")
        return 77
    for tool in ("lsblk", "findmnt", "losetup", "mkfs.ext4"):
        if shutil.which(tool) is None:
            say(f"skipped: {tool} is missing")
            return 77
    for program in (ctl, window):
        if not os.access(program, os.X_OK):
            say(f"skipped: {program} is not built")
            return 77

    with open("/proc/loadavg") as f:
        load_before = f.read().split()[:3]
    say(f"{os.cpu_count()} processors, load {' '.join(load_before)}; {args.runs} paired runs, medians")
    drives = Drives()
    summary = {}
    failed = False
    runtime = tempfile.mkdtemp(prefix="kestrine-compare-runtime-")
    os.chmod(runtime, 0o700)
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", XDG_RUNTIME_DIR=runtime)
    try:
        # Listing at 1, 8 and 32 drives.
        worst = 0.0
        print(f"{'drives':>6}  {'kestrinectl cpu':>15} {'lsblk cpu':>9} {'ratio':>5}   {'kestrinectl wall':>16} "
              f"{'lsblk wall':>10} {'ratio':>5}")
        for level in (1, 8, 32):
            while len(drives.drives) < level:
                drives.add(f"KCMP{len(drives.drives):02d}")
            c_cpu, c_wall, l_cpu, l_wall = paired([ctl, "list", "--json"],
                                                  ["lsblk", "-J", "-o", "NAME,LABEL,FSTYPE,SIZE,MOUNTPOINT"], args.runs)
            ratio_cpu, ratio_wall = c_cpu / max(l_cpu, 1e-6), c_wall / max(l_wall, 1e-6)
            worst = max(worst, ratio_cpu)
            print(f"{level:>6}  {c_cpu * 1000:>12.2f} ms {l_cpu * 1000:>6.2f} ms {ratio_cpu:>5.2f}   "
                  f"{c_wall * 1000:>13.2f} ms {l_wall * 1000:>7.2f} ms {ratio_wall:>5.2f}")
        summary["list"] = worst

        # Reaction to a mount: kestrinectl watch, the window, findmnt --poll,
        # side by side, with one other drive mounted (the letters run out at
        # 24 drives).
        for index in range(1, len(drives.drives)):
            drives.unmount(index)
        react = drives.add("KREACT", mounted=False)
        findmnt = Lines(["findmnt", "--poll", "-o", "ACTION,TARGET"])
        watch = Lines([ctl, "watch", "--json"], env=env)
        win = Lines([window, "--print-rows"], env=env)
        if win.wait_for("caption:", 20) is None:
            say("the window did not show")
            failed = True
        time.sleep(1.0)
        results, cpu = reaction(drives, react, "KREACT", {
            "findmnt": (findmnt, lambda label: "mount "),
            "watch": (watch, lambda label: '"arrival"'),
            "window": (win, lambda label: "| KREACT |"),
        }, args.cycles)
        base = results["findmnt"][0]
        print(f"{'reaction':<10} {'median ms':>9} {'seen':>6} {'cpu/cycle ms':>12} {'ratio':>6}")
        for name in ("findmnt", "watch", "window"):
            median, seen = results[name]
            ratio = median / base if median is not None and base else None
            print(f"{name:<10} {median * 1000 if median is not None else float('nan'):>9.2f} "
                  f"{seen:>3}/{args.cycles:<2} {cpu[name] * 1000:>12.2f} {ratio if ratio is not None else float('nan'):>6.2f}")
            if seen < args.cycles:
                failed = True
        summary["watch"] = results["watch"][0] / base if base and results["watch"][0] else float("nan")
        summary["window"] = results["window"][0] / base if base and results["window"][0] else float("nan")

        # Idle: nothing happens for a while.
        time.sleep(1.0)
        woke = idle({"watch": watch, "window": win, "findmnt": findmnt}, args.idle)
        print(f"idle {args.idle:.0f} s: wake-ups watch {woke['watch']}, window {woke['window']}, "
              f"findmnt {woke['findmnt']}; resident watch {watch.resident_mb():.1f} MB, "
              f"window {win.resident_mb():.1f} MB, findmnt {findmnt.resident_mb():.1f} MB")
        summary["idle"] = woke["watch"]
        for p in (findmnt, watch, win):
            p.stop()
    finally:
        drives.close()
        shutil.rmtree(runtime, ignore_errors=True)

    # The close wait's CPU time.
    summary["closewait"] = float("nan")
    if os.access(wait_bench, os.X_OK):
        out = run([wait_bench, "--benchmark_format=json"], env=env).stdout
        figures = {b["name"]: b for b in json.loads(out)["benchmarks"]}
        for name, b in figures.items():
            print(f"{name}: {b['real_time']:.1f} ms wall, {b['cpu_time']:.2f} ms CPU per half-second wait")
        summary["closewait"] = max(b["cpu_time"] for b in figures.values())

    with open("/proc/loadavg") as f:
        say(f"load after {' '.join(f.read().split()[:3])}")
    print(f"list/lsblk cpu {summary['list']:.2f}  watch/findmnt {summary['watch']:.2f}  "
          f"window/findmnt {summary['window']:.2f}  idle-wakeups {summary['idle']}  "
          f"closewait-cpu-ms {summary['closewait']:.0f}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
