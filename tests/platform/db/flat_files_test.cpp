/* Table files come from many programs.  A layout guessed wrong turns every number of a table
 * into another. */
#include <gmock/gmock.h>

#include "flat_files_fixture.h"

namespace ksutil::db {
namespace {

using namespace testing;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/* Ends the record as another program would: its load date in `width` characters. */
std::string with_lddate(const std::string &row, const std::string &lddate,
                        std::size_t width, std::size_t old_width) {
  std::string text = lddate;
  text.resize(width, ' ');
  return row.substr(0, row.size() - 1 - old_width) + text + "\n";
}

TEST_F(FlatFiles, LoadDatesOfAnyWidthAreFitted) {
  for (const std::size_t width : {11u, 17u, 19u, 25u, 26u}) {
    std::string text;
    for (int i = 0; i < 5; ++i) {
      text +=
          with_lddate(origin_row("kbcore", 100 + i, 10.0 + i), "16-MAR-16", width, 19);
    }
    write_file(path("origin"), text);
    TableStore &origin = table("origin");
    EXPECT_EQ(stores_.back()->schema()->name(), "kbcore");
    ASSERT_EQ(origin.snapshot()->count(), 5);
    EXPECT_EQ(origin.layout().fields.back().width, static_cast<int>(width));
    EXPECT_EQ(real_of(origin, "lat", 4), 14.0);
    EXPECT_EQ(integer_of(origin, "orid", 4), 104);
    EXPECT_EQ(real_of(origin, "lddate", 0), 1458086400.0);
    EXPECT_EQ(origin.snapshot()->row(4), text.substr(4 * text.size() / 5));
  }
}

TEST_F(FlatFiles, StrictTableInAWideDatabaseKeepsItsOwnLayout) {
  write_file(path("event"), null_record(relation("kbcore", "event")));
  write_file(path("origin"), origin_row("css3.0", 7, 3.5));
  TableStore &origin = table("origin");
  EXPECT_EQ(stores_.back()->schema()->name(), "kbcore");
  EXPECT_EQ(origin.layout().width, 237);
  EXPECT_EQ(integer_of(origin, "orid", 0), 7);
}

TEST_F(FlatFiles, OverflowingFieldDoesNotHideTheLayout) {
  const Relation &layout = relation("kbcore", "assoc");
  std::string text;
  for (int i = 0; i < 20; ++i) {
    std::string row = null_record(layout);
    ASSERT_TRUE(write_real(*layout.find("delta"), 114.022, row));
    row.replace(36, 13, "-1.00114.022 ");
    text += row;
  }
  write_file(path("assoc"), text);
  TableStore &assoc = table("assoc");
  EXPECT_EQ(real_of(assoc, "delta", 19), 114.022);
  EXPECT_EQ(real_of(assoc, "belief", 19), -1.0);
}

TEST_F(FlatFiles, NumbersAtTheLeftOfTheirFieldsAreRead) {
  const Relation &layout = relation("css3.0", "wfdisc");
  std::string row = null_record(layout);
  const auto put = [&](const char *field, std::string text) {
    const Field &f = *layout.find(field);
    text.resize(static_cast<std::size_t>(f.width), ' ');
    row.replace(static_cast<std::size_t>(f.offset), text.size(), text);
  };
  put("time", "1296474900.0");
  put("jdate", "2011031");
  put("nsamp", " 4800");
  put("samprate", "80.0");
  put("foff", "  0");
  put("lddate", "2011/01/31");
  write_file(path("wfdisc"), row);
  TableStore &wfdisc = table("wfdisc");
  EXPECT_EQ(real_of(wfdisc, "time", 0), 1296474900.0);
  EXPECT_EQ(integer_of(wfdisc, "nsamp", 0), 4800);
  EXPECT_EQ(real_of(wfdisc, "lddate", 0), 1296432000.0);
}

TEST_F(FlatFiles, RemaindersCountOnlyWhenTheyAreWholeRecords) {
  const std::string row = lastid_row("orid", 5);
  const std::string whole = row + row;
  const std::string crlf = row.substr(0, 42) + "\r\n";
  const struct {
    const char *name;
    std::string text;
    long count;
  } cases[] = {{"exact", whole, 2},
               {"no newline", whole + row.substr(0, 42), 3},
               {"torn", whole + row.substr(0, 30), 2},
               {"blanks", whole + std::string(42, ' '), 2},
               {"short line", whole + row.substr(0, 41) + "\n", 2},
               {"one record without newline", row.substr(0, 42), 1},
               {"torn first record", row.substr(0, 20), 0},
               {"empty", "", 0},
               {"CRLF", crlf + crlf, 2},
               {"CRLF, no newline", crlf + crlf.substr(0, 43), 2},
               {"CRLF, neither", crlf + crlf.substr(0, 42), 2},
               {"CRLF, torn", crlf + crlf.substr(0, 41), 1},
               {"one CR record without newline", crlf.substr(0, 43), 1}};
  for (const auto &c : cases) {
    write_file(path("lastid"), c.text);
    TableStore &lastid = table("lastid");
    const auto snapshot = lastid.snapshot();
    ASSERT_NE(snapshot, nullptr) << c.name << messages();
    EXPECT_EQ(snapshot->count(), c.count) << c.name;
    for (long record = 0; record < c.count; ++record) {
      EXPECT_EQ(integer_of(lastid, "keyvalue", record), 5) << c.name;
      EXPECT_EQ(snapshot->row(record).back(), '\n') << c.name;
    }
  }
}

TEST_F(FlatFiles, WhatIsNoTableIsAnErrorThatNamesTheFile) {
  write_file(path("event"), null_record(relation("css3.0", "event")));
  write_file(path("origin"),
             "some letter that somebody wrote\nin lines of any length\n");
  write_file(path("arrival"), std::string(100000, 'x'));
  ::mkdir(path("assoc").c_str(), 0777);
  for (const char *name : {"origin", "arrival", "assoc"}) {
    TableStore &broken = table(name);
    Stamp stamp;
    EXPECT_FALSE(broken.stamp(stamp)) << name;
    EXPECT_EQ(broken.snapshot(), nullptr);
    EXPECT_THAT(messages(), HasSubstr(path(name)));
  }
}

TEST_F(FlatFiles, BrokenRecordIsReportedAndTheOthersAreRead) {
  std::string text;
  for (int i = 0; i < 10; ++i) text += lastid_row("id", i);
  text[4 * 43 + 42] = 'x';
  write_file(path("lastid"), text);
  TableStore &lastid = table("lastid");
  EXPECT_EQ(lastid.snapshot()->row(4), "");
  EXPECT_THAT(messages(),
              ::testing::AllOf(HasSubstr(path("lastid")), HasSubstr("Record 4 ")));
  EXPECT_EQ(integer_of(lastid, "keyvalue", 5), 5);
  EXPECT_EQ(lastid.snapshot()->row(10), "");
  EXPECT_EQ(lastid.snapshot()->row(-1), "");
  EXPECT_TRUE(lastid.snapshot()->text(-1).empty());
}

TEST_F(FlatFiles, OpeningNeedsADescriptorOrATable) {
  EXPECT_EQ(open_flat_files(directory_ / "db", "r"), nullptr);
  EXPECT_THAT(messages(), HasSubstr("neither a descriptor nor a table"));
  write_file(path("unknown"), "x\n");
  EXPECT_EQ(open_flat_files(directory_ / "db", "r+"), nullptr);
  EXPECT_EQ(open_flat_files(directory_ / "db", "w"), nullptr);
  EXPECT_TRUE(create_flat_files(directory_ / "db", "kbcore"));
  EXPECT_FALSE(create_flat_files(directory_ / "db", "kbcore"));
  TableStore &origin = table("origin");
  EXPECT_EQ(stores_.back()->schema()->name(), "kbcore");
  Stamp stamp;
  EXPECT_TRUE(origin.stamp(stamp));
  EXPECT_FALSE(stamp.exists);
  EXPECT_EQ(origin.snapshot()->count(), 0);
  EXPECT_EQ(stores_.back()->table("nosuch"), nullptr);
  for (const char *descriptor : {"schema &Tbl{\n", "schema nosuch\n", "sync perhaps\n",
                                 "schema css3.0\ntable_path a/{b}c\n"}) {
    write_file(directory_ / "db", descriptor);
    EXPECT_EQ(open_flat_files(directory_ / "db", "r"), nullptr) << descriptor;
  }
}

/* An empty database in the place of a catalogue is searched, and filled, in silence. */
TEST_F(FlatFiles, FilesThatAreNoDatabasesAreRefusedWithAHint) {
  const struct {
    const char *name, *content, *hint;
  } cases[] = {
      {"catalogue.csv", "time,latitude\n2012-08-31,1.0\n", "is not a database"},
      {"empty", "", "is not a database"},
      {"binary",
       "\x7f"
       "ELF",
       "is not a database"},
      {"cat.origin", "1.0 2.0\n", "a table file, not a database; open "}};
  for (const auto &c : cases) {
    write_file(directory_ / c.name, c.content);
    EXPECT_EQ(open_flat_files(directory_ / c.name, "r+"), nullptr);
    EXPECT_THAT(messages(),
                ::testing::AllOf(HasSubstr(directory_ / c.name), HasSubstr(c.hint)));
  }
  write_file(directory_ / "large.event", std::string(2 << 20, 'x'));
  EXPECT_EQ(open_flat_files(directory_ / "large.event", "r"), nullptr);
  EXPECT_THAT(messages(), HasSubstr("open " + (directory_ / "large") + "."));

  /* A descriptor of other words is one when it has tables; so is a database whose name
   * ends like a table. */
  write_file(directory_ / "db", "owner somebody\n");
  EXPECT_EQ(open_flat_files(directory_ / "db", "r"), nullptr);
  write_file(path("lastid"), lastid_row("orid", 8));
  EXPECT_NE(open_flat_files(directory_ / "db", "r"), nullptr) << messages();
  write_file(directory_ / "my.event", "schema css3.0\n");
  EXPECT_NE(open_flat_files(directory_ / "my.event", "r"), nullptr) << messages();

  write_file(path("ORIGIN"), origin_row("css3.0", 1, 1.0));
  EXPECT_EQ(open_flat_files(directory_ / "db", "r"), nullptr);
  EXPECT_THAT(messages(),
              ::testing::AllOf(HasSubstr(path("ORIGIN")), HasSubstr("lower case")));
  write_file(path("origin"), origin_row("css3.0", 1, 1.0));
  EXPECT_NE(open_flat_files(directory_ / "db", "r"), nullptr) << messages();
}

TEST_F(FlatFiles, ShiftedColumnsAreRefusedWithBothLengths) {
  std::string text;
  for (int i = 0; i < 5; ++i) {
    std::string row = origin_row("css3.0", 100 + i, 10.25 + i);
    text += row.erase(9, 3);  // latitude three digits narrower, the rest moved up
  }
  write_file(path("origin"), text);
  EXPECT_EQ(table("origin").snapshot(), nullptr);
  const auto width = static_cast<std::size_t>(relation("css3.0", "origin").width);
  EXPECT_THAT(messages(),
              ::testing::AllOf(HasSubstr("has " + std::to_string(width - 3)),
                               HasSubstr("says " + std::to_string(width))));
}

TEST_F(FlatFiles, TablePathLeadsToTablesElsewhere) {
  ::mkdir((directory_ / "more").c_str(), 0777);
  write_file(directory_ / "db", "schema css3.0\ntable_path more:more/{archive}\n");
  write_file(directory_ / "more/db.event", null_record(relation("css3.0", "event")));
  write_file(directory_ / "more/archive.lastid", lastid_row("orid", 8));
  EXPECT_EQ(table("event").snapshot()->count(), 1);
  TableStore &lastid = table("lastid");
  EXPECT_EQ(integer_of(lastid, "keyvalue", 0), 8);
  EXPECT_EQ(lastid.file_name(), directory_ / "more/archive.lastid");
  EXPECT_EQ(lastid.directory(), directory_ / "more");
  EXPECT_EQ(table("origin").file_name(), path("origin"));
}

}  // namespace
}  // namespace ksutil::db
