#pragma once
// The application service on Linux: the program's folder and command line,
// the previous instance (through the instance channel), the current folder
// in Windows form, the locale's decimal separator and starting programs.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/application.h"
#include "platform/linux/instance_channel.h"
#include "platform/linux/letter_map.h"

namespace linuxbk {

class LinuxApplication : public platform::Application {
public:
    LinuxApplication(LetterMap& map, InstanceChannel& channel, std::string commandLine, std::string title = "Kestrine");

    bool PrevInstance() override;
    std::string Title() override { return title_; }
    void SetTitle(const std::string& title) override { title_ = title; }
    std::string Path() override;
    std::string CommandLine() override { return commandLine_; }
    [[noreturn]] void ExitProcess(std::uint32_t code) override;
    char DecimalSeparator() override;
    std::string CurDir() override;
    bool ChDrive(const std::string& drive) override;
    bool ChDir(const std::string& path) override;
    bool CreateProcessA(const std::string& applicationName, const std::string& commandLine) override;

    // The arguments a program is started with: the program file as named,
    // then what the command line holds after it, as one argument.
    static std::vector<std::string> Arguments(const std::string& nativeProgram, const std::string& applicationName,
                                              const std::string& commandLine);

    // The command line of a program started with these arguments (after the
    // program's name), as a Windows program is given it: the arguments in
    // their order, one space apart, each as given; one that is empty or holds
    // a blank or a double quote is written in double quotes, with its quotes
    // and the backslashes before them escaped, so that the line splits back
    // into the same arguments. "E:\" stays E:\, "E:\ " becomes "E:\ ".
    static std::string CommandLineOf(const std::vector<std::string>& arguments);

private:
    LetterMap& map_;
    InstanceChannel& channel_;
    std::string commandLine_;
    std::string title_;
};

// Starts a program in the background without a shell; false when it cannot.
bool Spawn(const std::vector<std::string>& arguments);
// The first of the programs that is on PATH, "" when none is.
std::string FindProgram(const std::vector<std::string>& names);

} // namespace linuxbk
