#pragma once
// The release command: releases the USB drives selected in the drive list.
namespace app {
class frmMain;
}

namespace release {

void cmdRemoveUSB_Click(app::frmMain& form);

} // namespace release
