/* Scratch tables hold what has no file: waveforms, patterns of matches, rows before they
 * are saved.  Texts taken from them must not change under their holders. */
#include <gmock/gmock.h>

#include "platform/db/store/internal/scratch_store.h"
#include "table_files.h"

namespace ksutil::db {
namespace {

using namespace testing;

TEST(ScratchStore, KeepsRowsAsGiven) {
  const auto store = open_scratch("css3.0");
  TableStore &lastid = *store->table("lastid");
  EXPECT_EQ(lastid.snapshot()->count(), 0);
  for (long i = 0; i < 30000; ++i) ASSERT_EQ(append(lastid, lastid_row("k", i)), i);
  for (long i = 0; i < 30000; ++i)
    ASSERT_EQ(lastid.snapshot()->row(i), lastid_row("k", i));
  EXPECT_EQ(append(lastid, "x"), -1);
  EXPECT_FALSE(overwrite(lastid, 30000, lastid_row("k", 1)));
  EXPECT_EQ(open_scratch("nosuch"), nullptr);
  elog_clear_register(0);
}

TEST(ScratchStore, TextsAndSnapshotsStayAsTheyWere) {
  const auto store = open_scratch("css3.0");
  TableStore &lastid = *store->table("lastid");
  for (long i = 0; i < 100; ++i) append(lastid, lastid_row("k", i));
  const auto before = lastid.snapshot();
  const RowText text = before->text(50);
  Stamp old_stamp, stamp;
  lastid.stamp(old_stamp);
  ASSERT_TRUE(overwrite(lastid, 50, lastid_row("new", 7)));
  append(lastid, lastid_row("k", 100));
  EXPECT_EQ(text.view(), lastid_row("k", 50));
  EXPECT_EQ(before->row(50), lastid_row("k", 50));
  EXPECT_EQ(lastid.snapshot()->row(50), lastid_row("new", 7));
  lastid.stamp(stamp);
  EXPECT_GT(stamp.time, old_stamp.time);
  const Changes changes = changes_between(*before, *lastid.snapshot());
  EXPECT_TRUE(changes.known);
  EXPECT_THAT(changes.changed, ::testing::ElementsAre(50));
  EXPECT_EQ(changes.new_count, 101);
}

}  // namespace
}  // namespace ksutil::db
