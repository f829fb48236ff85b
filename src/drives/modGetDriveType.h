#pragma once
// modGetDriveType: asks a volume's storage driver which bus the drive sits on,
// and fills the USB drive list.
#include <string>

#include "app/form_table.h"

namespace app {
struct Program;
}

namespace drives {

// Fills the list box with one line per drive ("E:\STICK (USB)", "C:\System",
// "D:\") and returns true when at least one drive sits on a USB bus.
bool ListDrives(app::Program& prog, app::Ctl list);

} // namespace drives
