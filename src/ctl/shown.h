#pragma once
// Text from the system as kestrinectl writes it on a terminal line.
#include <string>
#include <string_view>

namespace ctl {

// Control characters (a newline in a process name, an escape sequence in a
// label) are written as \xNN, so they can neither forge lines nor reach the
// terminal.
std::string Shown(std::string_view text);

} // namespace ctl
