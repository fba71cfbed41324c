/* The magnitudes that origins carry themselves have rows that are in no table.  They share
 * blocks with those of other events; a slip shows one event's magnitude at another. */
#include "events/reading/internal/made_rows.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/stock/text.h"

namespace {

using ksutil::format_text;
using ksutil::db::RowText;
using ksutil::events::MadeRows;

TEST(MadeRows, AreKeptAsTheyWereMade) {
  std::vector<std::string> rows;
  std::vector<RowText> texts;
  {
    MadeRows made;
    for (int i = 0; i < 9000; i++) {
      rows.push_back(format_text("%8d -        %8d %8d mb %7.2f -1 network\n", i, i / 2,
                                 i / 3, i * 0.01));
      /* A layout may change between two rows. */
      if (i % 1000 == 999) rows.back().insert(0, "wider ");
      texts.push_back(made.add(rows.back()));
      const auto earlier = static_cast<std::size_t>(i / 2);
      ASSERT_EQ(texts[earlier], rows[earlier]);
    }
    EXPECT_TRUE(made.add("").empty());
  }
  for (std::size_t i = 0; i < rows.size(); i++) ASSERT_EQ(texts[i], rows[i]);
}

TEST(MadeRows, AreFewInMostReadings) {
  RowText text;
  {
    MadeRows made;
    text = made.add("one row\n");
  }
  EXPECT_EQ(text, "one row\n");
}

}  // namespace
