#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

namespace kennly {

enum class Colour { Red, Yellow, Green, Blue, Bold };

/// Where a verb writes to.
struct Output {
    std::ostream& out;
    std::ostream& err;
    bool coloured = false;    // `out` is a terminal whose user has not asked for no colours
    bool isTerminal = false;  // `out` is one that can be cleared, whatever its colours
};

/// The process's standard output and standard error. A TERM of "dumb" in the environment makes no
/// terminal. Colours only on a terminal, and not where the environment has NO_COLOR. Main thread
/// only.
Output StandardOutput();

/// `text` in a colour, if the output has any. Any thread may call it.
std::string Paint(const Output& output, Colour colour, std::string_view text);

/// `text` in UTF-8, without anything that could move a cursor or end a line: the bytes of such
/// characters, and those that are none, become "\xNN". Any thread may call it.
std::string Printable(std::string_view text);

}  // namespace kennly
