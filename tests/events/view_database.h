/* view_database: a view of the small database, and its lists as vectors. */
#ifndef KSUTIL_TESTS_EVENTS_VIEW_DATABASE_H
#define KSUTIL_TESTS_EVENTS_VIEW_DATABASE_H

#include <memory>
#include <string>
#include <vector>

#include "events/kseventview.h"
#include "platform/elog/elog.h"
#include "tests/events/event_database.h"
#include "tests/events/messages.h"

namespace ksutil::events::test {

struct FreePf {
  void operator()(Pf *pf) const { pffree(pf); }
};

inline std::unique_ptr<Pf, FreePf> settings_of_view(const std::string &dbname) {
  Pf *pf = nullptr;
  EXPECT_EQ(pfcompile(("dbname " + dbname + "\n").c_str(), &pf), 0);
  return std::unique_ptr<Pf, FreePf>(pf);
}

template <class Record>
std::vector<Record *> records(Tbl *list) {
  std::vector<Record *> found;
  for (long i = 0; i < counttbl(list); i++) {
    found.push_back(static_cast<Record *>(gettbl(list, i)));
  }
  return found;
}

/* KSEventView::numbers as a vector, in the order of its parameters. */
inline std::vector<long> numbers_of(KSEventView &view) {
  std::vector<long> n(7);
  view.numbers(&n[0], &n[1], &n[2], &n[3], &n[4], &n[5], &n[6]);
  return n;
}

class ViewTest : public testing::Test {
 protected:
  ViewTest() : view(settings_of_view(db.name()).get()) { elog_clear_register(0); }
  ~ViewTest() override { elog_clear_register(0); }

  EventDatabase db;
  KSEventView view;
};

}  // namespace ksutil::events::test
#endif
