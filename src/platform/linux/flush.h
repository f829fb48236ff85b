#pragma once
// Writing out what the system still keeps in memory for a drive's device,
// before it is released, with the progress a terminal can show: how much is
// left to write (the device's own count where the kernel shows it, else the
// whole system's) and how much the device has written meanwhile.
#include <cstdint>
#include <functional>
#include <string>

#include "platform/linux/letter_map.h"

namespace linuxbk {

struct FlushProgress {
    std::uint64_t bytesLeft = 0;    // dirty data still to be written
    bool systemWide = false;        // bytesLeft counts every device, not this one alone
    std::uint64_t bytesWritten = 0; // by the device since the flush began
    bool done = false;
};

// Flushes every file system of the device the drive of root ("E:\") is on
// (all its partitions, units and what is stacked on them), calling progress
// about four times a second and once at the end. False when the drive has
// no device or a flush failed.
bool FlushDevice(LetterMap& map, const std::string& root, const std::function<void(const FlushProgress&)>& progress);

} // namespace linuxbk
