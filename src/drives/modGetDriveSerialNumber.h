#pragma once
// modGetDriveSerialNumber: the serial number of the disk a drive lives on.
#include <string>

#include "app/form_table.h"

namespace app {
struct Program;
}

namespace drives {

// The serial text of the disk that holds drive ("E:"); writes the disk's
// device ID (or the note that there is none) into the label.
std::string GetSerialNumber(app::Program& prog, app::Ctl label, const std::string& drive);

} // namespace drives
