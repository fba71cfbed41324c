/* A value that comes back otherwise than it was written moves an earthquake; a value that
 * spills over its field moves every field behind it. */
#include "platform/db/postgresql/internal/pg_rows.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/support/register.h"

namespace ksutil::db {
namespace {

std::shared_ptr<const Relation> relation(const char *table) {
  const auto schema = Schema::load("css3.0");
  return {schema, schema->find(table)};
}

std::string rendered(const PgRows &rows, const std::string &line, std::string &cause) {
  std::string row(rows.length(), '#');
  if (!rows.render(line, row.data(), cause)) EXPECT_NE(row.back(), '\n');
  return row;
}

/* Random values as the writers of columns.h put them into their fields. */
std::string random_row(const Relation &relation, std::mt19937_64 &random) {
  std::string row = null_record(relation);
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  const double scales[] = {0.0, 1e-9, 1.0, 99.0, 1e6, 1.7e9};
  for (const Field &field : relation.fields) {
    switch (random() % 4) {
      case 0:
        break;  // stays null
      case 1: {
        const double value = scales[random() % 6] * unit(random);
        if (field.type != FieldType::kText) write_real(field, value, row);
        break;
      }
      case 2:
        write_integer(field, static_cast<std::int64_t>(random() % 200000) - 100000,
                      row);
        break;
      default: {
        std::string text;
        for (std::size_t i = random() % 8; i > 0; --i)
          text += "aZ \\'\"\xc3,;N"[random() % 11];
        if (field.type == FieldType::kText) write_text(field, text, row);
        break;
      }
    }
  }
  ksutil::test::taken_messages();  // of values that did not fit
  return row;
}

TEST(PgRows, RowsComeBackByteForByte) {
  std::mt19937_64 random(17);
  for (const char *table : {"origin", "assoc", "netmag", "wfdisc", "site", "mt"}) {
    const auto layout = relation(table);
    if (layout == nullptr) continue;
    const PgRows rows(layout);
    for (int i = 0; i < 300; ++i) {
      const std::string row = random_row(*layout, random);
      std::string line, cause;
      ASSERT_TRUE(rows.to_copy("dbadd", row, line)) << ksutil::test::taken_messages();
      ASSERT_EQ(line.back(), '\n');
      line.pop_back();
      ASSERT_EQ(rendered(rows, line, cause), row) << table << " " << line;
    }
  }
}

/* Replaces one value of a line of the table of counters. */
std::string lastid_line(const std::string &name, const std::string &value,
                        const std::string &date) {
  return name + "\t" + value + "\t" + date;
}

TEST(PgRows, ValuesOfSqlThatFitNoFieldMakeOneRowUnreadable) {
  const PgRows rows(relation("lastid"));
  std::string cause;
  const std::string good = rendered(rows, lastid_line("evid", "7", "\\N"), cause);
  EXPECT_EQ(good.back(), '\n');
  EXPECT_EQ(rendered(rows, lastid_line("\\N", "-1", "-9999999999.999"), cause),
            null_record(rows.relation()));
  for (const auto &[line, told] : std::vector<std::pair<std::string, std::string>>{
           {lastid_line("a name without an end", "7", "\\N"), "keyname"},
           {lastid_line("two\\nlines", "7", "\\N"), "control character"},
           {lastid_line("a\\tb", "7", "\\N"), "control character"},
           {lastid_line("evid", "123456789", "\\N"), "keyvalue"},
           {lastid_line("evid", "7", "NaN"), "no number"},
           {lastid_line("evid", "7", "-Infinity"), "no number"},
           {lastid_line("evid", "7", "1e300"), "lddate"},
           {lastid_line("evid", "", "0"), "integer"},
           {"evid\t7", "columns"},
           {"evid\t7\t0\t0", "columns"},
           {"", "columns"},
           {"evid\\", "columns"}}) {
    cause.clear();
    EXPECT_NE(rendered(rows, line, cause).back(), '\n') << line;
    EXPECT_NE(cause.find(told), cause.npos) << line << ": " << cause;
  }
}

TEST(PgRows, NumbersThatCannotBeReadAreRefused) {
  const PgRows rows(relation("lastid"));
  std::string row = null_record(rows.relation()), line;
  row.replace(static_cast<std::size_t>(rows.relation().find("keyvalue")->offset), 3,
              "x.y");
  EXPECT_FALSE(rows.to_copy("dbadd", row, line));
  EXPECT_NE(ksutil::test::taken_messages().find("keyvalue"), std::string::npos);
}

TEST(PgRows, LiteralsAreQuotedWhereverAValueComesFromOutside) {
  const PgRows rows(relation("lastid"));
  std::string row = null_record(rows.relation()), line, values;
  const Field &name = *rows.relation().find("keyname");
  ASSERT_TRUE(write_text(name, "a'\\b", row));
  ASSERT_TRUE(rows.to_copy("dbadd", row, line));
  rows.to_values(
      line, true, [](std::string_view text) { return "<" + std::string(text) + ">"; },
      values);
  EXPECT_EQ(values, "(<a'\\b>::text,NULL::bigint,NULL::double precision)");
}

}  // namespace
}  // namespace ksutil::db
