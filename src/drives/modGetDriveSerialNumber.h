#pragma once
// modGetDriveSerialNumber: the serial number of the disk a drive lives on,
// cut from the Plug-and-Play device ID the management service gives for it.
#include <optional>
#include <string>

#include "core/form_table.h"
#include "core/fwd.h"

namespace drives {

inline constexpr const char* kNoDeviceId = "None (not hard-disk or USB device)";
inline constexpr const char* kNoSerial = "none";

// The serial text of the disk that holds drive ("E:"); writes the disk's
// device ID (or the note that there is none) into the label.
std::string GetSerialNumber(app::Program& prog, app::Ctl label, const std::string& drive);

// The PNP device ID of the first disk (in the service's order) that holds the
// drive ("E:"), found through its partitions and their logical disks; nothing
// when none does.
std::optional<std::string> FindPNPDeviceID(platform::Services& sys, const std::string& sDrive);

// The same, "" when none does; when found, the label shows the ID with every
// "&" doubled.
std::string GetPNPDeviceID(app::Program& prog, app::Ctl label, const std::string& sDrive);

// The instance part of a device ID (after the last "\") with its "&"-separated
// parts joined by single spaces, empty parts left out.
std::string ExtractSerial(app::Ctl label, const std::string& deviceId);
// The serial text of a device ID: ExtractSerial's, or "none" for a blank ID.
std::string SerialOfDeviceId(const std::string& deviceId);

} // namespace drives
