#pragma once
// What may be released and the release of one drive, as the release command
// and kestrinectl both do it: never the system drive, only a drive on a USB
// bus; the program's own handles on the drive closed, then its device asked
// to eject.
#include "core/fwd.h"
#include <cstdint>
#include <optional>
#include <string>

namespace release {

// A drive list entry or root that names the system drive C:\ anywhere.
bool IsSystemDrive(const std::string& entry);
// The drive ("E:") sits on a USB bus, as its storage driver tells.
bool OnUsbBus(platform::Services& sys, const std::string& drive);

// Why a root ("E:\") may not be released: the system drive, a drive that
// is not there, a drive on another bus. Nothing when it may.
enum class Refusal { kSystemDrive, kNoSuchDrive, kNotUsb };
std::optional<Refusal> WhyNotReleasable(platform::Services& sys, const std::string& root);

// The outcome of one release. The first failing step ends it.
enum class Outcome {
    kReleased,
    kHandlesNotClosed, // closing the program's own handles on the drive failed
    kNotEjected,       // the device was not found or the device manager refused
};
// Closes the program's handles on the root's drive and asks for its device
// to be ejected; SystemNotice as EjectUsbDrive takes it.
Outcome ReleaseDrive(platform::Services& sys, const std::string& root, std::int16_t SystemNotice);

} // namespace release
