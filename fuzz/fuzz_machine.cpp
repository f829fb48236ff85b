// A machine description of any form: loaded, or refused with an error;
// a loaded one answers the drive list.
#include <array>
#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/fake/machine.h"
#include "platform/fake/processes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    fake::Machine machine;
    fake::FakeProcesses processes;
    try {
        fake::Machine::LoadJson(machine, text);
        processes.LoadJson(nlohmann::json::parse(text));
    } catch (const std::exception&) {
        return 0; // refused with a message: the designed answer
    }
    std::array<char, 64> roots{};
    machine.services().volumes.GetLogicalDriveStringsA(roots);
    return 0;
}
