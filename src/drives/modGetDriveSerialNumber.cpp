#include "drives/modGetDriveSerialNumber.h"

namespace drives {

// The disk serial lookup is not built yet: no serial text and no device ID.
std::string GetSerialNumber(app::Program&, app::Ctl, const std::string&) { return {}; }

} // namespace drives
