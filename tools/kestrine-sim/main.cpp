// kestrine-sim: runs Kestrine on a simulated machine and prints what a user
// would see, one JSON object per line.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "kestrine-sim/scenario.h"

namespace {

constexpr const char* kUsage =
    "usage: kestrine-sim [SCENARIO.json | --demo | --print-demo]\n"
    "\n"
    "Runs Kestrine on a simulated machine and the headless window and prints one\n"
    "JSON object per line for every observable event, then the final state.\n"
    "Without an argument, or with --demo, it runs the built-in demonstration;\n"
    "--print-demo prints that scenario. The formats are in docs/kestrine-sim.md.\n";

} // namespace

int main(int argc, char** argv) {
    std::string text;
    if (argc > 2) {
        std::cerr << kUsage;
        return 2;
    }
    const std::string arg = argc == 2 ? argv[1] : "--demo";
    if (arg == "--help" || arg == "-h") {
        std::cout << kUsage;
        return 0;
    }
    if (arg == "--print-demo") {
        std::cout << sim::DemoScenario() << "\n";
        return 0;
    }
    if (arg == "--demo") {
        text = std::string(sim::DemoScenario());
    } else {
        std::ifstream in(arg, std::ios::binary);
        if (!in) {
            std::cerr << "kestrine-sim: cannot read the scenario file \"" << arg << "\".\n";
            return 2;
        }
        std::ostringstream all;
        all << in.rdbuf();
        text = all.str();
    }
    try {
        sim::Scenario scenario([](const std::string& line) { std::cout << line << "\n"; });
        scenario.Load(text);
        scenario.Run();
    } catch (const std::exception& e) {
        std::cout.flush();
        std::cerr << "kestrine-sim: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
