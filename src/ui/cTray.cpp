#include "ui/cTray.h"

namespace ui {

// The notification-area record and its deletion at release arrive with the
// tray handling; until then releasing the object asks nothing of the shell.
cTray::~cTray() = default;

} // namespace ui
