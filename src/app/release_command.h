#pragma once
// The release command: releases the USB drives selected in the drive list,
// one after another. For each it checks the bus, shows the releasing notice,
// closes the program's own handles on the drive and asks the device manager
// to eject the device; success goes to the released notice, failure to a
// message box, and the first failure ends the run.
//
// The button and the close request are disabled while a run yields to the
// message loop. The Delete and Enter keys and the menu entries reach this
// handler too: a request that arrives while a run is under way is refused
// (it does nothing, as a click on the disabled button does), so two runs
// never share the work list.
#include "core/fwd.h"

namespace release {

inline constexpr const char* kNotUsbDevice = "Not a USB device!";
inline constexpr const char* kUsbDeviceNotFound = "USB device not found!";
inline constexpr const char* kErrorWithDrive = "Error with drive ";
inline constexpr const char* kUnableToRelease = "Unable to release ";
inline constexpr const char* kReleasingAt = "Releasing USB drive at [ ";
inline constexpr const char* kPleaseWait = "This may take some time. Please wait.";

void cmdRemoveUSB_Click(app::frmMain& form);

} // namespace release
