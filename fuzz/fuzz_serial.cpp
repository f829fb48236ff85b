// The serial number cut from a Plug-and-Play device ID of any form.
#include <cstdint>
#include <string>

#include "drives/modGetDriveSerialNumber.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    drives::ExtractSerial(app::Ctl::lblWMIDeviceID, std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
