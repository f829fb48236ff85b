#pragma once
// What many tests share: a simulated machine with the program or its main
// window on it, builders for its drives and devices (the system drive, a
// drive with its bus, a USB stick with its mass-storage device and the disk
// below it), and typed queries on the machine's call journal.
#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "app/frmMain.h"
#include "core/program.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace builders {

// A simulated machine and a program on it, without its main window.
struct ProgramRig {
    fake::Machine machine;
    platform::Services services{machine.services()};
    fake::HeadlessView view;
    app::Program program{services, view};
};

// A simulated machine on which the main window is made when a test says so.
struct WindowRig {
    fake::Machine machine;
    platform::Services services{machine.services()};
    fake::HeadlessView view;
    std::unique_ptr<app::frmMain> form;
};

// The system drive most tests start from: C:\ "System", 100 GB, 40 GB free.
inline fake::Drive SystemDrive() {
    return {.root = "C:\\",
            .type = platform::kDriveFixed,
            .label = "System",
            .totalBytes = 100ull << 30,
            .freeBytes = 40ull << 30};
}

// A drive whose storage driver reports the bus and the device number (none:
// the query fails).
inline fake::Drive MakeDrive(std::string root, std::uint32_t type, std::string label, std::optional<std::uint32_t> bus,
                             std::optional<std::uint32_t> deviceNumber) {
    return {.root = std::move(root), .type = type, .label = std::move(label), .bus = bus, .deviceNumber = deviceNumber};
}

struct Stick {
    std::string root;                        // "E:\"
    std::uint32_t number = 1;                // the storage device number of the volume and of the disk
    std::string serial = {};                 // the end of the instance IDs; empty: "SN" and the number
    std::vector<std::uint32_t> answers = {}; // the device manager's answers to eject requests
    std::uint32_t type = platform::kDriveRemovable;
    std::string label = "STICK";
};

// The instance ID of a stick's USB mass-storage device, the one a release ejects.
inline std::string StickDevice(const Stick& s) {
    return "USB\\VID_0781&PID_5567\\" + (s.serial.empty() ? "SN" + std::to_string(s.number) : s.serial);
}

// A USB stick: its drive on the USB bus, the mass-storage device and the disk
// interface below it with the same device number. Returns the device's ID.
inline std::string AddStick(fake::Machine& m, const Stick& s) {
    m.AddDrive(MakeDrive(s.root, s.type, s.label, platform::kBusTypeUsb, s.number));
    fake::Device parent;
    parent.instanceId = StickDevice(s);
    parent.ejectAnswers = s.answers;
    m.hardware().AddDevice(parent);
    fake::Device disk;
    disk.instanceId =
        "USBSTOR\\DISK&VEN_ACME\\" + (s.serial.empty() ? "SN" + std::to_string(s.number) : s.serial) + "&0";
    disk.parent = parent.instanceId;
    disk.interfaceClass = platform::kGuidDevinterfaceDisk;
    disk.deviceNumber = s.number;
    m.hardware().AddDevice(disk);
    return parent.instanceId;
}

// One eject request of the journal: the device asked to eject and the
// device manager's answer ("CR_SUCCESS", "CR_REMOVE_VETOED", ...).
struct EjectRequest {
    std::string device;
    std::string result;
    auto operator<=>(const EjectRequest&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const EjectRequest& r) { return out << r.device << " " << r.result; }
inline std::vector<EjectRequest> EjectRequests(const fake::Machine& m) {
    std::vector<EjectRequest> out;
    for (const auto& c : m.Calls("CM_Request_Device_EjectW")) out.push_back({c.args.at(0), c.result});
    return out;
}

} // namespace builders
