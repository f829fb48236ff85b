#pragma once
// What the scenarios in the USB guest share: commands and the build's
// kestrinectl run with their output kept, the host asked to plug and pull
// devices, the sticks found by label and serial, and mounts made as a
// desktop's automounter makes them (through udisks2).
#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace usbvm {

struct Result {
    int code = -1;
    std::string out, err;
};

// A shell command; its exit code and both outputs.
Result Sh(const std::string& command);
// The build's kestrinectl with these arguments (quoted as given), as root or as another user.
Result Ctl(const std::vector<std::string>& args, const std::string& user = "");
nlohmann::json Json(const Result& r);

// Asks the host to run a monitor command ("device_add usb-mouse,bus=xhci.0,id=m1");
// "@name" stands for the image of that name in the host's run folder.
void Host(const std::string& monitorCommand);

// Waits until the condition holds, at most the given time; whether it did.
bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit);

// udev's settled view.
void Settle();
// The device node with this file-system label ("/dev/sdb1"); "" when none.
std::string DeviceOfLabel(const std::string& label);
// The whole disk with this USB or SCSI serial ("/dev/sdc"); "" when none.
std::string DiskOfSerial(const std::string& serial);
// The kernel name of a node's disk ("sdc" for /dev/sdc1).
std::string DiskNameOf(const std::string& devNode);
// Whether a USB device with this serial is attached (in sysfs).
bool UsbPresent(const std::string& serial);

// Mounts a device through udisks2 as the desktop would; its mount point, or "" when that failed.
std::string Mount(const std::string& devNode);
// Where a device is mounted now; empty when nowhere.
std::vector<std::string> MountPoints(const std::string& devNode);
// The drive root kestrinectl lists for a mount point; "" when none.
std::string RootOf(const std::string& mountPoint);
// The row kestrinectl lists for a root (its JSON object); null when none.
nlohmann::json Row(const std::string& root);

// How many USB devices the kernel has seen disconnected so far.
int UsbDisconnects();

} // namespace usbvm
