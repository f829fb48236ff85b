#include "core/program.h"

#include "drives/cDrive.h"
#include "ui/cTray.h"

namespace app {

Program::Program(platform::Services& services, View& window) : sys(services), view(window), ini(services.profile) {}

Program::~Program() {
    if (whenGone) whenGone();
}

void Program::WaitSince(float start, float seconds) {
    constexpr float kDay = 86400.0f;
    for (;;) {
        sys.windows.DoEvents();
        float elapsed = sys.windows.Timer() - start;
        if (elapsed < 0) elapsed += kDay; // the timer restarted at midnight
        if (elapsed >= seconds) return;
        // Asleep until a message comes or the time is up, not spinning.
        sys.windows.WaitForMessages(seconds - elapsed);
    }
}

} // namespace app
