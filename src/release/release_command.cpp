#include "release/release_command.h"

namespace release {

// The release command is not built yet: nothing is released.
void cmdRemoveUSB_Click(app::frmMain&) {}

} // namespace release
