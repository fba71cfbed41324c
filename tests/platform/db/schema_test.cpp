/* A wrong offset in a schema shifts every later field of every row: ids read as garbage,
 * and rows written that way destroy a database for all other programs. */
#include "platform/db/schema.h"

#include <gmock/gmock.h>

#include "table_files.h"

namespace ksutil::db {
namespace {

using ::testing::HasSubstr;
using testing::messages;
using testing::relation;
using testing::TempDirectory;
using testing::write_file;

TEST(Schema, RecordsHaveThePublishedLengths) {
  const struct {
    const char *schema, *table;
    int width;
  } published[] = {{"css3.0", "affiliation", 33}, {"css3.0", "arrival", 223},
                   {"css3.0", "assoc", 152},      {"css3.0", "event", 76},
                   {"css3.0", "gregion", 67},     {"css3.0", "instrument", 239},
                   {"css3.0", "lastid", 42},      {"css3.0", "netmag", 110},
                   {"css3.0", "network", 137},    {"css3.0", "origerr", 257},
                   {"css3.0", "origin", 237},     {"css3.0", "remark", 116},
                   {"css3.0", "sensor", 139},     {"css3.0", "site", 155},
                   {"css3.0", "sitechan", 140},   {"css3.0", "sregion", 67},
                   {"css3.0", "stamag", 117},     {"css3.0", "stassoc", 187},
                   {"css3.0", "wfdisc", 283},     {"css3.0", "wftag", 44},
                   {"css3.0", "mt", 405},         {"css3.0", "detection", 169},
                   {"css3.0", "wfmeas", 254},     {"css3.0", "calibration", 290},
                   {"kbcore", "event", 98},       {"kbcore", "origin", 249},
                   {"kbcore", "origerr", 259},    {"kbcore", "assoc", 157},
                   {"kbcore", "arrival", 229},    {"kbcore", "netmag", 116},
                   {"kbcore", "stamag", 169},     {"kbcore", "wfdisc", 287},
                   {"kbcore", "site", 161},       {"kbcore", "affiliation", 71},
                   {"kbcore", "sensor", 151},     {"kbcore", "wftag", 48}};
  for (const auto &c : published) {
    EXPECT_EQ(relation(c.schema, c.table).width, c.width) << c.schema << " " << c.table;
  }
}

TEST(Schema, NullRecordsReadAsNull) {
  for (const std::string &name : builtin_schemas()) {
    for (const Relation &table : Schema::load(name)->relations()) {
      const std::string record = null_record(table);
      ASSERT_EQ(record.size(), static_cast<std::size_t>(table.width) + 1);
      for (const Field &field : table.fields) {
        const std::string where = name + " " + table.name + "." + field.name;
        const auto at = static_cast<std::size_t>(field.offset);
        EXPECT_TRUE(at == 0 || record[at - 1] == ' ') << where;
        if (field.type == FieldType::kText) {
          std::string_view text;
          ASSERT_TRUE(TextColumn(table, field.name).read(record, text)) << where;
          EXPECT_TRUE(TextColumn(table, field.name).is_null(text)) << where;
        } else {
          double value;
          IntegerColumn integer(table, field.name);
          std::int64_t number;
          if (field.type == FieldType::kPointer) {
            EXPECT_TRUE(integer.read(record, number) && number == 0) << where;
          } else {
            ASSERT_TRUE(RealColumn(table, field.name).read(record, value)) << where;
            EXPECT_EQ(value, field.null_real) << where;
          }
        }
      }
    }
  }
}

TEST(Schema, BothLayoutsHaveEveryWatchedTable) {
  for (const char *schema : {"css3.0", "kbcore"}) {
    for (const char *table :
         {"event", "origin", "origerr", "assoc", "arrival", "wfmeas", "netmag",
          "stamag", "mt", "site", "detection", "wfdisc", "calibration"}) {
      ASSERT_NE(Schema::load(schema)->find(table), nullptr) << schema << " " << table;
      EXPECT_NE(relation(schema, table).find("lddate"), nullptr);
    }
  }
}

TEST(Schema, CounterIsDrawnOnByFieldsOfOtherNames) {
  std::vector<std::string> uses;
  for (const auto &use : Schema::load("css3.0")->counter_uses("magid")) {
    uses.push_back(use.table + "." + use.field);
  }
  EXPECT_THAT(uses,
              ::testing::IsSupersetOf({"netmag.magid", "origin.mbid", "origin.mlid",
                                       "stamag.magid", "mt.magid"}));
  EXPECT_TRUE(Schema::load("css3.0")->counter_uses("nosuch").empty());
}

class SchemaPath : public ::testing::Test {
 protected:
  SchemaPath() { ::setenv("KSUTIL_SCHEMA_PATH", (directory_ / "").c_str(), 1); }
  ~SchemaPath() override {
    ::unsetenv("KSUTIL_SCHEMA_PATH");
    elog_clear_register(0);
  }
  std::shared_ptr<const Schema> load(const std::string &fields,
                                     const std::string &rest = "") {
    write_file(directory_ / "own", "name own\ntables &Arr{\n t &Arr{\n fields &Tbl{\n" +
                                       fields + "\n}\n" + rest + "\n}\n}\n");
    return Schema::load("own");
  }
  TempDirectory directory_;
};

TEST_F(SchemaPath, FileComesBeforeTheBuiltInSchema) {
  write_file(directory_ / "css3.0",
             "name css3.0\ntables &Arr{\n t &Arr{\n fields &Tbl{\n a integer 5 %5d -1\n"
             "b real 7 %7.2f -1.00 a meaning\n}\n primary a\n}\n}\n");
  const auto schema = Schema::load("css3.0");
  ASSERT_NE(schema, nullptr) << messages();
  ASSERT_EQ(schema->relations().size(), 1u);
  EXPECT_EQ(schema->relations()[0].width, 13);
  EXPECT_EQ(null_record(schema->relations()[0]), "   -1   -1.00\n");
}

TEST_F(SchemaPath, DamagedSchemasAreRefusedWithTheCause) {
  const struct {
    const char *fields, *rest, *message;
  } damaged[] = {
      {"a integer 0 %5d -1", "", "t.a: the width must be 1 to 4096"},
      {"a integer 99999999999999999999 %5d -1", "", "t.a: the width"},
      {"a integer 5 %5d -1\na real 5 %5.1f -1.0", "", "t.a: is there twice"},
      {"a integer 5 %5s -1", "", "t.a: the format %5s"},
      {"a integer 5 %n -1", "", "t.a: the format %n"},
      {"a real 5 %5.999999999f -1", "", "t.a: the format"},
      {"a integer 5 %9d -1", "", "t.a: the format %9d"},
      {"b text 5 %-5s -\na float 5 %5d -1", "",
       "t.a: unknown type \"float\" in line 6; the types are integer, real, text, "
       "string, "},
      {"a integer 5 %5d -9999999", "", "t.a: the null is missing or wider"},
      {"a integer 5 %5d", "", "t.a: the null is missing"},
      {"a integer 5 %5d x", "", "t.a: the null is not an integer"},
      {"a integer 5 %5d -1", "primary b", "t: a key names b"},
      {"a integer 5 %5d -1", "id b", "t: the id b"},
      {"a integer 5 %5d -1", "foreign &Tbl{\na nosuch.a\n}", "names nosuch.a"},
      {"", "", "t: has no fields"}};
  for (const auto &c : damaged) {
    EXPECT_EQ(load(c.fields, c.rest), nullptr) << c.fields;
    EXPECT_THAT(messages(),
                ::testing::AllOf(HasSubstr(directory_ / "/own"), HasSubstr(c.message)));
  }
}

TEST_F(SchemaPath, RecordBeyondTheBoundIsRefused) {
  std::string fields;
  for (int i = 0; i < 17; ++i)
    fields += "f" + std::to_string(i) + " string 4096 %s -\n";
  EXPECT_EQ(load(fields), nullptr);
  EXPECT_THAT(messages(), HasSubstr("t.f15: the record is too long"));
}

TEST_F(SchemaPath, NameWithASlashIsNoSchema) {
  EXPECT_EQ(Schema::load("../own"), nullptr);
  EXPECT_EQ(Schema::load(""), nullptr);
}

}  // namespace
}  // namespace ksutil::db
