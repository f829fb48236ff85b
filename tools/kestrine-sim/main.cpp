// kestrine-sim: runs Kestrine on a simulated machine and prints what a user
// would see, one JSON object per line.
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "kestrine-sim/scenario.h"

namespace {

constexpr const char* kUsage = "usage: kestrine-sim [--show] [SCENARIO.json | --demo | --print-demo]\n"
                               "\n"
                               "Runs Kestrine on a simulated machine and the headless window and prints one\n"
                               "JSON object per line for every observable event, then the final state.\n"
                               "Without an argument, or with --demo, it runs the built-in demonstration;\n"
                               "--print-demo prints that scenario. With --show it prints, instead of the\n"
                               "events, what the window shows after each step. The formats are in\n"
                               "docs/kestrine-sim.md.\n";

} // namespace

int main(int argc, char** argv) {
    std::string text;
    bool show = false;
    std::vector<std::string> args(argv + 1, argv + argc);
    if (!args.empty() && args.front() == "--show") {
        show = true;
        args.erase(args.begin());
    }
    if (args.size() > 1) {
        std::cerr << kUsage;
        return 2;
    }
    const std::string arg = args.empty() ? "--demo" : args.front();
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
        sim::Scenario scenario([show](const std::string& line) {
            if (!show) std::cout << line << "\n";
        });
        if (show) {
            scenario.AfterStep([&scenario](std::size_t index, const std::string& what) {
                std::cout << "after step " << index << " (" << what << "):\n" << scenario.WindowText() << "\n";
            });
        }
        scenario.Load(text);
        scenario.Run();
    } catch (const std::exception& e) {
        std::cout.flush();
        std::cerr << "kestrine-sim: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
