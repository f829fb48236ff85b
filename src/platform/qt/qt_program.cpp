#include "platform/qt/qt_program.h"

#include <QGuiApplication>
#include <QSessionManager>

#include "app/frmMain.h"
#include "platform/qt/qt_window.h"

namespace qtui {

void EndingApplication::ExitProcess(std::uint32_t code) {
    ended_ = true;
    code_ = code;
    inner_.ExitProcess(code);
    // Still here: the end was only recorded, so the program's event loop ends.
    if (endLoop_) endLoop_(static_cast<int>(code));
}

QtProgram::QtProgram(const platform::Services& services, QtWindow& window)
    : app_(services.app, [this](int code) { loop_.exit(code); }),
      services_{app_,         services.volumes, services.profile, services.windows,    services.shell,
                services.fso, services.storage, services.devices, services.management, services.native},
      window_(window), form_(std::make_unique<app::frmMain>(services_, window)) {
    window_.SetTimerInterval([this](app::Ctl) { return form_->FlashInterval(); });
    if (auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        QObject::connect(gui, &QGuiApplication::commitDataRequest, &loop_, [this](QSessionManager& session) {
            // Asking for interaction first: the refusal's message box needs it, and so does cancelling.
            const bool mayInteract = session.allowsInteraction();
            SessionEnding(mayInteract, [&session] { session.cancel(); });
            if (mayInteract) session.release();
        });
        // The program keeps no session state: the next session does not start it again.
        QObject::connect(gui, &QGuiApplication::saveStateRequest, &loop_,
                         [](QSessionManager& session) { session.setRestartHint(QSessionManager::RestartNever); });
    }
}

QtProgram::~QtProgram() { window_.SetTimerInterval({}); }

app::frmMain& QtProgram::Form() { return *form_; }

bool QtProgram::Start() {
    form_->Form_Load();
    if (form_->Ended() || app_.Ended()) return false;
    window_.Show();
    return true;
}

int QtProgram::Exec() {
    if (app_.Ended()) return static_cast<int>(app_.ExitCode());
    const int code = loop_.exec();
    return app_.Ended() ? static_cast<int>(app_.ExitCode()) : code;
}

void QtProgram::SessionEnding(bool mayInteract, const std::function<void()>& cancel) {
    // The window's own answer, as the Win32 window gives it to WM_QUERYENDSESSION.
    if (!form_->SessionEnding() && mayInteract && cancel) cancel();
}

} // namespace qtui
