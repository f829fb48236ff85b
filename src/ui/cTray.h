#pragma once
// cTray: the record of the program's notification-area icon. The program
// never shows the icon; it keeps the picture and tip the device handling
// gives it, and asks the shell to delete the icon when it is released.
#include <string>

namespace app {
struct Program;
}

namespace ui {

class cTray {
public:
    explicit cTray(app::Program& program) : program_(program) {}
    ~cTray();
    cTray(const cTray&) = delete;
    cTray& operator=(const cTray&) = delete;

private:
    [[maybe_unused]] app::Program& program_;
};

} // namespace ui
