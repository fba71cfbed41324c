/* An archive is indexed every night by a script: a row too many or a file taken for another
 * shows only when somebody reads a seismogram that is not there. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "formats/kssac.h"
#include "platform/db/db.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/segment.h"
#include "tests/support/miniseed.h"
#include "tests/support/register.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using test::counting_record;
using test::RecordPlan;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

class KsdbIndex : public testing::Test {
 protected:
  ProgramRun import(const std::string &options = "", const std::string &what = "arch",
                    const std::string &database = "db") const {
    return run_program(std::string(KSDB_PROGRAM) + " import --create css3.0 " +
                       options + " " + (folder_ / what) + " " + (folder_ / database));
  }
  /* Writes a file of the archive, with the folders above it. */
  void write(const std::string &name, const std::string &bytes) const {
    fs::create_directories(fs::path(folder_ / ("arch/" + name)).parent_path());
    folder_.write("arch/" + name, bytes);
  }
  std::string table(const std::string &name, const std::string &fields) const {
    return run_program(std::string(KSDB_PROGRAM) + " list --csv --fields " + fields +
                       " " + (folder_ / "db") + " " + name)
        .output;
  }
  std::string rows() const { return table("wfdisc", "chan,nsamp,foff,dir,dfile,wfid"); }
  std::string bytes_of_tables() const {
    std::string all;
    for (const char *name :
         {"wfdisc", "sitechan", "seedcode", "affiliation", "lastid"}) {
      all += read_text(folder_ / ("db." + std::string(name)));
    }
    return all;
  }
  /* The first count of a row of wfdisc, and how many there are. */
  std::pair<double, std::size_t> read(long record) const {
    Dbptr db;
    Segment segment;
    if (dbopen_noshare((folder_ / "db").c_str(), "r", &db) != 0) return {};
    Dbptr row = dblookup(db, "", "wfdisc", "", "");
    row.record = record;
    std::pair<double, std::size_t> found{};
    if (read_segment(row, 0, 0, segment) && segment.size() > 0) {
      std::vector<double> values(segment.size());
      segment.copy_to(values.data());
      found = {values[0], values.size()};
    }
    dbclose(db);
    return found;
  }

  const ScratchFolder folder_;
};

const std::string kDay = "2001/XX/ABC/BHZ.D/XX.ABC.00.BHZ.D.2001.252";

RecordPlan plan_of(const std::string &loc) {
  RecordPlan plan;
  plan.loc = loc;
  return plan;
}

TEST_F(KsdbIndex, IndexesAnArchiveAndChangesNothingAgain) {
  const RecordPlan plan = plan_of("00"), other = plan_of("10");
  write(kDay, counting_record(plan, 0) + counting_record(plan, 100) +
                  counting_record(plan, 300));
  write("2001/XX/ABC/BHZ.D/XX.ABC.10.BHZ.D.2001.252", counting_record(other, 0));
  write("notes.txt", "a note\n");
  const ProgramRun run = import();
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output,
              HasSubstr("3 added, 0 changed, 0 unchanged, 0 refused: 2 files\n"
                        "new channels: 2\nfiles of other kinds: 1\n"));
  EXPECT_THAT(run.errors, HasSubstr("notes.txt: neither miniSEED nor SAC"));
  EXPECT_EQ(rows(),
            "chan,nsamp,foff,dir,dfile,wfid\n"
            "BHZ00,200,,arch/2001/XX/ABC/BHZ.D,XX.ABC.00.BHZ.D.2001.252,1\n"
            "BHZ00,100,1024,arch/2001/XX/ABC/BHZ.D,XX.ABC.00.BHZ.D.2001.252,2\n"
            "BHZ10,100,,arch/2001/XX/ABC/BHZ.D,XX.ABC.10.BHZ.D.2001.252,3\n");
  EXPECT_EQ(table("sitechan", "sta,chan,ondate,chanid"),
            "sta,chan,ondate,chanid\nABC,BHZ00,2001252,1\nABC,BHZ10,2001252,2\n");
  EXPECT_EQ(table("seedcode", "sta,chan,net,seedchan,loc"),
            "sta,chan,net,seedchan,loc\nABC,BHZ00,XX,BHZ,00\nABC,BHZ10,XX,BHZ,10\n");
  const auto last = table("lastid", "keyname,keyvalue");
  EXPECT_THAT(last, AllOf(HasSubstr("wfid,3"), HasSubstr("chanid,2")));
  if (miniseed_available()) {
    EXPECT_EQ(read(1), std::pair(300.0, std::size_t{100}));
  }
  const std::string before = bytes_of_tables();
  EXPECT_THAT(import().output, HasSubstr("0 added, 0 changed, 3 unchanged"));
  /* The same files by another path. */
  fs::create_directory_symlink(folder_ / "arch", folder_ / "link");
  EXPECT_THAT(import("", "link").output, HasSubstr("0 added, 0 changed, 3 unchanged"));
  EXPECT_EQ(bytes_of_tables(), before);
}

/* A disk error in the first block must not hide the rest of a day. */
TEST_F(KsdbIndex, ADamagedBeginningHidesOnlyItsRecord) {
  const RecordPlan plan = plan_of("00");
  std::string day = counting_record(plan, 0);
  day.replace(0, 48, std::string(48, '\0'));
  write(kDay, day + counting_record(plan, 100) + counting_record(plan, 200));
  const ProgramRun run = import();
  EXPECT_EQ(run.code, 0) << run.errors;
  EXPECT_THAT(run.output, HasSubstr("1 added, 0 changed, 0 unchanged, 0 refused"));
  EXPECT_THAT(rows(), HasSubstr("BHZ00,200,512,"));
}

/* Rows outlive what happens to their files: the end is lost, other records stand there. */
TEST_F(KsdbIndex, VerifyLooksAtTheRecordsOfRows) {
  if (!miniseed_available()) GTEST_SKIP() << "verify decodes records";
  RecordPlan plan = plan_of("00"), other = plan_of("10");
  other.chan = "LHZ";
  std::string bytes;
  for (int i = 0; i < 40; ++i) {
    bytes += counting_record(plan, 100 * i);
    if (i % 3 == 0) bytes += counting_record(other, 50 * i);
  }
  write("mixed", bytes);
  std::string plain;
  for (int i = 0; i < 40; ++i) plain += counting_record(other, 200000 + 100 * i);
  write("plain", plain);
  ASSERT_EQ(import().code, 0);
  const auto verify = [&] {
    return run_program(std::string(KSDB_PROGRAM) + " verify " + (folder_ / "db"));
  };
  EXPECT_EQ(verify().code, 0) << verify().output;
  write("plain", plain.substr(0, 39 * 512));
  EXPECT_THAT(verify().output,
              HasSubstr("wfdisc: 1 waveform files that are too short"));
  write("plain", std::string(40 * 512, 'x'));
  EXPECT_THAT(verify().output,
              HasSubstr("wfdisc: 1 waveform rows without their records"));
  /* An import takes records in any order, and so does this. */
  write("plain", plain.substr(512) + plain.substr(0, 512));
  EXPECT_EQ(verify().code, 0) << verify().output;
  write("plain", plain.substr(512) + plain.substr(512, 512));
  EXPECT_THAT(verify().output,
              HasSubstr("wfdisc: 1 waveform files that are too short"));
  std::string later;
  for (int i = 0; i < 40; ++i) later += counting_record(other, 300000 + 100 * i);
  write("plain", later);
  EXPECT_THAT(verify().output,
              HasSubstr("wfdisc: 1 waveform rows without their records"));
  std::string foreign;
  for (int i = 0; i < 40; ++i) foreign += counting_record(plan, 200000 + 100 * i);
  write("plain", foreign);
  EXPECT_THAT(
      verify().output,
      HasSubstr("wfdisc: 1 waveform rows whose records are of another channel"));
}

TEST_F(KsdbIndex, GrowingFilesExtendTheirRows) {
  const RecordPlan plan = plan_of("00");
  const std::string first = counting_record(plan, 0),
                    second = counting_record(plan, 100);
  write(kDay, first + second.substr(0, 200));
  EXPECT_THAT(import().errors, HasSubstr("100 samples are lost"));
  EXPECT_THAT(rows(), HasSubstr("BHZ00,100,,"));
  write(kDay, first + second + counting_record(plan, 300));
  EXPECT_THAT(import().output, HasSubstr("1 added, 1 changed, 0 unchanged"));
  EXPECT_THAT(rows(), AllOf(HasSubstr("BHZ00,200,,"), HasSubstr("BHZ00,100,1024,")));
  /* A late record joins both pieces: one row has nothing left, and is told. */
  write(kDay, first + second + counting_record(plan, 300) + counting_record(plan, 200));
  const ProgramRun run = import();
  EXPECT_THAT(run.output, HasSubstr("0 added, 1 changed, 0 unchanged"));
  EXPECT_THAT(run.output,
              HasSubstr("rows kept of pieces that their files no longer have: 1"));
  EXPECT_THAT(rows(), HasSubstr("BHZ00,400,,"));
  /* Written anew in order, with a gap elsewhere: the free row is used again. */
  write(kDay, first + counting_record(plan, 500));
  EXPECT_THAT(import().output, HasSubstr("0 added, 2 changed, 0 unchanged"));
  EXPECT_THAT(rows(), AllOf(HasSubstr("BHZ00,100,,"), HasSubstr("BHZ00,100,512,")));
  EXPECT_THAT(table("lastid", "keyname,keyvalue"), HasSubstr("wfid,2"));
}

TEST_F(KsdbIndex, TellsOfFilesThatAreGone) {
  write(kDay, counting_record(plan_of("00"), 0));
  write("keeps", counting_record(plan_of("10"), 0));
  ASSERT_EQ(import().code, 0);
  fs::remove(folder_ / ("arch/" + kDay));
  const ProgramRun run = import();
  EXPECT_EQ(run.code, 0);
  EXPECT_THAT(run.errors,
              HasSubstr("252: the file is gone; its 1 row of wfdisc stays"));
  EXPECT_THAT(run.output, HasSubstr("rows kept of files that are gone: 1"));
  EXPECT_THAT(rows(), HasSubstr(".2001.252,"));
  /* Another folder has nothing to say about it. */
  fs::create_directory(folder_ / "empty");
  EXPECT_THAT(import("", "empty").errors, IsEmpty());
}

TEST_F(KsdbIndex, SacFilesOfBothByteOrders) {
  fs::create_directory(folder_ / "arch");
  std::vector<float> values{1.5F, 2.5F, 3.5F};
  KSSac *const sac = kssac_create(nullptr, nullptr);
  ASSERT_EQ(kssac_putdata_kssac(sac, 3, values.data(), "V", 1e9, 30.0), 0);
  ASSERT_EQ(kssac_puthdr_kssac(sac, "KSTNM", "ABC", "KCMPNM", "BHZ", "KNETWK", "XX",
                               (char *)nullptr),
            0);
  const std::string path = folder_ / "arch/one.sac";
  ASSERT_EQ(kssac_write_to_file_kssac(sac, path.c_str()), 0);
  kssac_free_kssac(sac);
  ASSERT_EQ(run_program(std::string(KSSAC_PROGRAM) + " swap " + path + " " +
                        (folder_ / "arch/two.sac"))
                .code,
            0);
  folder_.write("arch/three.sac", read_text(path).substr(0, 640));
  for (const char *const assignment : {"KHOLE=long", "'KNETWK=a b'"}) {
    const std::string name = std::string("arch/") + assignment[1] + ".sac";
    folder_.write(name, read_text(path));
    ASSERT_EQ(run_program(std::string(KSSAC_PROGRAM) + " set " + (folder_ / name) +
                          " " + assignment)
                  .code,
              0);
  }
  const ProgramRun run = import();
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors,
              AllOf(HasSubstr("three.sac: it lacks samples that NPTS promises"),
                    HasSubstr("the codes XX.ABC.long.BHZ do not fit the tables"),
                    HasSubstr("the codes a?b.ABC..BHZ do not fit the tables")));
  EXPECT_EQ(table("wfdisc", "sta,chan,nsamp,samprate,calib,datatype,foff,dfile"),
            "sta,chan,nsamp,samprate,calib,datatype,foff,dfile\n"
            "ABC,BHZ,3,30.0000000,1.000000,f4,632,one.sac\nABC,BHZ,3,30.0000000,1."
            "000000,t4,632,two.sac\n");
  for (const long record : {0, 1}) {
    EXPECT_EQ(read(record), std::pair(1.5, std::size_t{3}));
  }
  /* A file alone. */
  EXPECT_THAT(import("", "arch/two.sac").output, HasSubstr("1 unchanged"));
}

TEST_F(KsdbIndex, CodesOfSeedcodeDecide) {
  write("a", counting_record(plan_of("00"), 0));
  ASSERT_EQ(import("-n").code, 0);
  EXPECT_FALSE(fs::exists(folder_ / "db"));
  ASSERT_EQ(dbcreate((folder_ / "db").c_str(), "css3.0"), 0);
  Dbptr db;
  ASSERT_EQ(dbopen_noshare((folder_ / "db").c_str(), "r+", &db), 0);
  dbaddv(dblookup(db, "", "seedcode", "", ""), "sta", "MINE", "chan", "Z1", "net", "XX",
         "seedsta", "ABC", "seedchan", "BHZ", "loc", "00", (char *)nullptr);
  dbaddv(dblookup(db, "", "sitechan", "", ""), "sta", "MINE", "chan", "Z1", "ondate",
         2000001L, "chanid", 77L, (char *)nullptr);
  dbclose(db);
  EXPECT_THAT(import().output, Not(HasSubstr("new channels")));
  EXPECT_EQ(table("wfdisc", "sta,chan,chanid"), "sta,chan,chanid\nMINE,Z1,77\n");
  /* The station of another network may not pass for this one. */
  RecordPlan other = plan_of("10");
  write("b", counting_record(other, 0));
  ASSERT_EQ(import().code, 0);
  other.net = "YY";
  write("c", counting_record(other, 0));
  const ProgramRun run = import();
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.errors, HasSubstr("c: channel BHZ10 of station ABC stands for other "
                                    "codes in seedcode"));
}

TEST_F(KsdbIndex, RefusesWhatTheTableCannotHold) {
  write("a/" + std::string(33, 'x'), counting_record(plan_of(""), 0));
  write("b", counting_record(plan_of(""), 0));
  const ProgramRun strict = import("--strict");
  EXPECT_EQ(strict.code, 1);
  EXPECT_THAT(strict.errors,
              AllOf(HasSubstr("its name is longer than the 32 characters of dfile"),
                    HasSubstr("nothing imported (--strict)")));
  EXPECT_THAT(read_text(folder_ / "db.wfdisc"), IsEmpty());
  EXPECT_THAT(import().output, HasSubstr("1 added, 0 changed, 0 unchanged, 1 refused"));
  /* A database elsewhere gets absolute folders, as long as they fit. */
  fs::create_directory(folder_ / "elsewhere");
  ASSERT_EQ(import("", "arch/b", "elsewhere/db").code, 0);
  EXPECT_THAT(read_text(folder_ / "elsewhere/db.wfdisc"),
              HasSubstr(fs::canonical(folder_ / "arch").string() + " "));
  const std::string deep = std::string(40, 'd') + "/" + std::string(40, 'e') + "/f";
  write(deep, counting_record(plan_of(""), 0));
  EXPECT_THAT(import().errors,
              HasSubstr("its folder is longer than the 64 characters of dir"));
}

/* A row with such a name points to another file: to a namesake beside the database, or to
 * none. */
TEST_F(KsdbIndex, RefusesNamesThatRowsWouldChange) {
  for (const std::string name : {"-", " lead", "tail ", "two\nlines", "fine"}) {
    write(name + "/a", counting_record(plan_of(""), 0));
    write("files/" + name, counting_record(plan_of("10"), 0));
  }
  const auto into = [&](const std::string &folder) {
    return run_program("cd '" + (folder_ / "arch") +
                       "' && " KSDB_PROGRAM " import --create css3.0 '" + folder +
                       "' db");
  };
  const auto with = [](const char *fault) {
    return HasSubstr("its folder " + std::string(fault));
  };
  EXPECT_THAT(into("./-").errors, with("is the null of dir"));
  EXPECT_THAT(into(" lead").errors,
              with("begins or ends with a blank, which dir does not keep"));
  EXPECT_THAT(into("tail ").errors, with("begins or ends with a blank"));
  EXPECT_THAT(into("two\nlines").errors, with("has a control character"));
  EXPECT_THAT(read_text(folder_ / "arch/db.wfdisc"), IsEmpty());
  EXPECT_EQ(into("fine").code, 0);
  const ProgramRun run = into("files");
  EXPECT_EQ(run.code, 1);
  EXPECT_THAT(run.output, HasSubstr("1 added, 0 changed, 0 unchanged, 4 refused"));
  EXPECT_THAT(run.errors, AllOf(HasSubstr("files/-: its name is the null of dfile"),
                                HasSubstr("files/tail : its name begins or ends")));
}

TEST_F(KsdbIndex, LinksInCirclesEnd) {
  write("a/b", counting_record(plan_of(""), 0));
  fs::create_directory_symlink(folder_ / "arch", folder_ / "arch/a/up");
  fs::create_symlink(folder_ / "arch/a/b", folder_ / "arch/a/same");
  fs::create_symlink(folder_ / "arch/none", folder_ / "arch/dangling");
  EXPECT_THAT(import().output, HasSubstr("1 added, 0 changed, 0 unchanged, 0 refused"));
  EXPECT_EQ(import("", "nothing").code, 1);
  /* A year that lies on another disk: rows name it as the archive does. */
  fs::create_directories(folder_ / "disk/2002");
  folder_.write("disk/2002/c", counting_record(plan_of("10"), 0));
  fs::create_directory_symlink(folder_ / "disk/2002", folder_ / "arch/2002");
  EXPECT_THAT(import().output, HasSubstr("1 added, 0 changed, 1 unchanged"));
  EXPECT_THAT(rows(), HasSubstr(",arch/2002,c,"));
  EXPECT_THAT(import().output, HasSubstr("0 added, 0 changed, 2 unchanged"));
  EXPECT_THAT(import("", "disk").output, HasSubstr("0 added, 0 changed, 1 unchanged"));
}

}  // namespace
}  // namespace ksutil::tools
