#include "ctl/Time.h"

#include <cstdlib>
#include <ctime>

namespace kennly::test {

TEST(TimeTest, TellsALengthOfTimeAsPeopleDo) {
    struct Row {
        double seconds;
        const char* text;
    };
    for (const Row& row : {Row{0, "0.0 s"}, Row{0.44, "0.4 s"}, Row{9.9, "9.9 s"}, Row{10, "10 s"},
                           Row{12.4, "12 s"}, Row{119, "119 s"}, Row{120, "2 min"},
                           Row{199, "3 min"}, Row{7199, "119 min"}, Row{7200, "2 h"},
                           Row{172'799, "47 h"}, Row{172'800, "2 d"}, Row{8'640'000, "100 d"}}) {
        EXPECT_EQ(Duration(row.seconds), row.text) << row.seconds;
    }
}

TEST(TimeTest, TellsAMomentInLocalTime) {
    setenv("TZ", "UTC0", 1);
    tzset();
    EXPECT_EQ(Moment(0), "1970-01-01 00:00:00");
    EXPECT_EQ(Moment(1'600'000'000), "2020-09-13 12:26:40");
    EXPECT_EQ(Moment(-1), "1969-12-31 23:59:59");
    EXPECT_EQ(Moment(4'294'967'296), "2106-02-07 06:28:16");  // beyond 32 bits
    setenv("TZ", "XXX-2", 1);
    tzset();
    EXPECT_EQ(Moment(0), "1970-01-01 02:00:00");
    EXPECT_EQ(Moment(INT64_MAX), "9223372036854775807");  // of no year that there is
}

}  // namespace kennly::test
