#include "config/FileInspection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>
#include <optional>
#include <string>

#include "support/FailingAllocation.h"
#include "support/ObservedOpening.h"
#include "support/TemporaryDirectory.h"
#include "support/WithoutPrivileges.h"

namespace {

// Stands in for reading from a file while `scripted` is set.
struct Reading {
    bool scripted = false;
    std::size_t most = 0;     // bytes that one call gives
    int interruptions = 0;    // calls that a signal interrupts, from now on
    int callsToFailure = -1;  // calls before the one that fails; never when negative
    int calls = 0;
} reading;

}  // namespace

extern "C" {

ssize_t __real_read(int descriptor, void* buffer, std::size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size);

ssize_t __wrap_read(int descriptor, void* buffer, std::size_t size) {
    if (!reading.scripted) {
        return __real_read(descriptor, buffer, size);
    }
    ++reading.calls;
    if (reading.interruptions > 0) {
        --reading.interruptions;
        errno = EINTR;
        return -1;
    }
    if (reading.callsToFailure == 0) {
        errno = EIO;
        return -1;
    }
    --reading.callsToFailure;
    return __real_read(descriptor, buffer, std::min(size, reading.most));
}
}

namespace kennly::test {

using std::string_literals::operator""s;

namespace {

const std::string TooDeep = "elements nested too deep";
const std::string TooManyAttributes = "too many attributes in one element";
const std::string CutCharacter = "file ends inside a character";
const std::string NotRegular = "not a regular file";
const std::string Unreadable = "Failed to open file";
const std::string NoProblem;

std::string Nested(std::size_t levels) {
    std::string text;
    for (std::size_t i = 0; i < levels; ++i) {
        text += "<a>";
    }
    for (std::size_t i = 0; i < levels; ++i) {
        text += "</a>";
    }
    return text;
}

std::string WithAttributes(std::size_t count) {
    std::string text = "<a";
    for (std::size_t i = 0; i < count; ++i) {
        text += " b" + std::to_string(i) + "='c'";
    }
    return text + "/>";
}

std::ptrdiff_t OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace

class FileInspectionTest : public ::testing::Test {
protected:
    FileInspectionTest() { Reset(); }
    ~FileInspectionTest() override { Reset(); }

    static void Reset() {
        reading = {};
        opening = {};
    }

    static void ReadInPiecesOf(std::size_t most) {
        reading.scripted = true;
        reading.most = most;
    }

    std::string Inspect(const std::string& text) const {
        return InspectConfigFile(directory.Write("file", text).c_str());
    }

    const TemporaryDirectory directory;
};

TEST_F(FileInspectionTest, FindsNoProblemInAnOrdinaryFile) {
    EXPECT_EQ(Inspect("<?xml version='1.0'?>\n<config><job name='web'/></config>\n"), NoProblem);
}

TEST_F(FileInspectionTest, LeavesOtherFaultsToTinyXml) {
    for (const std::string& text : {""s, " "s, "\0"s, "<"s, "<a"s, "<a>"s, "<a></b>"s, "text"s,
                                    "<!-- comment"s, "<?xml version='1.0'?>"s}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Inspect(text), NoProblem);
    }
}

TEST_F(FileInspectionTest, RefusesAMissingFile) {
    EXPECT_EQ(InspectConfigFile(directory.Path("missing").c_str()), Unreadable);
    EXPECT_EQ(InspectConfigFile(""), Unreadable);
    EXPECT_EQ(InspectConfigFile((directory.Write("file", "") + "/below").c_str()), Unreadable);
}

TEST_F(FileInspectionTest, RefusesAFileThatItMayNotRead) {
    const std::string path = directory.Write("file", Nested(501));
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    std::optional<WithoutPrivileges> privileges(std::in_place);

    const std::string problem = InspectConfigFile(path.c_str());

    privileges.reset();
    EXPECT_EQ(problem, Unreadable);
}

TEST_F(FileInspectionTest, RefusesAFileThatFailsToBeRead) {
    // A regular file by its kind, but the first page of a process is never mapped.
    EXPECT_EQ(InspectConfigFile("/proc/self/mem"), Unreadable);
}

TEST_F(FileInspectionTest, RefusesWhatIsNoRegularFile) {
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    std::filesystem::create_directory(directory.Path("below"));
    std::filesystem::create_symlink(directory.Path("fifo"), directory.Path("link"));
    for (const std::string& path : {directory.Path("fifo"), directory.Path("below"),
                                    directory.Path("link"), "/dev/null"s, "/dev/zero"s}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(InspectConfigFile(path.c_str()), NotRegular);
    }
}

TEST_F(FileInspectionTest, RefusesASocketWhichNobodyCanOpen) {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = directory.Path("socket");
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);

    EXPECT_EQ(InspectConfigFile(path.c_str()), Unreadable);

    close(descriptor);
}

TEST_F(FileInspectionTest, FollowsASymbolicLinkToARegularFile) {
    std::filesystem::create_symlink(directory.Write("file", Nested(501)), directory.Path("link"));

    EXPECT_EQ(InspectConfigFile(directory.Path("link").c_str()), TooDeep);
}

TEST_F(FileInspectionTest, RefusesElementsThatNestDeeperThan500Levels) {
    EXPECT_EQ(Inspect(Nested(499)), NoProblem);
    EXPECT_EQ(Inspect(Nested(500)), NoProblem);
    EXPECT_EQ(Inspect(Nested(501)), TooDeep);
    EXPECT_EQ(Inspect(Nested(100000)), TooDeep);
}

TEST_F(FileInspectionTest, CountsNestedElementsOnly) {
    const std::string deep = Nested(501);
    EXPECT_EQ(Inspect("<a><!-- " + deep + " --></a>"), NoProblem);
    EXPECT_EQ(Inspect("<a><![CDATA[" + deep + "]]></a>"), NoProblem);
    EXPECT_EQ(Inspect("<a b='" + deep + "'/>"), NoProblem);
    EXPECT_EQ(Inspect("<a/><!--\0-->"s + deep), NoProblem);
    EXPECT_EQ(Inspect("<a/>text" + deep), NoProblem);
    EXPECT_EQ(Inspect("<a/>" + deep), TooDeep);
}

TEST_F(FileInspectionTest, RefusesAnElementWithMoreThan1000Attributes) {
    EXPECT_EQ(Inspect(WithAttributes(999)), NoProblem);
    EXPECT_EQ(Inspect(WithAttributes(1000)), NoProblem);
    EXPECT_EQ(Inspect(WithAttributes(1001)), TooManyAttributes);
    EXPECT_EQ(Inspect(WithAttributes(100000)), TooManyAttributes);
}

TEST_F(FileInspectionTest, CountsTheAttributesOfEachElementByItself) {
    const std::string most = WithAttributes(1000);
    const std::string more = WithAttributes(1001);
    EXPECT_EQ(Inspect("<r>" + most + most + "</r>"), NoProblem);
    EXPECT_EQ(Inspect("<r><!-- " + more + " --></r>"), NoProblem);
    EXPECT_EQ(Inspect("<r s=\"" + more + "\"/>"), NoProblem);
    EXPECT_EQ(Inspect("<r>" + most + more + "</r>"), TooManyAttributes);
    EXPECT_EQ(Inspect(more + "<r/>"), TooManyAttributes);
    EXPECT_EQ(Inspect(Nested(501) + more), TooDeep);
}

TEST_F(FileInspectionTest, LooksAtAWholeFileHoweverLong) {
    for (const std::size_t length : {65535U, 65536U, 65537U, 131072U, 300000U}) {
        SCOPED_TRACE(length);
        const std::string comment = "<!--" + std::string(length - 7, '-') + "-->";
        EXPECT_EQ(Inspect(comment), NoProblem);
        EXPECT_EQ(Inspect(comment + Nested(500)), NoProblem);
        EXPECT_EQ(Inspect(comment + Nested(501)), TooDeep);
    }
}

TEST_F(FileInspectionTest, PutsTogetherWhatItReadsInPieces) {
    ReadInPiecesOf(7);

    EXPECT_EQ(Inspect(Nested(500)), NoProblem);
    EXPECT_EQ(Inspect(Nested(501)), TooDeep);

    EXPECT_GT(reading.calls, 900);
}

TEST_F(FileInspectionTest, GoesOnReadingWhenASignalInterruptsIt) {
    ReadInPiecesOf(1000);
    reading.interruptions = 3;

    EXPECT_EQ(Inspect(Nested(501)), TooDeep);

    EXPECT_EQ(reading.interruptions, 0);
    EXPECT_EQ(reading.calls, 8);
}

TEST_F(FileInspectionTest, RefusesAFileThatFailsToBeReadToItsEnd) {
    ReadInPiecesOf(3000);
    reading.callsToFailure = 1;

    EXPECT_EQ(Inspect("<a/>" + std::string(5000, ' ')), Unreadable);

    EXPECT_EQ(reading.calls, 2);
}

TEST_F(FileInspectionTest, RefusesUtf8ThatEndsInsideACharacter) {
    for (const char* const begin :
         {"\xEF\xBB\xBF", "<?xml version='1.0'?>", "<?xml version='1.0' encoding=\"utf-8\"?>"}) {
        SCOPED_TRACE(begin);
        EXPECT_EQ(Inspect(begin + "<a>\xC3"s), CutCharacter);
        EXPECT_EQ(Inspect(begin + "<a b='\xE2\x82"s), CutCharacter);
        EXPECT_EQ(Inspect(begin + "<a>\xF0\x9F\x98\0\x80"s), CutCharacter);
        EXPECT_EQ(Inspect(begin + "<a>\xC3\xA4"s), NoProblem);
    }
}

TEST_F(FileInspectionTest, LeavesACutCharacterOutsideUtf8ToTinyXml) {
    for (const char* const begin : {"", "<?xml version='1.0' encoding='ISO-8859-1'?>"}) {
        SCOPED_TRACE(begin);
        EXPECT_EQ(Inspect(begin + "<a>\xC3"s), NoProblem);
        EXPECT_EQ(Inspect(begin + "<a b='\xE2\x82"s), NoProblem);
    }
}

TEST_F(FileInspectionTest, FindsACharacterThatNormalisingTheLineEndsCutsShort) {
    EXPECT_EQ(Inspect("<?xml?><a/><b>\xF0\r\nx"), CutCharacter);
    EXPECT_EQ(Inspect("<?xml?><a/><b>\xE2\r\n"), CutCharacter);
    EXPECT_EQ(Inspect("<?xml?><a/><b>\xF0\r\nxy"), NoProblem);
    EXPECT_EQ(Inspect("<?xml?><a/><b>\xF0\rxy"), NoProblem);
    EXPECT_EQ(Inspect("<?xml?><a/><b>\xF0\n\ry"), NoProblem);
}

TEST_F(FileInspectionTest, FindsElementsThatShowOnlyOnceTheLineEndsAreNormalised) {
    // The first character takes the quote behind the '>' with it.
    EXPECT_EQ(Inspect("<?xml?><r a=\"\xF0\r\n>\" b='\">" + Nested(500) + "</r>"), TooDeep);
    EXPECT_EQ(Inspect("<?xml?><r a=\"\xF0\r\n>\" b='\">" + Nested(499) + "</r>"), NoProblem);
}

TEST_F(FileInspectionTest, OpensTheFileSoThatNoCommandInheritsIt) {
    opening.observed = true;

    Inspect("<config/>");

    ASSERT_EQ(opening.files.size(), 1U);
    EXPECT_TRUE(opening.files[0].closesOnExecute);
}

TEST_F(FileInspectionTest, LeavesNoDescriptorOpen) {
    ASSERT_EQ(mkfifo(directory.Path("fifo").c_str(), 0600), 0);
    const std::string deep = directory.Write("deep", Nested(501));
    const auto before = OpenDescriptors();

    for (int i = 0; i < 3; ++i) {
        InspectConfigFile(deep.c_str());
        InspectConfigFile(directory.Path("fifo").c_str());
        InspectConfigFile(directory.Path("missing").c_str());
        InspectConfigFile("/proc/self/mem");
    }

    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FileInspectionTest, ThrowsAndLeavesNoDescriptorOpenWithoutMemory) {
    const std::string path = directory.Write("file", "<!--" + std::string(200000, ' '));
    const auto before = OpenDescriptors();
    std::size_t failures = 0;
    for (bool failed = true; failed; ++failures) {
        const FailingAllocation allocation(failures);
        try {
            InspectConfigFile(path.c_str());
            EXPECT_FALSE(allocation.HasFailed());
        } catch (const std::bad_alloc&) {
        }
        failed = allocation.HasFailed();
    }

    EXPECT_GT(failures, 2U);
    EXPECT_EQ(OpenDescriptors(), before);
}

}  // namespace kennly::test
