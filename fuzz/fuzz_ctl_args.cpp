// kestrinectl's command line: any arguments (NUL-separated in the input)
// are parsed into options or one sentence saying what is wrong.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "ctl/ctl.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> args(1);
    for (std::size_t i = 0; i < size && args.size() < 64; ++i) {
        if (data[i] == 0)
            args.emplace_back();
        else
            args.back() += static_cast<char>(data[i]);
    }
    const ctl::Parsed parsed = ctl::ParseArgs(args);
    if (!parsed.error.empty() && parsed.error.back() != '.') std::abort(); // a sentence
    ctl::Usage(parsed.options.command);
    return 0;
}
