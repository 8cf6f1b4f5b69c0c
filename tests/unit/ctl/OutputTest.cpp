#include "ctl/Output.h"

#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "support/SandboxDescriptor.h"

namespace kennly::test {

/// What the standard output and the environment say of colours; both are put back.
class OutputTest : public ::testing::Test {
protected:
    void SetUp() override {
        int terminal = -1;
        int end = -1;
        ASSERT_EQ(openpty(&terminal, &end, nullptr, nullptr, nullptr), 0);
        terminal_ = Descriptor(terminal);
        end_ = Descriptor(end);
        unsetenv("NO_COLOR");
        setenv("TERM", "xterm", 1);
    }
    bool IsColoured(bool onTerminal) const {
        const Descriptor kept(dup(STDOUT_FILENO));
        const Descriptor nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
        dup2(onTerminal ? end_.Get() : nowhere.Get(), STDOUT_FILENO);
        const bool coloured = StandardOutput().coloured;
        dup2(kept.Get(), STDOUT_FILENO);
        return coloured;
    }

private:
    Descriptor terminal_;
    Descriptor end_;
};

TEST_F(OutputTest, HasColoursOnATerminalAlone) {
    EXPECT_TRUE(IsColoured(true));
    EXPECT_FALSE(IsColoured(false));
}

TEST_F(OutputTest, HasNoColoursWhereTheyAreNotWanted) {
    setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(IsColoured(true));
    setenv("NO_COLOR", "", 1);  // which says nothing
    EXPECT_TRUE(IsColoured(true));
    setenv("TERM", "dumb", 1);
    EXPECT_FALSE(IsColoured(true));
    unsetenv("TERM");
    EXPECT_TRUE(IsColoured(true));
}

TEST_F(OutputTest, PaintsIfItHasColours) {
    std::ostringstream text;
    EXPECT_EQ(Paint({text, text, false}, Colour::Red, "x"), "x");
    EXPECT_EQ(Paint({text, text, true}, Colour::Red, "x"), "\033[31mx\033[0m");
    EXPECT_EQ(Paint({text, text, true}, Colour::Green, "x"), "\033[32mx\033[0m");
    EXPECT_EQ(Paint({text, text, true}, Colour::Yellow, "x"), "\033[33mx\033[0m");
    EXPECT_EQ(Paint({text, text, true}, Colour::Blue, "x"), "\033[34mx\033[0m");
    EXPECT_EQ(Paint({text, text, true}, Colour::Bold, ""), "\033[1m\033[0m");
    EXPECT_EQ(text.str(), "");
}

TEST_F(OutputTest, PrintsCharactersAndShowsAllOtherBytes) {
    struct Row {
        std::string text;
        std::string printed;
    };
    const std::vector<Row> rows = {
        {"", ""},
        {"plain ~", "plain ~"},
        {"a\nb\tc", "a\\x0Ab\\x09c"},
        {"\x1B[2J\x7F", "\\x1B[2J\\x7F"},
        {std::string("\0x", 2), "\\x00x"},
        {"Gr\xC3\xBC\xC3\x9F\x65", "Gr\xC3\xBC\xC3\x9F\x65"},
        {"\xE2\x82\xAC \xF0\x9F\x90\x95", "\xE2\x82\xAC \xF0\x9F\x90\x95"},
        {"\xC2\xA0", "\xC2\xA0"},
        {"\xC2\x9B"
         "2J",
         "\\xC2\\x9B2J"},  // a control character of two bytes
        {"Gr\xFC\xDF"
         "e",
         "Gr\\xFC\\xDFe"},           // Latin-1
        {"\x80\xBF", "\\x80\\xBF"},  // no character begins so
        {"\xC3", "\\xC3"},           // cut short
        {"\xE2\x82"
         "a",
         "\\xE2\\x82"
         "a"},
        {"\xC0\xAF \xE0\x80\xAF", "\\xC0\\xAF \\xE0\\x80\\xAF"},  // longer than need be
        {"\xED\xA0\x80", "\\xED\\xA0\\x80"},                      // half a pair of UTF-16
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80"},             // beyond the last character
        {"\xFF\xFE", "\\xFF\\xFE"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.printed);
        EXPECT_EQ(Printable(row.text), row.printed);
    }
}

}  // namespace kennly::test
