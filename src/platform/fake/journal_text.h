#pragma once
// How the simulated machine writes arguments into its call journal.
#include <string>
#include <string_view>

namespace fake {

// A text argument, in double quotes.
inline std::string Quote(std::string_view s) {
    std::string quoted(1, '"');
    quoted.append(s);
    quoted.push_back('"');
    return quoted;
}

} // namespace fake
