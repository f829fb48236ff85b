#pragma once
// Runs a scenario (a machine description and the user's steps) against the
// simulated machine and the headless window, and reports every observable
// event as one JSON object per line, then the final state.
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>

#include "app/frmMain.h"
#include "platform/fake/headless_view.h"
#include "platform/fake/machine.h"

namespace sim {

class Scenario {
public:
    using Sink = std::function<void(const std::string& line)>;

    explicit Scenario(Sink sink);
    ~Scenario();

    // Reads the scenario; throws std::runtime_error with a clear message when
    // it is malformed.
    void Load(std::string_view json);
    // Runs every step, then reports the final state.
    void Run();
    // Calls back after every step (with its number and kind).
    void AfterStep(std::function<void(std::size_t, const std::string&)> after) { after_ = std::move(after); }
    // What the window shows now, as plain text.
    std::string WindowText() const;

    fake::Machine& machine() { return machine_; }
    fake::HeadlessView& view() { return view_; }
    app::frmMain* form() { return form_.get(); }

private:
    struct Impl;
    struct Step;
    void runStep(std::size_t index);
    // Runs one step: a step of the list (yield 0), or one that arrives at
    // that yield of a handler (counted from the step that asked for it).
    void perform(const nlohmann::ordered_json& step, std::size_t index, std::int64_t yield);
    // Schedules a step for the yield numbered target (the machine's count).
    void queueAtYield(const nlohmann::ordered_json& step, std::size_t index, std::int64_t base, std::int64_t target,
                      std::uint64_t owner);
    // At every yield: the steps due then, in the order they were asked for.
    void onYield();
    // The window repaints before anything else is reported, so a picture
    // painted earlier is reported first.
    // Nothing is reported after the final state (the program's objects
    // going away when the scenario ends are not the user's events).
    void emit(const std::string& line) {
        if (finished_) return;
        view_.Repaint();
        sink_(line);
    }
    void start();
    double Timer();

    Sink sink_;
    bool finished_ = false;
    std::function<void(std::size_t, const std::string&)> after_;
    fake::Machine machine_;
    platform::Services services_;
    fake::HeadlessView view_;
    std::unique_ptr<app::frmMain> form_;
    std::unique_ptr<Impl> impl_;
};

// Runs a scenario and returns its transcript lines.
std::vector<std::string> RunScenario(std::string_view json);

// The built-in demonstration: a small machine with a system disk, a USB
// stick and an optical drive; the program starts, switches to MB and closes.
std::string_view DemoScenario();

} // namespace sim
