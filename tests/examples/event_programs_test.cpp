/* Programs that sound alarms and show lists are written after these examples: an alarm that
 * comes twice or not at all, or a list in a wrong order, would be copied. */
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <utility>

#include "tests/events/event_database.h"
#include "tests/support/rows.h"
#include "tests/tools/scratch.h"

namespace {

using ksutil::events::test::EventDatabase;
using ksutil::test::kEndOfArguments;
using ksutil::tools::run_program;

const std::string kAlarm = ALARM_EVENTS_PROGRAM, kList = LIVE_LIST_PROGRAM;

/* A program at work, its output read line by line. */
class Running {
 public:
  explicit Running(const std::string &command) : output_(popen(command.c_str(), "r")) {
    EXPECT_NE(output_, nullptr);
  }
  ~Running() {
    if (output_ != nullptr) pclose(output_);
  }
  Running(const Running &) = delete;
  Running &operator=(const Running &) = delete;

  std::string line() {
    std::array<char, 1024> text{};
    if (fgets(text.data(), text.size(), output_) == nullptr) return "";
    const std::string whole = text.data();
    return whole.substr(0, whole.find('\n'));
  }
  int end() { return pclose(std::exchange(output_, nullptr)); }

 private:
  std::FILE *output_;
};

/* An event like those of add_located_event with another magnitude. */
void add_event(EventDatabase &db, long evid, double magnitude) {
  db.add_origin(10 * evid, evid, 2e9);
  db.add_netmag(evid, 10 * evid, "mw", magnitude);
  db.add_event(evid, 10 * evid);
}

void set_magnitude(EventDatabase &db, long record, double magnitude) {
  EXPECT_EQ(dbputv(db.row("netmag", record), "magnitude", magnitude, kEndOfArguments),
            0);
}

TEST(AlarmEvents, RingsOnceForEachEventThatBecomesLarge) {
  EventDatabase db;
  add_event(db, 1, 5.5);
  add_event(db, 2, 7.5);
  Running alarm(kAlarm + " " + db.name() + " 6 3");
  ASSERT_EQ(alarm.line(), "watching 2 events");
  add_event(db, 3, 6.5);
  EXPECT_EQ(alarm.line(),
            "ALARM evid 3 2033-05-18T03:33:20.000 magnitude 6.5 at 10.00 20.00");
  set_magnitude(db, 1, 7.6);  // large before
  set_magnitude(db, 2, 6.7);  // has rung
  set_magnitude(db, 0, 6.1);  // was small
  EXPECT_EQ(alarm.line(),
            "ALARM evid 1 2033-05-18T03:33:20.000 magnitude 6.1 at 10.00 20.00");
  add_event(db, 4, 6.0);
  EXPECT_EQ(alarm.line(),
            "ALARM evid 4 2033-05-18T03:33:20.000 magnitude 6.0 at 10.00 20.00");
  EXPECT_EQ(alarm.end(), 0);
}

TEST(LiveList, KeepsItsOrderAndMarksWhatMoves) {
  EventDatabase db;
  add_event(db, 1, 5.5);
  add_event(db, 2, 6.5);
  add_event(db, 3, 4.5);
  Running list(kList + " " + db.name() + " magnitude 2 3");
  const std::string time = "  2033-05-18T03:33:20.000   ";
  EXPECT_EQ(list.line(), "   1        2" + time + "6.50 mw");
  EXPECT_EQ(list.line(), "   2        1" + time + "5.50 mw");
  ASSERT_EQ(list.line(), "3 events by magnitude");
  add_event(db, 4, 7.0);
  EXPECT_EQ(list.line(), "*  1        4" + time + "7.00 mw");
  EXPECT_EQ(list.line(), "   2        2" + time + "6.50 mw");
  ASSERT_EQ(list.line(), "4 events by magnitude");
  set_magnitude(db, 3, 6.0);
  EXPECT_EQ(list.line(), "^  1        2" + time + "6.50 mw");
  EXPECT_EQ(list.line(), "*  2        4" + time + "6.00 mw");
  EXPECT_EQ(list.line(), "4 events by magnitude");
  EXPECT_EQ(list.end(), 0);
}

TEST(EventPrograms, TellWhatIsWrong) {
  EXPECT_EQ(run_program(kAlarm + " db 6").code, 2);
  EXPECT_EQ(run_program(kAlarm + " db large 1").code, 2);
  EXPECT_EQ(run_program(kAlarm + " /nowhere/db 6 1").code, 1);
  EXPECT_EQ(run_program(kList + " db magnitude 0 1").code, 2);
  EXPECT_EQ(run_program(kList + " /nowhere/db magnitude 1 1").code, 1);
  EventDatabase db;
  add_event(db, 1, 5.5);
  const auto run = run_program(kList + " " + db.name() + " 'magnitude >' 1 1");
  EXPECT_EQ(run.code, 2);
  EXPECT_NE(run.errors.find("live_list: cannot sort by magnitude >."),
            std::string::npos)
      << run.errors;
}

}  // namespace
