#pragma once
// The running program itself: its title, folder, command line, the test for an
// earlier instance, the end of the process and the user's number format.
#include <string>

#include "platform/types.h"

namespace platform {

class Application {
public:
    virtual ~Application() = default;

    // True when another process of this program is already running.
    virtual bool PrevInstance() = 0;
    // The application title; it is also the title of the hidden application
    // window of class "ThunderRT6Main" that every instance keeps.
    virtual std::string Title() = 0;
    virtual void SetTitle(const std::string& title) = 0;
    // The folder the program file lives in, without a trailing backslash
    // unless it is a drive root.
    virtual std::string Path() = 0;
    // The command line after the program name, unchanged.
    virtual std::string CommandLine() = 0;
    // Ends the process at once. Real backends do not return; the simulated
    // machine records the end and returns, and the caller returns too.
    virtual void ExitProcess(std::uint32_t code) = 0;
    // The decimal separator of the user's locale.
    virtual char DecimalSeparator() = 0;

    // The process's current folder ("C:\Work"), and changing the current
    // drive ("E:" or "E") and folder. False when the change is refused.
    virtual std::string CurDir() = 0;
    virtual bool ChDrive(const std::string& drive) = 0;
    virtual bool ChDir(const std::string& path) = 0;
    // Starts a program: the program file is named explicitly, the command
    // line is passed as given; its window is shown normally with the focus.
    virtual bool CreateProcessA(const std::string& applicationName, const std::string& commandLine) = 0;
};

} // namespace platform
