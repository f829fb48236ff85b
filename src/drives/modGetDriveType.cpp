#include "drives/modGetDriveType.h"

namespace drives {

// The storage bus probe is not built yet: the list stays as it is and no
// drive counts as a USB drive.
bool ListDrives(app::Program&, app::Ctl) { return false; }

} // namespace drives
