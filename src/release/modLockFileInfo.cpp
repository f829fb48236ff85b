#include "release/modLockFileInfo.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <vector>

#include "core/program.h"
#include "core/vb.h"
#include "platform/bytes.h"
#include "platform/storage.h"
#include "platform/volumes.h"

namespace release {

namespace {

using platform::Handle;
using platform::NtStatus;

// One row of the handle table, as far as the walk needs it.
struct TableEntry {
    std::uint16_t processId; // low 16 bits of the owner's id
    std::uint8_t typeIndex;
    std::uint16_t handle;
};

// The table buffer doubles up to this size; a table that still does not fit
// is treated as unreadable.
constexpr std::uint32_t kMaxTableBytes = 1u << 30;
constexpr std::size_t kObjectNameBufferBytes = 4096;
constexpr std::size_t kDriveStringsChars = 512;
constexpr std::size_t kDeviceNameChars = 260;
constexpr std::size_t kDeviceNameOffered = 256;

std::uint16_t Read16(std::span<const std::uint8_t> b, std::size_t at) { return platform::ReadLe<std::uint16_t>(b, at); }

std::uint16_t Low16(std::uint64_t value) { return static_cast<std::uint16_t>(value & 0xFFFF); }

// Reads the whole handle table, starting from a 1-byte buffer that doubles
// while the system answers "too small". False when it cannot be read.
bool ReadHandleTable(platform::Native& native, std::vector<TableEntry>& entries) {
    namespace t = platform::handle_table;
    // Each buffer is left uninitialised but for the count, so the buffers
    // the system turns down are never touched: on a large table the pages of
    // the final buffer are the only ones written.
    std::unique_ptr<std::uint8_t[]> storage;
    std::span<std::uint8_t> buffer;
    for (std::uint32_t size = 1;; size *= 2) {
        storage = std::make_unique_for_overwrite<std::uint8_t[]>(size);
        buffer = std::span<std::uint8_t>(storage.get(), size);
        std::fill_n(buffer.begin(), std::min<std::size_t>(size, t::kEntries), std::uint8_t{0});
        std::uint32_t returned = 0;
        const NtStatus status = native.NtQuerySystemInformation(platform::kSystemHandleInformation, buffer, returned);
        if (NtSuccess(status)) break;
        if (status != platform::kStatusInfoLengthMismatch || size >= kMaxTableBytes) return false;
    }
    if (buffer.size() < t::kEntries) return true; // a success with no room for a count: no handles
    const std::size_t fits = (buffer.size() - t::kEntries) / t::kEntrySize;
    const std::size_t count = std::min<std::size_t>(platform::ReadLe32(buffer, t::kCount), fits);
    entries.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto e = buffer.subspan(t::kEntries + i * t::kEntrySize, t::kEntrySize);
        entries.push_back({Read16(e, t::kUniqueProcessId), e[t::kObjectTypeIndex], Read16(e, t::kHandleValue)});
    }
    return true;
}

// Opens a process for copying its handles; 0 when it cannot be opened.
Handle OpenForDuplication(platform::Native& native, std::uint32_t processId) {
    Handle process = 0;
    native.NtOpenProcess(process, platform::kProcessDupHandle, platform::ClientId{processId, 0});
    return process;
}

} // namespace

bool NtSuccess(NtStatus status) { return status >= 0; }

std::uint32_t GetFileTypeTimed(platform::Services& sys, Handle handle) {
    std::uint32_t fileType = 0;
    const std::uint32_t wait = sys.native.GetFileTypeOnThread(handle, kFileTypeTimeLimitMs, fileType);
    // A query still running when the limit passed, or one that never started, tells nothing.
    return wait == platform::kWaitObject0 ? fileType : 0;
}

std::string GetHandlePath(platform::Services& sys, Handle handle) {
    // The object's name in device form: "\Device\HarddiskVolume5\docs\a.txt".
    std::string name;
    {
        std::vector<std::uint8_t> info(kObjectNameBufferBytes, 0);
        std::uint32_t returned = 0;
        if (NtSuccess(sys.native.NtQueryObject(handle, platform::kObjectNameInformation, info, returned))) {
            for (std::size_t at = platform::kObjectNameText; at + 1 < info.size(); at += 2) {
                const std::uint16_t unit = Read16(info, at);
                if (unit == 0) break;
                name += unit < 0x100 ? static_cast<char>(unit) : '?';
            }
        }
    }

    std::array<char, kDriveStringsChars> roots{};
    const std::uint32_t written = sys.volumes.GetLogicalDriveStringsA(roots);
    if (written == 0) return "";
    const std::string lowerName = vb::LCase(name);
    const std::size_t end = std::min<std::size_t>(written, roots.size());
    for (std::size_t at = 0; at < end && roots[at] != '\0';) {
        const std::string root(roots.data() + at);
        at += root.size() + 1;
        if (root.size() < 2) continue;
        std::array<char, kDeviceNameChars> target{};
        sys.storage.QueryDosDeviceA(root.substr(0, 2), std::span<char>(target.data(), kDeviceNameOffered));
        // Only the first target counts. A plain prefix test: a letter whose
        // device name cannot be read (empty) is a prefix of every name.
        const std::string device(target.data());
        if (lowerName.compare(0, device.size(), vb::LCase(device)) == 0)
            return root.substr(0, 2) + name.substr(device.size());
    }
    return "";
}

bool CloseHandleInProcess(platform::Services& sys, std::uint32_t processId, Handle handle) {
    platform::Native& native = sys.native;
    NtStatus closeStatus = platform::kStatusSuccess;
    const Handle process = OpenForDuplication(native, processId);
    if (process == 0) return true;
    Handle copy = 0;
    // Closes the handle in its owner and hands the program a copy to close.
    const NtStatus status = native.NtDuplicateObject(process, handle, native.GetCurrentProcess(), copy, 0, 0,
                                                     platform::kDuplicateCloseSource | platform::kDuplicateSameAccess);
    if (NtSuccess(status)) closeStatus = native.NtClose(copy);
    native.NtClose(process);
    return NtSuccess(closeStatus);
}

bool CloseDriveHandles(platform::Services& sys, const std::string& drive, std::uint32_t processId) {
    platform::Native& native = sys.native;

    // The "NUL" device is a file every system has; its entry in the table
    // tells the object type number of files.
    const Handle nul = sys.storage.CreateFileA("NUL", platform::kGenericRead, 0, platform::kOpenExisting, 0);
    if (nul == platform::kInvalidHandleValue) return false;

    std::vector<TableEntry> table;
    if (!ReadHandleTable(native, table)) {
        native.NtClose(nul);
        return false;
    }

    std::uint8_t fileType = 0;
    const std::uint16_t ownId = Low16(native.GetCurrentProcessId());
    const auto own = std::find_if(table.begin(), table.end(), [&](const TableEntry& e) {
        return e.processId == ownId && e.handle == Low16(static_cast<std::uint64_t>(nul));
    });
    if (own != table.end()) fileType = own->typeIndex;
    native.NtClose(nul);
    if (fileType == 0) return true; // files cannot be told apart: nothing qualifies

    const std::string wanted = vb::LCase(drive);
    const std::uint16_t owner = Low16(processId);
    bool result = true;
    for (const TableEntry& entry : table) {
        if (entry.processId != owner || entry.typeIndex != fileType) continue;
        std::string path;
        const Handle process = OpenForDuplication(native, processId);
        if (process == 0) continue;
        Handle copy = 0;
        const NtStatus status = native.NtDuplicateObject(process, entry.handle, native.GetCurrentProcess(), copy, 0, 0,
                                                         platform::kDuplicateSameAttributes);
        native.NtClose(process);
        if (!NtSuccess(status)) continue;
        // A handle whose type query does not come back in time (a pipe) keeps no path.
        if (GetFileTypeTimed(sys, copy) != 0) path = GetHandlePath(sys, copy);
        native.NtClose(copy);
        if (vb::LCase(path).find(wanted) != std::string::npos) {
            if (!CloseHandleInProcess(sys, processId, entry.handle)) result = false;
        }
    }
    return result;
}

} // namespace release
