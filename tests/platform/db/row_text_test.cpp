/* Programs handle row texts as they handle std::string.  What does not compile costs them a
 * rewrite; a C string that runs on into the next row, or that goes while it is used, is a
 * wrong value at best. */
#include "platform/db/row_text.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <iomanip>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "platform/db/access.h"
#include "platform/db/db.h"
#include "tests/support/rows.h"

using ksutil::db::BlockPtr;
using ksutil::db::RowText;

namespace {

constexpr std::string_view kRows = "AAA 1\nBBB 2\n";

/* A piece of a block of two rows; the second row unless said otherwise. */
RowText embedded(std::size_t offset = 6, std::size_t length = 6) {
  BlockPtr block = BlockPtr::make(kRows.size());
  std::memcpy(block.fill(), kRows.data(), kRows.size());
  return RowText(block, offset, length);
}

std::string by_value(std::string text) { return text; }
std::string by_reference(const std::string &text) { return text; }
std::string_view as_view(std::string_view text) { return text; }

}  // namespace

TEST(RowText, ConvertsToAndFromTexts) {
  const RowText row = embedded();
  std::string text = row;
  EXPECT_EQ(text, "BBB 2\n");
  const std::string direct(row), braced{row};
  std::string_view view = row;
  EXPECT_TRUE(direct == braced && view == direct);
  text = embedded(0, 3);
  text += row;
  text.append(row).append(1, '!');
  EXPECT_EQ(text, "AAABBB 2\nBBB 2\n!");
  EXPECT_EQ(by_value(row), by_reference(row));
  EXPECT_EQ(as_view(row).size(), 6U);
  std::map<std::string, int> counts;
  counts[row]++;
  std::vector<std::string> texts;
  texts.push_back(row);
  texts.emplace_back(row);
  EXPECT_EQ(counts.begin()->first, texts[1]);

  RowText changed;
  changed = std::string("from a string");
  EXPECT_EQ(changed, "from a string");
  changed = "from a literal";
  changed = std::string_view("from a view");
  EXPECT_EQ(changed.str(), "from a view");
  const char *none = nullptr;
  changed = none;
  EXPECT_TRUE(changed.empty());
}

TEST(RowText, ComparesWithAnyTextFromEitherSide) {
  const RowText row = embedded(), same("BBB 2\n"), less = embedded(0, 6);
  const std::string text = "BBB 2\n";
  const std::string_view view = text;
  const char *const c_text = text.c_str();
  char array[8] = "BBB 2\n";
  EXPECT_TRUE(row == same && same == row);
  EXPECT_TRUE(row == text && text == row);
  EXPECT_TRUE(row == view && view == row);
  EXPECT_TRUE(row == c_text && c_text == row);
  EXPECT_TRUE(row == array && array == row);
  EXPECT_TRUE(row == "BBB 2\n" && "BBB 2\n" == row);
  EXPECT_TRUE(row != less && row != "BBB 2" && "BBB 2" != row && less != text);
  EXPECT_TRUE(less < row && row > less && less <= same && row >= same);
  EXPECT_TRUE(less < text && text > less && "AAA" < less && less < "B" && view >= less);
  EXPECT_EQ(less <=> text, std::strong_ordering::less);
  EXPECT_EQ("C" <=> row, std::strong_ordering::greater);
  EXPECT_LT(less.compare(text), 0);
  EXPECT_EQ((std::set<RowText>{row, less, same}.size()), 2U);
}

TEST(RowText, PrintsAndConcatenates) {
  const RowText row = embedded(6, 5);
  std::ostringstream out;
  out << row << '|' << std::setw(7) << std::left << std::setfill('.') << row
      << RowText();
  EXPECT_EQ(out.str(), "BBB 2|BBB 2..");
  EXPECT_EQ("<" + row + ">", "<BBB 2>");
  EXPECT_EQ(row + row, "BBB 2BBB 2");
  EXPECT_EQ(std::string("a") + row + std::string("b"), "aBBB 2b");
  EXPECT_EQ(row + std::string_view("c"), "BBB 2c");
  EXPECT_EQ(std::string_view("c") + row, "cBBB 2");
  EXPECT_EQ('(' + row + ')', "(BBB 2)");
}

TEST(RowText, IsSearchedAndCutAsAString) {
  const RowText row = embedded();
  EXPECT_EQ(row.length(), row.size());
  EXPECT_EQ(row.find("2"), 4U);
  EXPECT_EQ(row.find('B', 1), 1U);
  EXPECT_EQ(row.find(std::string("A")), RowText::npos) << "of the row before";
  EXPECT_EQ(row.rfind('B'), 2U);
  EXPECT_EQ(row.find_first_of("21"), 4U);
  EXPECT_EQ(row.find_last_not_of(" \n"), 4U);
  std::string cut = row.substr(0, 3);
  EXPECT_EQ(cut, "BBB");
  EXPECT_EQ(row.substr(4), "2\n");
  EXPECT_THROW(row.substr(7), std::out_of_range);
  EXPECT_TRUE(row.starts_with("BBB") && row.ends_with('\n') && row.front() == 'B' &&
              row.back() == '\n');
  EXPECT_EQ(row[4], '2');
  EXPECT_EQ(row[6], '\0') << "and not the next byte of the block";
  EXPECT_THROW(static_cast<void>(row.at(6)), std::out_of_range);
  EXPECT_EQ(std::string(row.begin(), row.end()), row);
  EXPECT_EQ(std::string(row.rbegin(), row.rend()), "\n2 BBB");
  int letters = 0;
  for (const char c : row) letters += std::isalpha(static_cast<unsigned char>(c)) != 0;
  EXPECT_EQ(letters, 3);
}

TEST(RowText, HashesAsAnEqualString) {
  EXPECT_EQ(std::hash<RowText>()(embedded()), std::hash<std::string>()("BBB 2\n"));
  const std::unordered_set<RowText> rows{embedded(), RowText("BBB 2\n"), RowText()};
  EXPECT_EQ(rows.size(), 2U);
}

TEST(RowText, GivesACStringThatEndsWithTheRow) {
  RowText row = embedded(0, 6), copy = row;
  const char *const text = row.c_str();
  EXPECT_STREQ(text, "AAA 1\n") << "the next row follows in the block";
  EXPECT_EQ(row.c_str(), text) << "made once";
  EXPECT_EQ(copy.data(), text);
  row = RowText();
  EXPECT_STREQ(text, "AAA 1\n") << "a copy of the row lives";
  EXPECT_STREQ(embedded(0, 3).c_str(), "AAA");
  EXPECT_STREQ(embedded(6, 6).c_str(), "BBB 2\n") << "at the end of its block";
  const RowText own("of its own");
  EXPECT_EQ(own.c_str(), own.view().data()) << "costs nothing";
  EXPECT_STREQ(RowText().c_str(), "");
  EXPECT_STREQ(RowText().data(), "");
}

TEST(RowText, IsEmptyOnceItHasBeenMoved) {
  RowText from = embedded();
  RowText to = std::move(from);
  EXPECT_EQ(to, "BBB 2\n");
  EXPECT_TRUE(from.empty());  // NOLINT(bugprone-use-after-move): that is the point
  EXPECT_EQ(from, "");
  EXPECT_STREQ(from.c_str(), "");
  EXPECT_EQ(from.begin(), from.end());
  from = std::move(to);
  EXPECT_EQ(from, "BBB 2\n");
  EXPECT_EQ(to.size(), 0U);
}

TEST(RowText, GathersTextsIntoABlockOfTheirOwn) {
  RowText first = embedded(0, 6), none, second = embedded(), tail = embedded(10, 1);
  RowText *const texts[] = {&first, &none, &second, &tail};
  RowText::gather([&](auto fn) {
    for (RowText *text : texts) fn(*text);
  });
  EXPECT_EQ(first, "AAA 1\n");
  EXPECT_TRUE(none.empty());
  EXPECT_EQ(second, "BBB 2\n");
  EXPECT_EQ(tail.c_str(), tail.view().data()) << "with their ends";
  EXPECT_STREQ(first.c_str(), "AAA 1\n");
  EXPECT_EQ(first.view().data() + 7, second.view().data());
}

/* A scratch table writes in place into blocks that texts share: behind their rows, and over
 * rows that nobody shows any more. */
TEST(RowText, OfAScratchTableKeepsItsCString) {
  Dbptr db = dbtmp("css3.0");
  Dbptr event = dblookup(db, "", "event", "", "");
  using ksutil::test::kEndOfArguments;
  event.record = dbaddv(event, "evid", 1L, kEndOfArguments);
  RowText row = ksutil::db::record_text(event);
  const std::string before = row;
  const char *const text = row.c_str();
  for (long evid = 2; evid < 40; evid++) dbaddv(event, "evid", evid, kEndOfArguments);
  EXPECT_EQ(text, before);
  EXPECT_EQ(row.c_str(), before);
  row = RowText();
  dbputv(event, "evid", 77L, kEndOfArguments);
  row = ksutil::db::record_text(event);
  EXPECT_NE(row, before);
  EXPECT_EQ(row.c_str(), row.str());
  dbclose(db);
}

TEST(RowText, GivesOneCStringToAllThreads) {
  const RowText row = embedded(0, 6);
  std::vector<const char *> texts(4);
  {
    std::vector<std::jthread> threads;
    for (const char *&text : texts) {
      threads.emplace_back([&text, copy = row] {
        for (int i = 0; i < 1000; i++) {
          text = copy.c_str();
          static_cast<void>(RowText(copy).c_str());
        }
      });
    }
  }
  for (const char *text : texts) EXPECT_EQ(text, row.c_str());
}
