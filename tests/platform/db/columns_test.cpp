/* Every number that the system knows about an event passes through these readers and
 * writers: one misread printing is an earthquake in the wrong place, one value cut to fit
 * is wrong data on disk. */
#include "platform/db/columns.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <random>

#include "table_files.h"

namespace ksutil::db {
namespace {

using ::testing::HasSubstr;
using testing::messages;

Relation one_field(FieldType type, int width, const char *format, const char *null_text,
                   double null_real) {
  Relation layout;
  Field field;
  field.name = "f";
  field.type = type;
  field.offset = 2;
  field.width = width;
  field.format = format;
  field.null_text = null_text;
  field.null_real = null_real;
  field.null_integer =
      std::isfinite(null_real) ? static_cast<std::int64_t>(null_real) : 0;
  layout.fields.push_back(field);
  layout.width = 2 + width;
  return layout;
}

std::string row_of(const std::string &text, int width) {
  std::string row = "x " + text;
  row.resize(static_cast<std::size_t>(width) + 2, ' ');
  return row + "\n";
}

constexpr double kNull = -999.0;

TEST(RealColumn, ReadsWhatFilesHold) {
  const Relation layout = one_field(FieldType::kReal, 20, "%20.5f", "-999.0", kNull);
  const RealColumn column(layout, "f");
  const struct {
    const char *text;
    double value;
  } cases[] = {{"  1274400000.12345", 1274400000.12345},
               {".000", 0.0},
               {"-.05", -0.05},
               {"1274313600", 1274313600.0},
               {"120.", 120.0},
               {"6.16070000E-02", 0.0616070000},
               {"-9.99000e+02", -999.0},
               {"NaN", kNull},
               {"-", kNull},
               {"", kNull},
               {"+1.5", 1.5},
               {"00000000000000000001", 1.0},
               {"123456789012345678", 123456789012345678.0},
               {"0.1", 0.1},
               {"9007199254740993", 9007199254740992.0},
               {"-9999999999.99900", -9999999999.999}};
  for (const auto &c : cases) {
    double value = 77.0;
    EXPECT_TRUE(column.read(row_of(c.text, 20), value)) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
  for (const char *text :
       {"PT4.24", "1.2.3", "1 2", "--1", ".", "inf", "1e999", "12x"}) {
    double value;
    EXPECT_FALSE(column.read(row_of(text, 20), value)) << text;
  }
  double value;
  EXPECT_FALSE(column.read("x 1.5", value)) << "a row too short for the field";
}

TEST(RealColumn, FieldThatTheLayoutLacksReadsAsNull) {
  const RealColumn column(one_field(FieldType::kReal, 5, "%5.1f", "-1.0", -1.0),
                          "nosuch");
  EXPECT_FALSE(column.valid());
  double value = 1.0;
  EXPECT_TRUE(column.read("x   1.0\n", value));
  EXPECT_EQ(value, column.null());
}

TEST(IntegerColumn, ReadsWhatFilesHold) {
  const Relation layout = one_field(FieldType::kInteger, 20, "%20d", "-1", -1);
  const IntegerColumn column(layout, "f");
  const struct {
    const char *text;
    std::int64_t value;
  } cases[] = {{"  752753007", 752753007},
               {" 4800   ", 4800},
               {"-1", -1},
               {"-", -1},
               {"", -1},
               {"NaN", -1},
               {"12.0", 12},
               {"1e3", 1000},
               {"12.", 12},
               {"9223372036854775807", std::numeric_limits<std::int64_t>::max()}};
  for (const auto &c : cases) {
    std::int64_t value = 77;
    EXPECT_TRUE(column.read(row_of(c.text, 20), value)) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
  for (const char *text : {"1.5", "x", "1 1", "9223372036854775808999", "1e300"}) {
    std::int64_t value;
    EXPECT_FALSE(column.read(row_of(text, 20), value)) << text;
  }
}

/* The reader of plain numbers has its own arithmetic; strtod is the reference. */
TEST(RealColumn, RandomPrintingsAgreeWithTheCLibrary) {
  std::mt19937 random(7);
  const Relation layout = one_field(FieldType::kReal, 24, "%24.5f", "-999.0", kNull);
  const RealColumn column(layout, "f");
  for (int i = 0; i < 20000; ++i) {
    std::string text = random() % 2 ? "-" : "";
    const auto whole = random() % 12, decimals = random() % 9;
    for (auto k = whole + 1; k > 0; --k) text += static_cast<char>('0' + random() % 10);
    text += '.';
    for (auto k = decimals; k > 0; --k) text += static_cast<char>('0' + random() % 10);
    double value = 0.0;
    ASSERT_TRUE(column.read(row_of(text, 24), value)) << text;
    ASSERT_EQ(value, std::strtod(text.c_str(), nullptr)) << text;
  }
}

TEST(LoadDate, ReadsNumbersAndTexts) {
  const struct {
    const char *text;
    double epoch;
  } cases[] = {{"1394103999.00000", 1394103999.0},
               {"2014-03-03T110706", 1393844826.0},
               {"2011/01/31", 1296432000.0},
               {"20100526 12:00:00", 1274875200.0},
               {"20100526", 1274832000.0},
               {"18/10/25 16:44:28", 1540485868.0},
               {"16-MAR-16", 1458086400.0},
               {"99999999", 99999999.0},
               {"-", kNull},
               {"", kNull}};
  for (const auto &c : cases) {
    double epoch = 0.0;
    EXPECT_TRUE(read_load_date(std::string(c.text) + "   ", kNull, epoch)) << c.text;
    EXPECT_EQ(epoch, c.epoch) << c.text;
  }
  double epoch;
  EXPECT_FALSE(read_load_date("yesterday", kNull, epoch));
}

TEST(WriteColumns, PrintsInTheFormatOfTheField) {
  std::string row = "x       y\n";
  Field field = one_field(FieldType::kReal, 7, "%7.2f", "-999.00", kNull).fields[0];
  EXPECT_TRUE(write_real(field, 5.678, row));
  EXPECT_EQ(row, "x    5.68\n");
  EXPECT_TRUE(write_real(field, kNull, row));
  EXPECT_EQ(row, "x -999.00\n");
  field = one_field(FieldType::kInteger, 7, "%7d", "-1", -1).fields[0];
  EXPECT_TRUE(write_real(field, 42.0, row));
  EXPECT_EQ(row, "x      42\n");
  field = one_field(FieldType::kText, 7, "%-7s", "-", 0).fields[0];
  EXPECT_TRUE(write_text(field, "Ab c", row));
  EXPECT_EQ(row, "x Ab c   \n");
  EXPECT_TRUE(write_text(field, "", row));
  EXPECT_EQ(row, "x -      \n");
}

TEST(WriteColumns, WideLoadDateStandsAtTheLeft) {
  std::string row(27, ' ');
  Field field =
      one_field(FieldType::kDate, 25, "%17.5f", "-", -9999999999.999).fields[0];
  EXPECT_TRUE(write_real(field, 1394103999.5, row));
  EXPECT_EQ(row, "  1394103999.50000" + std::string(9, ' '));
  EXPECT_TRUE(write_text(field, "2011/01/31", row));
  EXPECT_EQ(row, "  1296432000.00000" + std::string(9, ' '));
}

TEST(WriteColumns, WhatDoesNotFitIsRefusedAndNothingIsWritten) {
  const std::string before = "x 1234567\n";
  std::string row = before;
  const Field real =
      one_field(FieldType::kReal, 7, "%7.2f", "-999.00", kNull).fields[0];
  const Field integer = one_field(FieldType::kInteger, 7, "%7d", "-1", -1).fields[0];
  const Field text = one_field(FieldType::kText, 7, "%-7s", "-", 0).fields[0];
  EXPECT_FALSE(write_real(real, 99999.996, row)) << "rounds to eight characters";
  EXPECT_FALSE(write_real(real, std::nan(""), row));
  EXPECT_FALSE(write_real(real, std::numeric_limits<double>::infinity(), row));
  EXPECT_FALSE(write_real(real, std::numeric_limits<double>::max(), row));
  EXPECT_FALSE(write_integer(integer, 12345678, row));
  EXPECT_FALSE(write_integer(integer, -1234567, row));
  EXPECT_FALSE(write_real(integer, 1.5, row));
  EXPECT_FALSE(write_text(integer, "12a", row));
  EXPECT_FALSE(write_text(text, "eight888", row));
  EXPECT_FALSE(write_text(text, "a\nb", row));
  EXPECT_EQ(row, before);
  EXPECT_THAT(messages(), HasSubstr("f: 100000.00 does not fit into 7 characters"));
  std::string cut = "x 12";
  EXPECT_FALSE(write_integer(integer, 1, cut));
  EXPECT_EQ(cut, "x 12");
  elog_clear_register(0);
}

TEST(WriteColumns, EveryFieldOfTheSchemasReadsBackWhatWasWritten) {
  for (const char *schema : {"css3.0", "kbcore"}) {
    for (const Relation &table : Schema::load(schema)->relations()) {
      for (const Field &field : table.fields) {
        std::string row = null_record(table);
        if (field.type == FieldType::kText) {
          const std::string text(static_cast<std::size_t>(field.width), 'Z');
          ASSERT_TRUE(write_text(field, text, row));
          std::string_view read;
          ASSERT_TRUE(TextColumn(table, field.name).read(row, read));
          EXPECT_EQ(read, text);
        } else {
          double read;
          ASSERT_TRUE(write_real(field, 3.0, row)) << table.name << "." << field.name;
          ASSERT_TRUE(RealColumn(table, field.name).read(row, read));
          EXPECT_EQ(read, 3.0) << table.name << "." << field.name;
        }
        EXPECT_EQ(row.size(), static_cast<std::size_t>(table.width) + 1);
      }
    }
  }
}

}  // namespace
}  // namespace ksutil::db
