#pragma once
// Who holds a drive on Linux: every process whose open files (/proc/<pid>/fd),
// working directory, root directory, program or mapped files lie on the
// drive's file system, told by the device number of what is held, so a drive
// mounted below another counts for itself only. Processes whose entries
// cannot be read (other users' when not root) are left out.
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/letter_map.h"
#include "platform/processes.h"

namespace linuxbk {

// A device number as stat reports it (st_dev, st_rdev).
using DevNumber = std::uint64_t;
DevNumber DevOf(std::uint32_t major, std::uint32_t minor);

// Every hold on the file systems whose device numbers are in fileSystems, and
// every open device node of the block devices in blockDevices ("device"), by
// process id, one entry per held object.
// uninspected, when given, receives how many processes could not be looked
// into (other users' processes, when not root).
std::vector<platform::ProcessHold> HoldsOn(const std::string& procRoot, const std::set<DevNumber>& fileSystems,
                                           const std::set<DevNumber>& blockDevices = {},
                                           std::size_t* uninspected = nullptr);

class LinuxProcesses : public platform::Processes {
public:
    explicit LinuxProcesses(LetterMap& map, std::string procRoot = "/proc")
        : map_(map), procRoot_(std::move(procRoot)) {}

    std::vector<platform::ProcessHold> WhoHolds(const std::string& root) override;
    // What holds any file system of the device the drive is on: its other
    // partitions and units, and what is stacked on them.
    std::vector<platform::ProcessHold> WhoBlocksRelease(const std::string& root) override;
    std::size_t Uninspected() const override { return uninspected_; }

private:
    LetterMap& map_;
    std::string procRoot_;
    std::size_t uninspected_ = 0;
};

} // namespace linuxbk
