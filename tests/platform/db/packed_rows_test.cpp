/* Rows in memory are packed while others read them.  A character that comes back wrong is
 * a wrong magnitude in somebody's list; a pointer into freed bytes is a crash that no
 * user can explain. */
#include "platform/db/internal/packed_rows.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/db/row_text.h"
#include "platform/stock/text.h"

using ksutil::db::BlockPtr;
using ksutil::db::PackedRows;
using ksutil::db::RowText;

namespace {

/* Rows of an origin's kind: places, times and ids that count up. */
std::string origins(std::size_t count, std::mt19937 &random) {
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  std::string rows;
  for (std::size_t i = 0; i < count; ++i) {
    const auto id = static_cast<long>(100000 + i);
    rows += ksutil::format_text(
        "%9.4f %9.4f %9.4f %17.5f %8ld %8ld %-7s %-15s %17.5f\n", unit(random) * 90,
        unit(random) * 180, 300 + unit(random) * 300,
        1.4e9 + 900.0 * static_cast<double>(i), id, id / 2, i % 3 == 0 ? "mb" : "ML",
        "network", 1.4e9);
  }
  return rows;
}

/* Rows whose columns draw from alphabets of every size, 1 to 256; the newline in place. */
std::string of_all_alphabets(std::size_t count, std::mt19937 &random) {
  std::string rows;
  for (std::size_t i = 0; i < count; ++i) {
    for (unsigned size = 1; size <= 256; size = size * 3 / 2 + 1) {
      const unsigned first = size > 200 ? 0 : 200 - size;
      char c;
      do {
        c = static_cast<char>(first + random() % size);
      } while (c == '\n');
      rows += c;
    }
    rows += "packed with a constant text that does not differ from row to row\n";
  }
  return rows;
}

/* Digits of every count in neighbouring and in single columns. */
std::string of_digits(std::size_t count, std::mt19937 &random) {
  std::string rows;
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t length = 1; length < 9; ++length) {
      for (std::size_t k = 0; k < length; ++k)
        rows += "0123456789 -.+eE"[random() % 16];
      rows += '|';
    }
    rows += '\n';
  }
  return rows;
}

void expect_same(const PackedRows &packed, const std::string &rows,
                 std::mt19937 &random) {
  ASSERT_EQ(packed.size(), rows.size());
  std::string back(rows.size(), '?');
  packed.unpack(0, back.size(), back.data());
  ASSERT_EQ(back, rows);
  for (int i = 0; i < 300; ++i) {
    const std::size_t from = random() % (rows.size() + 1);
    const std::size_t count =
        random() % (std::min<std::size_t>(rows.size() - from, 900) + 1);
    std::string piece(count + 1, '?');
    packed.unpack(from, count, piece.data());
    ASSERT_EQ(piece, rows.substr(from, count) + '?') << from << ' ' << count;
  }
}

BlockPtr block_of(const std::string &rows) {
  BlockPtr block = BlockPtr::make(rows.size());
  std::memcpy(block.fill(), rows.data(), rows.size());
  return block;
}

/* The texts of the rows of a block. */
std::vector<RowText> texts_of(const BlockPtr &block, std::size_t length) {
  std::vector<RowText> texts;
  for (std::size_t at = 0; at + length <= block.size(); at += length) {
    texts.emplace_back(block, at, length);
  }
  return texts;
}

}  // namespace

TEST(PackedRows, GiveBackEveryByte) {
  std::mt19937 random(1);
  /* On both sides of the ends of chunks. */
  for (const std::size_t count : {60U, 127U, 128U, 129U, 1000U, 2048U}) {
    for (const auto &make : {origins, of_all_alphabets, of_digits}) {
      std::string rows = make(count, random);
      for (const char *end : {"", "1", "an incomplete last row"}) {
        const auto packed = PackedRows::pack(rows + end);
        ASSERT_NE(packed, nullptr);
        expect_same(*packed, rows + end, random);
      }
    }
  }
}

/* What programs write into one character of some rows, at any place. */
TEST(PackedRows, SurviveAnyDamageToTheRows) {
  std::mt19937 random(2);
  const std::string whole = origins(300, random);
  for (int round = 0; round < 60; ++round) {
    std::string rows = whole.substr(0, whole.size() - random() % 200);
    for (auto i = random() % 50; i > 0; --i) {
      rows[random() % rows.size()] = static_cast<char>(random() % 256);
    }
    /* A newline elsewhere gives another length of rows, which may not pack at all. */
    const auto packed = PackedRows::pack(rows);
    if (packed != nullptr) expect_same(*packed, rows, random);
  }
}

TEST(PackedRows, RefuseWhatDoesNotBecomeSmaller) {
  std::mt19937 random(3);
  std::string noise;
  for (int i = 0; i < 100000; ++i) {
    noise += i % 100 == 99 ? '\n' : static_cast<char>(random() | 0x80);
  }
  EXPECT_EQ(PackedRows::pack(noise), nullptr);
  EXPECT_EQ(PackedRows::pack(std::string(100000, 'x')), nullptr) << "without rows";
  EXPECT_EQ(PackedRows::pack(std::string(9000, 'x').append(1, '\n')), nullptr)
      << "too long";
  EXPECT_EQ(PackedRows::pack(""), nullptr);
  EXPECT_NE(PackedRows::pack(std::string(100000, '\n')), nullptr) << "empty rows";
}

TEST(PackedRows, TakeAFifthOfTypicalRows) {
  std::mt19937 random(4);
  const std::string rows = origins(4000, random);
  const auto packed = PackedRows::pack(rows);
  ASSERT_NE(packed, nullptr);
  EXPECT_LT(packed->memory() * 5, rows.size() * 2) << "places are random here";
}

TEST(PackedRows, KeepOutOfTheirBounds) {
  std::mt19937 random(5);
  const std::string rows = origins(100, random);
  const auto packed = PackedRows::pack(rows);
  ASSERT_NE(packed, nullptr);
  std::string to = "untouched";
  packed->unpack(rows.size() - 1, 2, to.data());
  packed->unpack(rows.size() + 1, 0, to.data());
  packed->unpack(SIZE_MAX, 5, to.data());
  packed->unpack(5, SIZE_MAX, to.data());
  EXPECT_EQ(to, "untouched");
}

TEST(PackedBlock, ReadsAsBefore) {
  std::mt19937 random(6);
  const std::string rows = origins(500, random);
  const std::size_t length = rows.find('\n') + 1;
  BlockPtr block = block_of(rows);
  const std::vector<RowText> texts = texts_of(block, length);
  ASSERT_TRUE(block.release_raw());
  EXPECT_EQ(block.data(), nullptr);
  EXPECT_EQ(block.size(), rows.size());
  EXPECT_TRUE(block.release_raw()) << "again costs nothing";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::string expected = rows.substr(i * length, length);
    const RowText &text = texts[i];
    ASSERT_EQ(text.str(), expected);
    EXPECT_TRUE(text == expected && expected == text && text == RowText(expected));
    EXPECT_EQ(text <=> expected, std::strong_ordering::equal);
    EXPECT_EQ(std::hash<RowText>()(text), std::hash<std::string>()(expected));
    EXPECT_EQ(text.find("network"), expected.find("network"));
    EXPECT_EQ(text.substr(10, 9), expected.substr(10, 9));
    EXPECT_EQ(text[3], expected[3]);
    EXPECT_TRUE(text.ends_with('\n'));
    EXPECT_EQ(text.read([](std::string_view row) { return row.size(); }), length);
    std::ostringstream out;
    out << text;
    EXPECT_EQ(out.str() + text, expected + expected);
  }
  EXPECT_FALSE(texts[0] == texts[1]);
  EXPECT_EQ(texts[0] < texts[1], rows.substr(0, length) < rows.substr(length, length));
  /* Rows of another length, over the ends of rows and of chunks. */
  const RowText part(block, length - 3, 200 * length);
  EXPECT_EQ(part.str(), rows.substr(length - 3, 200 * length));

  block.restore_raw();
  EXPECT_EQ(std::string_view(block.data(), block.size()), rows);
  EXPECT_EQ(texts[7].str(), rows.substr(7 * length, length));
  EXPECT_TRUE(block.release_raw());
  EXPECT_EQ(texts[7].str(), rows.substr(7 * length, length));
}

/* A view is valid while a text of its block lives, whatever happens to the block. */
TEST(PackedBlock, KeepsWhatItGaveAway) {
  std::mt19937 random(7);
  const std::string rows = origins(200, random);
  const std::size_t length = rows.find('\n') + 1;
  const std::string third = rows.substr(3 * length, length);

  BlockPtr kept = block_of(rows);
  RowText text(kept, 3 * length, length);
  const char *const c_text = text.c_str();
  const std::string_view before = text.view();
  EXPECT_FALSE(kept.release_raw()) << "the view is in the raw bytes";
  EXPECT_NE(kept.data(), nullptr);
  EXPECT_EQ(before, third);
  EXPECT_EQ(c_text, third);

  BlockPtr packed = block_of(rows);
  text = RowText(packed, 3 * length, length);
  EXPECT_EQ(text.c_str(), third) << "a copy is not a view";
  const char *const copy = text.c_str();
  ASSERT_TRUE(packed.release_raw());
  const std::string_view view = text.view();
  const std::string joined(text.begin(), text.end());
  packed = BlockPtr();
  EXPECT_EQ(view, third);
  EXPECT_EQ(joined, third);
  EXPECT_EQ(copy, third);
  EXPECT_EQ(text.c_str(), copy);
}

TEST(PackedBlock, IsNotMadeOfTextsOrFewRows) {
  std::mt19937 random(8);
  const std::string rows = origins(10, random);
  BlockPtr small = block_of(rows);
  EXPECT_FALSE(small.release_raw());
  BlockPtr texts = BlockPtr::make_of_texts(100000);
  std::memset(texts.fill(), '\n', 100000);
  EXPECT_FALSE(texts.release_raw());
  EXPECT_FALSE(BlockPtr().release_raw());
  BlockPtr noise = BlockPtr::make(100000);
  for (std::size_t i = 0; i < noise.size(); ++i) {
    noise.fill()[i] = static_cast<char>(random());
  }
  EXPECT_FALSE(noise.release_raw());
  EXPECT_FALSE(noise.release_raw());
  EXPECT_NE(noise.data(), nullptr);
}

TEST(PackedBlock, WaitsForAReaderInPlace) {
  std::mt19937 random(9);
  const std::string rows = origins(200, random);
  BlockPtr block = block_of(rows);
  const RowText text(block, 0, 50);
  {
    const RowText::Reading reading(text);
    EXPECT_FALSE(block.release_raw());
    EXPECT_EQ(reading.text(), rows.substr(0, 50));
    EXPECT_EQ(text.str(), rows.substr(0, 50)) << "of the packed rows";
  }
  EXPECT_TRUE(block.release_raw());
  EXPECT_EQ(text.str(), rows.substr(0, 50));
}

/* Clients read, copy and free texts while the thread of the database gives up the raw
 * bytes of their blocks and takes them back. */
TEST(PackedBlock, IsReadWhileItIsPacked) {
  std::mt19937 random(10);
  const std::string rows = origins(64, random);
  const std::size_t length = rows.find('\n') + 1;
  for (int round = 0; round < 40; ++round) {
    BlockPtr block = block_of(rows);
    const std::vector<RowText> texts = texts_of(block, length);
    std::atomic<int> wrong = 0, ready = 0;
    std::vector<std::jthread> readers;
    for (unsigned reader = 0; reader < 3; ++reader) {
      readers.emplace_back([&, reader, mine = texts] {
        ++ready;
        for (std::size_t i = 0; i < mine.size(); ++i) {
          const std::string_view expected(&rows[i * length], length);
          const RowText copy = mine[i];
          if (copy.read([&](std::string_view row) { return row != expected; })) ++wrong;
          /* In every other round nobody pins the raw bytes. */
          if (round % 2 == 1 && i % 8 == reader && copy.view() != expected) ++wrong;
          if (i % 16 == reader && copy.c_str() != expected) ++wrong;
        }
      });
    }
    while (ready < 2) std::this_thread::yield();
    for (int i = 0; i < 20; ++i) {
      if (block.release_raw()) block.restore_raw();
    }
    readers.clear();
    EXPECT_EQ(wrong, 0);
    const bool gone = block.release_raw();
    EXPECT_TRUE(gone || round % 2 == 1) << "nobody reads any more";
  }
}
