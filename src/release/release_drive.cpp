#include "release/release_drive.h"

#include "core/program.h"
#include "core/vb.h"
#include "drives/modGetDriveType.h"
#include "platform/services.h"
#include "release/modLockFileInfo.h"
#include "release/modRemoveUsbDrive.h"

namespace release {

bool IsSystemDrive(const std::string& entry) { return entry.find("C:\\") != std::string::npos; }

bool OnUsbBus(platform::Services& sys, const std::string& drive) { return drives::GetBusType(sys, drive) == "Usb"; }

std::optional<Refusal> WhyNotReleasable(platform::Services& sys, const std::string& root) {
    if (IsSystemDrive(root)) return Refusal::kSystemDrive;
    if (!sys.fso.GetDrive(root)) return Refusal::kNoSuchDrive;
    if (!OnUsbBus(sys, vb::Left(root, 2))) return Refusal::kNotUsb;
    return std::nullopt;
}

Outcome ReleaseDrive(platform::Services& sys, const std::string& root, std::int16_t SystemNotice) {
    const std::string drive = vb::Left(root, 2);
    if (!CloseDriveHandles(sys, drive, sys.native.GetCurrentProcessId())) return Outcome::kHandlesNotClosed;
    if (EjectUsbDrive(sys, "\\\\.\\" + drive, SystemNotice) == app::kFalse) return Outcome::kNotEjected;
    return Outcome::kReleased;
}

} // namespace release
