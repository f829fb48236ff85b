#include "platform/linux/flush.h"

#include <atomic>
#include <chrono>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "platform/linux/release_plan.h"

namespace linuxbk {

namespace {

// A "Name:  123 kB" line of a /proc or debugfs statistics file, in bytes.
std::uint64_t KiloBytes(const std::string& text, const std::string& name) {
    const auto at = text.find(name + ":");
    if (at == std::string::npos) return 0;
    std::istringstream line(text.substr(at + name.size() + 1));
    std::uint64_t kb = 0;
    line >> kb;
    return kb * 1024;
}

// Sectors the disk has written in all (the seventh field of its stat).
std::uint64_t SectorsWritten(const std::string& diskPath) {
    std::istringstream stat(ReadFile(diskPath + "/stat").value_or(""));
    std::uint64_t field = 0, value = 0;
    for (int i = 0; i < 7 && stat >> value; ++i) field = value;
    return field;
}

} // namespace

bool FlushDevice(LetterMap& map, const std::string& root, const std::function<void(const FlushProgress&)>& progress) {
    const DriveRecord* drive = map.DriveOf(root);
    if (drive == nullptr || !drive->block) return false;
    const auto disk = map.sys().Disk(drive->block->diskName);
    if (!disk) return false;
    std::vector<DiskInfo> disks;
    const auto leaves = map.sys().Leaves(disk->name);
    for (const auto& leaf : leaves.empty() ? std::vector<std::string>{disk->name} : leaves)
        if (const auto d = map.sys().Disk(leaf))
            for (auto& each : DisksOfDevice(map.sys(), *d)) disks.push_back(std::move(each));
    PlanOptions options;
    const ReleasePlan plan = PlanRelease(map, disks, options);

    // The writing happens on a thread; this one watches the counters.
    std::atomic<bool> finished{false}, ok{true};
    std::vector<std::string> points;
    for (const auto& m : plan.mounts) points.push_back(m.mountPoint);
    std::thread writer([&] {
        for (const auto& point : points) {
            UniqueFd fd(::open(point.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (!fd || ::syncfs(fd.get()) != 0) ok = false;
        }
        for (const auto& d : disks) {
            UniqueFd fd(::open(d.devNode.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
            if (fd) ::fsync(fd.get());
        }
        finished = true;
    });
    std::uint64_t start = 0;
    for (const auto& d : disks) start += SectorsWritten(d.path);
    for (;;) {
        FlushProgress p;
        // The device's own dirty data where debugfs shows it, else the system's.
        bool perDevice = false;
        for (const auto& d : disks) {
            const auto stats =
                ReadFile("/sys/kernel/debug/bdi/" + std::to_string(d.major) + ":" + std::to_string(d.minor) + "/stats");
            if (!stats) continue;
            perDevice = true;
            p.bytesLeft += KiloBytes(*stats, "BdiDirty") + KiloBytes(*stats, "BdiWriteback");
        }
        if (!perDevice) {
            const std::string meminfo = ReadFile("/proc/meminfo").value_or("");
            p.bytesLeft = KiloBytes(meminfo, "Dirty") + KiloBytes(meminfo, "Writeback");
            p.systemWide = true;
        }
        std::uint64_t now = 0;
        for (const auto& d : disks) now += SectorsWritten(d.path);
        p.bytesWritten = (now >= start ? now - start : 0) * 512;
        p.done = finished;
        if (p.done && !p.systemWide) p.bytesLeft = 0;
        if (progress) progress(p);
        if (p.done) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    writer.join();
    return ok;
}

} // namespace linuxbk
