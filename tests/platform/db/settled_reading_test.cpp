/* A reading that other programs overtake must be repeated, but not for ever, and a disk
 * that fails must not be taken for other programs. */
#include "platform/db/settled_reading.h"

#include <gtest/gtest.h>

#include "tests/platform/db/api_test_support.h"

namespace ksutil::db::test {
namespace {

/* Rows that cannot all be read, for one cause or the other. */
class FailingRows final : public Snapshot {
 public:
  FailingRows(bool complete, bool overtaken)
      : Snapshot(std::make_shared<const Relation>(), {}),
        complete_(complete),
        overtaken_(overtaken) {}

  std::string_view row(long) const override { return {}; }
  RowText text(long) const override { return {}; }
  bool complete() const override { return complete_; }
  bool overtaken() const override { return overtaken_; }
  void keep_rows() const override { keeps_ = true; }
  Changes changes_to(const Snapshot &) const override { return {}; }
  bool keeps() const { return keeps_; }

 private:
  const bool complete_, overtaken_;
  mutable bool keeps_ = false;
};

/* Reads rows that are overtaken `times` times, and then are as given. */
struct Reading {
  Reading(int times, bool complete, bool overtaken) {
    elog_clear_register(0);
    result = read_settled(
        [&]() -> std::shared_ptr<const Snapshot> {
          elog_log(0, "look %d\n", ++looks);
          return rows = looks <= times
                            ? std::make_shared<FailingRows>(false, true)
                            : std::make_shared<FailingRows>(complete, overtaken);
        },
        [&](const std::shared_ptr<const Snapshot> &) { kept = rows->keeps(); });
  }
  int looks = 0;
  bool result = false, kept = false;
  std::shared_ptr<FailingRows> rows;
};

TEST(SettledReading, IsRepeatedUntilNoRowIsOvertaken) {
  const Reading once(0, true, false);
  EXPECT_TRUE(once.result);
  EXPECT_EQ(once.looks, 1);
  const Reading later(2, true, false);
  EXPECT_TRUE(later.result);
  EXPECT_FALSE(later.kept);
  EXPECT_EQ(messages(), "look 3\n");
  const Reading last(3, true, false);
  EXPECT_TRUE(last.result);
  EXPECT_TRUE(last.kept);
}

TEST(SettledReading, EndsAndIsNotRepeatedWhenTheDiskFails) {
  const Reading never(1000, true, false);
  EXPECT_FALSE(never.result);
  EXPECT_EQ(never.looks, 4);
  const Reading broken(1, false, false);
  EXPECT_FALSE(broken.result);
  EXPECT_EQ(broken.looks, 2);
  EXPECT_EQ(messages(), "look 2\n");
}

}  // namespace
}  // namespace ksutil::db::test
