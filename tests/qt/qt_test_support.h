#pragma once
// Shared pieces of the Qt window tests: the demonstration machine, a
// recorder of the window's events, and helpers that act on pop-up menus and
// message boxes once they are open.
#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QTimer>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/frmMain.h"
#include "platform/fake/machine.h"
#include "platform/qt/qt_window.h"
#include "platform/qt/qt_window_system.h"

namespace qttest {

// The machine of the built-in demonstration: a system disk, an optical drive
// without a medium and a USB stick.
std::string DemoMachine();

// Records every event the window reports, one line each ("Click cmdAbout",
// "KeyDown ListView1 46 0" ...).
class Recorder : public app::ViewEvents {
public:
    std::vector<std::string> lines;
    bool cancelValidate = false;
    void Click(app::Ctl c) override { add("Click", c); }
    void DblClick(app::Ctl c) override { add("DblClick", c); }
    void Change(app::Ctl c) override { add("Change", c); }
    void KeyDown(app::Ctl c, std::int16_t& key, std::int16_t shift) override {
        add("KeyDown", c, " " + std::to_string(key) + " " + std::to_string(shift));
    }
    void KeyUp(app::Ctl c, std::int16_t& key, std::int16_t shift) override {
        add("KeyUp", c, " " + std::to_string(key) + " " + std::to_string(shift));
    }
    void MouseUp(app::Ctl c, std::int16_t button, std::int16_t shift, float, float) override {
        add("MouseUp", c, " " + std::to_string(button) + " " + std::to_string(shift));
    }
    void Validate(app::Ctl c, bool& cancel) override {
        add("Validate", c);
        cancel = cancelValidate;
    }
    void Tick(app::Ctl c) override { add("Tick", c); }
    void Resize() override { lines.push_back("Resize"); }
    void Activate() override { lines.push_back("Activate"); }
    void CloseRequested() override { lines.push_back("CloseRequested"); }
    std::vector<std::string> Take() { return std::exchange(lines, {}); }

private:
    void add(const char* what, app::Ctl c, const std::string& more = {}) {
        lines.push_back(std::string(what) + " " + std::string(app::Spec(c).name) +
                        (app::Spec(c).index >= 0 ? std::to_string(app::Spec(c).index) : "") + more);
    }
};

// Runs act on the first pop-up menu or modal dialog that opens (polling the
// event loop, so it also works inside the menu's or dialog's own loop).
void WhenPopupOpens(std::function<void(QMenu&)> act);
void WhenMessageBoxOpens(std::function<void(QMessageBox&)> act);

// The logic, the simulated machine and the Qt window, wired as the program wires them.
struct Program {
    fake::Machine machine;
    qtui::QtWindow window;
    qtui::QtWindowSystem windows{machine, window, true};
    platform::Services base{machine.services()};
    platform::Services services{base.app, base.volumes, base.profile, windows,         base.shell,
                                base.fso, base.storage, base.devices, base.management, base.native};
    std::unique_ptr<app::frmMain> form;

    explicit Program(const std::string& machineJson = DemoMachine());
    void Start();
    // The list's rows as the headless window writes them: text and sub-items joined by " | ".
    std::vector<std::string> Rows() const;
};

} // namespace qttest
