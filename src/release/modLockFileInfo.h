#pragma once
// Closing the open handles a process holds on a drive, so the drive can be
// ejected: the system's handle table is read, the file handles of the process
// are named one by one (each type query with a time limit, as some pipes
// never answer), and every handle whose path lies on the drive is closed
// inside its owner.
#include <cstdint>
#include <string>

#include "core/fwd.h"
#include "platform/native.h"
#include "platform/types.h"

namespace release {

// How long the file-type query of one handle may take.
inline constexpr std::uint32_t kFileTypeTimeLimitMs = 100;

// Closes every file handle of processId whose path contains drive ("E:"), any
// case. False when the file object type cannot be learned (the "NUL" device
// does not open), the handle table cannot be read, or closing a handle's copy
// fails; the other handles are processed all the same.
bool CloseDriveHandles(platform::Services& sys, const std::string& drive, std::uint32_t processId);

// Closes one handle inside its owning process. False only when closing the
// program's copy fails; a process that does not open or a handle that cannot
// be copied counts as done.
bool CloseHandleInProcess(platform::Services& sys, std::uint32_t processId, platform::Handle handle);

// The path of a handle of the program's own process in drive-letter form
// ("E:\docs\a.txt"), or "" when its name lies on no drive or cannot be read.
std::string GetHandlePath(platform::Services& sys, platform::Handle handle);

// The handle's file type as GetFileType reports it, or 0 when the query does
// not finish within kFileTypeTimeLimitMs or cannot be started.
std::uint32_t GetFileTypeTimed(platform::Services& sys, platform::Handle handle);

// A status is a success when it is not negative.
bool NtSuccess(platform::NtStatus status);

} // namespace release
