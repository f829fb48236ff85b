// A scenario of any form: loaded and run on the simulated machine, or
// refused with an error; it always ends.
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "kestrine-sim/scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sim::Scenario scenario([](const std::string&) {});
    try {
        scenario.Load(std::string_view(reinterpret_cast<const char*>(data), size));
        scenario.Run();
    } catch (const std::exception&) {
        // refused with a message: the designed answer
    }
    return 0;
}
