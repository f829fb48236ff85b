// The mount table as the kernel writes it, with any bytes: parsed, its
// escapes undone, network sources named, and drive letters given.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/linux/letter_map.h"
#include "platform/linux/mountinfo.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto mounts = linuxbk::ParseMountInfo(text);
    for (const auto& m : mounts) {
        linuxbk::ShareNameOf(m.fsType, m.source);
        linuxbk::IsNetworkFileSystem(m.fsType);
    }
    linuxbk::UnescapeMount(text);
    // Letters from the table, with a system folder that has no devices.
    linuxbk::LetterMap map(linuxbk::Sysfs("/nonexistent-sys"), "/nonexistent-mountinfo");
    map.Build(mounts);
    for (const auto& d : map.Drives()) {
        if (d.letter < 'C' || d.letter > 'Z') std::abort();
        map.ToNative(d.Root() + "a\\b");
    }
    if (!map.Drives().empty()) map.ToWindows(mounts.front().mountPoint);
    return 0;
}
