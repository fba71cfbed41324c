/* Load dates and times in real tables come in many hands' forms.  A form misread puts a row
 * years away without any message; a wrong text accepted hides a damaged record. */
#include <gtest/gtest.h>

#include <string>

#include "platform/clock/clock.h"

namespace {

std::string read(const char *text) {
  double epoch = 0.0;
  return ksutil::parse_date_text(text, epoch) ? ksutil::time_text(epoch) : "refused";
}

TEST(DateText, ReadsTheFormsThatFilesHold) {
  EXPECT_EQ(read("2014-03-03T110706"), "2014-03-03T11:07:06.000");
  EXPECT_EQ(read("2011/01/31"), "2011-01-31T00:00:00.000");
  EXPECT_EQ(read("20100526 12:00:00"), "2010-05-26T12:00:00.000");
  EXPECT_EQ(read("18/10/25 16:44:28"), "2018-10-25T16:44:28.000");
  EXPECT_EQ(read("98-10-25  16:44:28"), "1998-10-25T16:44:28.000");
  EXPECT_EQ(read("16-MAR-16"), "2016-03-16T00:00:00.000");
  EXPECT_EQ(read(" 31-OCT-18 "), "2018-10-31T00:00:00.000");
  EXPECT_EQ(read("1-oct-1999T2359"), "1999-10-01T23:59:00.000");
  EXPECT_EQ(read("02/29/2000"), "2000-02-29T00:00:00.000");
  EXPECT_EQ(read("2000-060"), "2000-02-29T00:00:00.000");
  EXPECT_EQ(read("2000-060 6:30"), "2000-02-29T06:30:00.000");
  EXPECT_EQ(read("2024-02-29T23:59:59.9995Z"), "2024-03-01T00:00:00.000");
  EXPECT_EQ(read("2024-02-29T235959.25Z"), "2024-02-29T23:59:59.250");
  EXPECT_EQ(read("2016-12-31T23:59:60.5"), "2017-01-01T00:00:00.500");
  EXPECT_EQ(read("70/01/01"), "1970-01-01T00:00:00.000");
  EXPECT_EQ(read("69/01/01"), "2069-01-01T00:00:00.000");
}

TEST(DateText, RefusesEverythingElse) {
  double untouched = 7.0;
  for (const char *text : {"",
                           " ",
                           "-",
                           "T",
                           "12",
                           "1234567",
                           "123456789",
                           "2010",
                           "2010-",
                           "2010-1",
                           "2010-02-30",
                           "1900-02-29",
                           "2010-13-01",
                           "2010-00-10",
                           "2010-01-00",
                           "2011-366",
                           "2011-000",
                           "18991231",
                           "21000101",
                           "20100532",
                           "30-FEB-16",
                           "16-MAX-16",
                           "16-MAR",
                           "16-MAR-016",
                           "2016-MAR-16",
                           "2010/01-02",
                           "2010-01-02-03",
                           "2010-01-02T",
                           "2010-01-02 25:00",
                           "2010-01-02 10:60",
                           "2010-01-02 10:00:61",
                           "2010-01-02 10:00:00 x",
                           "2010-01-02 10",
                           "2010-01-02x",
                           "2010-01-02 100",
                           "2010-01-02 10:0",
                           "01-02-2010",
                           "2010-01-02 10:00:5",
                           "-2010-01-02",
                           "1262390400.5",
                           "99999999999999999999",
                           "2010-01-02T10:00+01"}) {
    EXPECT_FALSE(ksutil::parse_date_text(text, untouched)) << text;
  }
  EXPECT_EQ(untouched, 7.0);
}

}  // namespace
