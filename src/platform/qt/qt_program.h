#pragma once
// The program's life in the Qt window: the logic loaded into the window, the
// window shown, and the event loop run until the process ends, whichever way
// the close comes (the Quit button or menu, the close box, the end of the
// desktop session).
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <QEventLoop>

#include "platform/application.h"
#include "platform/services.h"

namespace app {
class frmMain;
}

namespace qtui {

class QtWindow;

// The application service as the window's event loop needs it: the end of
// the process also ends the program's event loop. The Linux backend ends the
// process itself; a simulated machine only records the end, and the window
// then closes as the real program's would.
class EndingApplication : public platform::Application {
public:
    EndingApplication(platform::Application& inner, std::function<void(int)> ended)
        : inner_(inner), endLoop_(std::move(ended)) {}

    bool PrevInstance() override { return inner_.PrevInstance(); }
    std::string Title() override { return inner_.Title(); }
    void SetTitle(const std::string& title) override { inner_.SetTitle(title); }
    std::string Path() override { return inner_.Path(); }
    std::string CommandLine() override { return inner_.CommandLine(); }
    void ExitProcess(std::uint32_t code) override;
    char DecimalSeparator() override { return inner_.DecimalSeparator(); }
    std::string CurDir() override { return inner_.CurDir(); }
    bool ChDrive(const std::string& drive) override { return inner_.ChDrive(drive); }
    bool ChDir(const std::string& path) override { return inner_.ChDir(path); }
    bool CreateProcessA(const std::string& applicationName, const std::string& commandLine) override {
        return inner_.CreateProcessA(applicationName, commandLine);
    }

    bool Ended() const { return ended_; }
    std::uint32_t ExitCode() const { return code_; }

private:
    platform::Application& inner_;
    std::function<void(int)> endLoop_;
    bool ended_ = false;
    std::uint32_t code_ = 0;
};

class QtProgram {
public:
    QtProgram(const platform::Services& services, QtWindow& window);
    ~QtProgram();
    QtProgram(const QtProgram&) = delete;
    QtProgram& operator=(const QtProgram&) = delete;

    app::frmMain& Form();
    // Loads the form and shows the window; false when another instance took
    // over and this one ended.
    bool Start();
    // Runs the event loop until the process ends; its exit code.
    int Exec();
    // The desktop session is ending: the close request runs as for any other
    // close. When it is refused (a release is running) the session's end is
    // cancelled, where the session lets the program ask the user.
    void SessionEnding(bool mayInteract, const std::function<void()>& cancel);

private:
    QEventLoop loop_;
    EndingApplication app_;
    platform::Services services_;
    QtWindow& window_;
    std::unique_ptr<app::frmMain> form_;
};

} // namespace qtui
