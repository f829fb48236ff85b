// A stick's USB.ini as the drive inventory reads it when it finds one
// drive: any bytes, on the simulated machine.
#include <cstdint>
#include <string>

#include "core/program.h"
#include "drives/cDrive.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fake::Machine machine;
    fake::Drive stick;
    stick.root = "E:\\";
    stick.type = platform::kDriveRemovable;
    stick.label = "STICK";
    machine.AddDrive(stick);
    machine.SetProgramFolder("E:\\Kestrine");
    machine.AddFile("E:\\Kestrine\\Connect.ico", "icon");
    machine.AddFile("E:\\USB.ini", std::string(reinterpret_cast<const char*>(data), size));
    platform::Services services = machine.services();
    fake::HeadlessView view;
    app::Program prog(services, view);
    drives::cDrive drive(prog);
    drive.mp_GetDriveTyps(); // one drive: its USB.ini is read
    for (int i = 0; i < drive.p_USBInfosCount(); ++i) drive.p_GetUSBInfos(std::to_string(i));
    return 0;
}
