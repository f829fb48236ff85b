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
};

} // namespace platform
