/* Whoever imports at night by a script sees the exit code and the messages only: both must
 * say what the database has got. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kImport = std::string(KSDB_PROGRAM) + " import ";

class KsdbImport : public testing::Test {
 protected:
  ProgramRun import(const std::string &options, const std::string &text) const {
    return run_program(kImport + options + " " + folder_.write("c.csv", text) + " " +
                       name_);
  }
  std::string table(const std::string &name) const {
    return read_text(name_ + "." + name);
  }
  const ScratchFolder folder_;
  const std::string name_ = folder_ / "db";
};

const std::string kColumns = "time,latitude,longitude,id,mag,updated\n";
const std::string kTwo =
    "2015-08-01T00:00:00Z,1,2,a,4,2015-08-02\n"
    "2015-08-03T00:00:00Z,1,2,b,5,2015-08-04\n";

TEST_F(KsdbImport, CountsAddUpToTheLines) {
  const ProgramRun run =
      import("--create css3.0 --min-magnitude 4.5",
             kColumns + kTwo +
                 "1621-05-01T00:00:00Z,1,2,early,6,\n"
                 "2015-08-03T00:00:00Z,1,2,b,5.5,2015-08-05\nsoon,1,2,c,6,\n");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("c.csv:4: origin.time cannot hold 1621-05-01"));
  EXPECT_THAT(run.errors, HasSubstr("c.csv:6: time is 'soon'"));
  EXPECT_EQ(run.output,
            "1 added, 0 updated, 0 unchanged, 0 older, 1 superseded, 1 left out, 2 "
            "refused: 5 lines\n");
  EXPECT_THAT(table("netmag"), HasSubstr("5.50"));
}

TEST_F(KsdbImport, StrictImportsAllOrNothing) {
  ASSERT_EQ(import("--create css3.0", kColumns + kTwo).code, 0);
  const std::string before = table("event") + table("origin") + table("lastid");
  const std::string more = "2015-08-05T00:00:00Z,1,2,d,5,2015-08-06\n";
  const struct {
    std::string text, said;
  } cases[] = {
      {kColumns + more + "soon,1,2,c,6,\n", "time is 'soon'"},
      {kColumns + more + "1621-05-01T00:00:00Z,1,2,early,6,\n", "cannot hold"},
      {"flavour," + kColumns + "x," + more, "no place for column flavour"},
      {"net," + kColumns + "averylongnetworkcode," + more,
       "3 texts do not fit their fields: netmag.auth, origin.auth, event.auth\n"},
  };
  for (const auto &c : cases) {
    const ProgramRun run = import("--strict", c.text);
    EXPECT_EQ(run.code, 1) << c.said;
    EXPECT_THAT(run.errors, HasSubstr(c.said));
    EXPECT_THAT(run.errors, HasSubstr("nothing imported"));
    EXPECT_EQ(table("event") + table("origin") + table("lastid"), before) << c.said;
    EXPECT_THAT(import("-n", c.text).output, HasSubstr("would be: 1 added"));
  }
}

TEST_F(KsdbImport, ReadsStandardInputAndTheFormatThatIsNamed) {
  folder_.write("c.csv", kColumns + kTwo);
  const std::string pipe = "cat " + (folder_ / "c.csv") + " | " + kImport;
  EXPECT_THAT(run_program(pipe + "--create css3.0 - " + name_).output,
              HasSubstr("2 added"));
  EXPECT_THAT(run_program(pipe + "--format csv - " + name_).output,
              HasSubstr("2 unchanged"));
  EXPECT_THAT(
      run_program("gzip -c " + (folder_ / "c.csv") + " | " + kImport + "- " + name_)
          .errors,
      HasSubstr("standard input is a gzip archive"));
  EXPECT_EQ(run_program(pipe + "--format pigeon - " + name_).code, 2);
  EXPECT_EQ(run_program(pipe + "--after tomorrow - " + name_).code, 2);
}

TEST_F(KsdbImport, DryRunMakesNoDatabase) {
  const ProgramRun run = import("--create css3.0 --dry-run", kColumns + kTwo);
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("would be: 2 added"));
  EXPECT_FALSE(std::filesystem::exists(name_));
  EXPECT_EQ(table("event"), "");
}

TEST_F(KsdbImport, SaysSoWhenTheDiskIsFull) {
  ASSERT_EQ(import("--create css3.0", kColumns).code, 0);
  const std::string rows = kTwo + kTwo;
  folder_.write("c.csv", kColumns + kTwo);
  /* A limit on the size of files stands for a full disk. */
  const ProgramRun run = run_program("sh -c 'ulimit -f 1; exec " + kImport +
                                     (folder_ / "c.csv") + " " + name_ + "'");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("Cannot write"));
  EXPECT_THAT(run.errors, Not(HasSubstr("Cannot undo")));
  EXPECT_EQ(table("event") + table("origin"), "");
  EXPECT_FALSE(std::filesystem::exists(name_ + ".journal"));
}

TEST_F(KsdbImport, WhatWasMadeGoesAgainWhenTheImportFails) {
  const ProgramRun full =
      run_program("sh -c 'ulimit -f 1; exec " + kImport + "--create css3.0 " +
                  folder_.write("c.csv", kColumns + kTwo) + " " + name_ + "'");
  EXPECT_EQ(full.code, 1);
  const ProgramRun strict = import("--strict --create css3.0",
                                   kColumns + "1621-05-01T00:00:00Z,1,2,early,6,\n");
  EXPECT_EQ(strict.code, 1);
  EXPECT_FALSE(std::filesystem::exists(name_));
  const std::string refused = "1621-05-01T00:00:00Z,1,2,early,6,\n";
  EXPECT_THAT(import("--create css3.0", kColumns + refused).output,
              HasSubstr("0 added, 0 updated, 0 unchanged, 0 older, 1 refused"));
  EXPECT_FALSE(std::filesystem::exists(name_));
  EXPECT_FALSE(std::filesystem::exists(name_ + ".event"));
  /* What came in stays, and so does a database that was there. */
  EXPECT_EQ(import("--create css3.0", kColumns + kTwo + refused).code, 1);
  EXPECT_NE(table("event"), "");
  for (const auto &file : std::filesystem::directory_iterator(folder_.path())) {
    std::filesystem::remove(file);
  }
  ASSERT_EQ(import("--create css3.0", kColumns).code, 0);
  EXPECT_EQ(import("--strict --create css3.0",
                   kColumns + "1621-05-01T00:00:00Z,1,2,early,6,\n")
                .code,
            1);
  EXPECT_TRUE(std::filesystem::exists(name_));
}

TEST_F(KsdbImport, ADatabaseMayHaveTheNameOfItsCatalogue) {
  const std::string catalogue = folder_.write("db.csv", kColumns + kTwo);
  EXPECT_EQ(run_program(kImport + catalogue + " " + name_).errors,
            "ksdb: there is no database " + name_ + "; --create SCHEMA makes one\n");
  const ProgramRun run =
      run_program(kImport + "--create css3.0 " + catalogue + " " + name_);
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("2 added"));
}

TEST_F(KsdbImport, StationsBesideACatalogueLeaveItSound) {
  ASSERT_EQ(import("--create css3.0",
                   "time,latitude,longitude,id,mag,net\n"
                   "2015-08-01T00:00:00Z,1,2,a,4,us\n")
                .code,
            0);
  ASSERT_EQ(import("",
                   "#Network|Station|Latitude|Longitude|Elevation|SiteName|StartTime|"
                   "EndTime\nXX|S|1|2|3|n|2010-01-01T00:00:00|\n")
                .code,
            0);
  EXPECT_NE(table("network"), "");
  EXPECT_EQ(run_program(std::string(KSDB_PROGRAM) + " verify " + name_).code, 0);
}

TEST_F(KsdbImport, OnlyADatabaseThatIsNotThereCanBeCreated) {
  EXPECT_EQ(import("", kColumns + kTwo).errors,
            "ksdb: there is no database " + name_ + "; --create SCHEMA makes one\n");
  ASSERT_EQ(import("--create css3.0", kColumns + kTwo).code, 0);
  folder_.write("db.journal", "not one");
  EXPECT_EQ(
      import("", kColumns + kTwo).errors,
      "ksdb: " + name_ + ".journal: This is not a journal of changes; move it away.\n");
}

/* Agencies of a catalogue are not networks of stations. */
TEST_F(KsdbImport, VerifiesBesideATableOfNetworks) {
  const std::string ksdb = KSDB_PROGRAM;
  const std::string networks =
      folder_.write("n.txt",
                    "#Network|Description|StartTime|EndTime|TotalStations\n"
                    "IU|Global|1988-01-01T00:00:00||10\n");
  EXPECT_EQ(run_program(kImport + "--create css3.0 " + networks + " " + name_).code, 0);
  EXPECT_EQ(import("",
                   "time,latitude,longitude,id,mag,magType,net\n"
                   "2015-08-01T00:00:00Z,1,2,a,4,mb,us\n")
                .code,
            0);
  const ProgramRun verified = run_program(ksdb + " verify " + name_);
  EXPECT_EQ(verified.code, 0) << verified.output;
}

/* The whole way of a bulletin through the program. */
TEST_F(KsdbImport, TakesABulletinAndVerifies) {
  const std::string bulletin = folder_.write(
      "q.xml",
      "<eventParameters><event publicID=\"e\"><pick publicID=\"p\"><time><value>"
      "2016-11-13T11:03:06Z</value></time><waveformID networkCode=\"NZ\" stationCode="
      "\"KHZ\" channelCode=\"HHZ\"/></pick><origin publicID=\"o\"><time><value>"
      "2016-11-13T11:02:56Z</value></time><latitude><value>-42</value></latitude>"
      "<longitude><value>173</value></longitude><arrival><pickID>p</pickID><phase>Pn"
      "</phase><takeoffAngle><value>3</value></takeoffAngle></arrival></origin></event>"
      "</eventParameters>");
  const ProgramRun run =
      run_program(kImport + "--create kbcore " + bulletin + " " + name_);
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("1 added"));
  EXPECT_THAT(run.output, HasSubstr("no place for arrival/takeoffAngle\n"));
  EXPECT_THAT(run_program(kImport + bulletin + " " + name_).output,
              HasSubstr("1 unchanged"));
  EXPECT_EQ(run_program(std::string(KSDB_PROGRAM) + " verify " + name_).code, 0);
  EXPECT_EQ(run_program(kImport + "--strict " + bulletin + " " + name_).code, 1);
}

}  // namespace
}  // namespace ksutil::tools
