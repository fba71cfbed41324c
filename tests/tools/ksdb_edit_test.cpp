/* The editing commands change the rows that analysts rely on: a row that should not have
 * changed, a half of a change, or an id given twice is found only when it has done harm. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "platform/db/store.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::json;

class KsdbEdit : public testing::Test {
 protected:
  KsdbEdit() {
    const std::string csv =
        folder_.write("c.csv",
                      "time,latitude,longitude,depth,id,mag,magType,updated\n"
                      "2015-08-01T00:00:00Z,1,2,10,a,4.5,mb,2015-09-01\n"
                      "2015-08-02T00:00:00Z,3,4,20,b,5.5,mb,2015-09-01\n"
                      "2015-08-03T00:00:00Z,5,6,,c,3.5,ml,2015-09-01\n");
    EXPECT_EQ(ksdb("import -q --create css3.0 " + csv + " " + name_).code, 0);
  }
  static ProgramRun ksdb(const std::string &arguments) {
    return run_program(std::string(KSDB_PROGRAM) + " " + arguments);
  }
  /* COMMAND OPTIONS DATABASE REST. */
  ProgramRun run(const std::string &command, const std::string &rest) const {
    return ksdb(command + " " + name_ + " " + rest);
  }
  std::string table(const std::string &name) const {
    return read_text(name_ + "." + name);
  }
  std::string all_tables() const {
    std::string text;
    for (const char *name : {"event", "origin", "netmag", "publicid", "lastid"}) {
      text += table(name);
    }
    return text;
  }
  Json list(const std::string &rest, const std::string &options = "") const {
    return Json::parse(run("list --json " + options, rest).output);
  }
  /* Whether ksdb verify finds nothing wrong. */
  bool sound() const { return ksdb("verify -q " + name_).code == 0; }

  const ScratchFolder folder_;
  const std::string name_ = folder_ / "db";
};

TEST_F(KsdbEdit, AddWritesValuesByTypeAndGivesTheNextId) {
  const ProgramRun added =
      run("add",
          "origin time=2015-08-04T12:00:00.5 lat=-7.25 lon=8 evid=1 etype=- "
          "'algorithm=by hand'");
  EXPECT_EQ(added.code, 0) << added.errors;
  EXPECT_EQ(added.output, "1 row added to origin: record 3, orid 4\n");
  const Json row = list("origin")[3];
  EXPECT_EQ(row["time"], "2015-08-04T12:00:00.500Z");
  EXPECT_EQ(row["jdate"], 2015216);
  EXPECT_EQ(row["lat"], -7.25);
  EXPECT_EQ(row["orid"], 4);
  EXPECT_EQ(row["depth"], nullptr);
  EXPECT_EQ(row["etype"], nullptr);
  EXPECT_EQ(row["algorithm"], "by hand");
  EXPECT_NE(row["lddate"], nullptr);
  EXPECT_EQ(run("nextid", "orid").output, "5\n");

  /* An id that is given counts, too. */
  EXPECT_EQ(
      run("add --json", "netmag orid=4 evid=1 magid=40 magtype=mw magnitude=5").code,
      0);
  const Json next =
      Json::parse(run("add --json", "netmag orid=4 evid=1 magtype=ms").output);
  EXPECT_EQ(next["magid"], Json::array({41}));
  EXPECT_EQ(next["first_record"], 4);
  EXPECT_TRUE(sound());
}

TEST_F(KsdbEdit, CountersStayAheadOfGivenIds) {
  ASSERT_EQ(run("add", "event evid=40 evname=x").code, 0);
  ASSERT_EQ(run("add", "remark commid=80 lineno=1 remark=felt").code, 0);
  ASSERT_TRUE(sound());
  EXPECT_EQ(run("nextid", "evid").output, "41\n");
  EXPECT_EQ(run("nextid", "commid").output, "81\n");
}

TEST_F(KsdbEdit, WhatAFieldCannotHoldIsRefusedWithItsName) {
  const std::string before = all_tables();
  const struct {
    const char *values, *said;
  } cases[] = {
      {"origin lat=north time=0", "origin.lat: 'north' is not a number"},
      {"origin lat=123456789 time=0", "does not fit its 9 characters"},
      {"origin lat=nan time=0", "is not a number"},
      {"origin orid=1.5 time=0", "is not a whole number"},
      {"origin orid=99999999999999999999 time=0", "origin.orid"},
      {"origin time=soon", "is not a time"},
      {"origin jdate=2015400 time=0", "is not a day"},
      {"origin 'auth=much too long for the field' time=0", "15 characters"},
      {"origin \"$(printf 'auth=a\\tb')\" time=0", "control character"},
      {"origin flavour=x", "has no field 'flavour'"},
      {"origin lat=1 lat=2", "field lat is given twice"},
      {"volcano name=x", "no table volcano"},
      {"origin time=1438387200 lat=1 lon=2 depth=10", "is that of record 0"},
      {"origin orid=2 time=0", "orid 2 is that of record 1"},
      {"remark remark=x", "without commid"},
  };
  for (const auto &c : cases) {
    const ProgramRun refused = run("add", c.values);
    EXPECT_EQ(refused.code, 1) << c.values;
    EXPECT_THAT(refused.errors, HasSubstr(c.said)) << c.values;
  }
  EXPECT_EQ(run("add", "origin lat").code, 2);
  EXPECT_EQ(run("add", "origin").code, 2);
  EXPECT_EQ(all_tables(), before);
}

TEST_F(KsdbEdit, RowsOfFilesComeInTogetherOrNotAtAll) {
  const std::string before = all_tables();
  const std::string good =
      "evid,time,lat,lon,auth\n3,2015-08-05,1,1,me\n3,2015-08-06,"
      "2,,\"a, b\"\n";
  const std::string csv = folder_.write("r.csv", good + "3,never,1,1,me\n3,1\n");
  const ProgramRun bad = run("add --csv " + csv, "origin");
  EXPECT_EQ(bad.code, 1);
  EXPECT_THAT(bad.errors, HasSubstr("r.csv:4: origin.time: 'never' is not a time"));
  EXPECT_THAT(bad.errors, HasSubstr("r.csv:5: too few columns"));
  EXPECT_THAT(bad.errors, HasSubstr("2 rows refused; nothing is added"));
  EXPECT_EQ(all_tables(), before);
  folder_.write("r.csv", good);
  EXPECT_EQ(run("add --dry-run --csv " + csv, "origin").output,
            "would be: 2 rows added to origin, from record 3 on\n");
  EXPECT_EQ(all_tables(), before);
  EXPECT_EQ(run_program("cat " + csv + " | " + KSDB_PROGRAM + " add --csv - " + name_ +
                        " origin")
                .code,
            0);
  const std::string json = folder_.write(
      "r.jsonl",
      "{\"evid\": 3, \"time\": \"2015-08-07\", \"lat\": 1.5, \"auth\": null}\n\n"
      "{\"evid\": 3, \"time\": 1438992000.0, \"orid\": 77}\n");
  EXPECT_EQ(run("add --jsonl " + json, "origin").code, 0);
  const Json rows = list("origin", "--fields orid,lon,auth,lat");
  ASSERT_EQ(rows.size(), 7U);
  EXPECT_EQ(rows[4], Json::parse(R"({"orid":5,"lon":null,"auth":"a, b","lat":2.0})"));
  /* New ids keep clear of those that the file gives. */
  EXPECT_EQ(rows[5]["orid"], 78);
  EXPECT_EQ(rows[6]["orid"], 77);
  for (const char *wrong : {"{\"evid\": [1]}", "{\"evid\": 3", "[1]", "7"}) {
    folder_.write("r.jsonl", std::string(wrong) + "\n");
    EXPECT_EQ(run("add --jsonl " + json, "origin").code, 1) << wrong;
  }
  EXPECT_EQ(list("origin").size(), 7U);
}

TEST_F(KsdbEdit, SetChangesTheChosenRowsAlone) {
  const std::string before = all_tables();
  for (const char *choice : {"", "--all --record 1", "--where 'orid == 1' --all"}) {
    EXPECT_EQ(run(std::string("set ") + choice, "origin auth=x").code, 2) << choice;
  }
  for (const char *wrong : {"--where 'orid ==' ", "--where 'nonsense > 1'"}) {
    EXPECT_EQ(run(std::string("set ") + wrong, "origin auth=x").code, 2) << wrong;
  }
  EXPECT_EQ(run("set --record 3", "origin auth=x").code, 1);
  EXPECT_EQ(run("set --dry-run --all", "origin auth=x").output,
            "would be: 3 rows of origin changed, 0 as before\n");
  EXPECT_EQ(all_tables(), before);
  const Json loaded = list("origin", "--raw");
  EXPECT_EQ(run("set --where 'depth > 5'", "origin depth=20.0 etype=qb").output,
            "2 rows of origin changed, 0 as before\n");
  EXPECT_EQ(run("set --where 'depth > 5'", "origin depth=20 etype=qb").output,
            "0 rows of origin changed, 2 as before\n");
  const Json now = list("origin", "--raw");
  EXPECT_EQ(now[2], loaded[2]);
  EXPECT_EQ(now[0]["depth"], 20.0);
  EXPECT_EQ(now[0]["lat"], loaded[0]["lat"]);
  EXPECT_GT(now[0]["lddate"].get<double>(), loaded[0]["lddate"].get<double>());
  EXPECT_EQ(run("set --record 2", "origin time=2016-01-01 lddate=0").code, 0);
  EXPECT_EQ(list("origin")[2]["jdate"], 2016001);
  EXPECT_EQ(list("origin", "--raw")[2]["lddate"], 0.0);
}

TEST_F(KsdbEdit, KeysInUseAreKept) {
  const std::string before = all_tables();
  ProgramRun refused = run("set --record 0", "origin orid=50");
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("1 row of event refers by prefor"));
  EXPECT_THAT(refused.errors, HasSubstr("1 row of netmag refers by orid"));
  EXPECT_THAT(refused.errors, HasSubstr("--force"));
  refused = run("set --record 0", "origin orid=2");
  EXPECT_THAT(refused.errors, HasSubstr("orid 2 is that of record 1"));
  refused = run("set --all", "event evid=9");
  EXPECT_THAT(refused.errors, HasSubstr("stands twice"));
  refused = run("delete --where 'evid == 2'", "event");
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.errors,
              HasSubstr("1 row of origin refers by evid (record 1: evid 2)"));
  EXPECT_THAT(refused.errors, HasSubstr("1 row of publicid refers by tagid"));
  EXPECT_EQ(all_tables(), before);

  EXPECT_EQ(run("set --force --record 0", "origin orid=50").code, 0);
  EXPECT_EQ(list("origin")[0]["orid"], 50);
  EXPECT_FALSE(sound());
}

TEST_F(KsdbEdit, DeleteRemovesWhatNothingRefersTo) {
  EXPECT_EQ(run("delete", "netmag").code, 2);
  /* mbid and mlid of the origins name them. */
  EXPECT_EQ(run("delete --all", "netmag").code, 1);
  EXPECT_EQ(run("set --all", "origin mbid=- mlid=- mb=- ml=-").code, 0);
  const std::string before = all_tables();
  EXPECT_EQ(run("delete -n --where 'magnitude > 4'", "netmag").output,
            "would be: 2 rows of netmag deleted\n");
  EXPECT_EQ(all_tables(), before);
  EXPECT_EQ(run("delete --where 'magnitude > 4'", "netmag").output,
            "2 rows of netmag deleted\n");
  ASSERT_EQ(list("netmag").size(), 1U);
  EXPECT_EQ(list("netmag")[0]["magnitude"], 3.5);
  EXPECT_EQ(run("delete --record 1", "netmag").code, 1);
  EXPECT_EQ(run("delete --all -q", "netmag").output, "");
  EXPECT_EQ(table("netmag"), "");
  EXPECT_TRUE(sound());
  /* Ids are not given out again. */
  EXPECT_EQ(run("nextid", "magid").output, "4\n");
}

TEST_F(KsdbEdit, AValueThatAnotherRowStillHasMayGo) {
  for (const char *line : {"1", "2"}) {
    EXPECT_EQ(run("add", std::string("remark commid=7 remark=x lineno=") + line).code,
              0);
  }
  EXPECT_EQ(run("set --record 0", "event commid=7").code, 0);
  EXPECT_EQ(run("delete --where 'lineno == 1'", "remark").code, 0);
  EXPECT_EQ(run("delete --where 'lineno == 2'", "remark").code, 1);
  EXPECT_EQ(list("remark").size(), 1U);
}

TEST_F(KsdbEdit, PreferTakesOriginsOfTheEventOnly) {
  ASSERT_EQ(run("add", "origin time=2015-08-01T00:00:01 lat=1 lon=2 evid=1").code, 0);
  EXPECT_EQ(run("prefer", "1 2").code, 1);
  EXPECT_THAT(run("prefer", "1 2").errors,
              HasSubstr("origin 2 belongs to event 2, not to event 1"));
  EXPECT_THAT(run("prefer", "9 1").errors, HasSubstr("there is no event 9"));
  EXPECT_THAT(run("prefer", "1 9").errors, HasSubstr("there is no origin 9"));
  EXPECT_EQ(list("event")[0]["prefor"], 1);
  EXPECT_EQ(run("prefer", "1 4").output,
            "event 1 prefers origin 4 (before: origin 1)\n");
  EXPECT_EQ(list("event")[0]["prefor"], 4);
  const std::string before = table("event");
  EXPECT_EQ(Json::parse(run("prefer --json", "1 4").output),
            Json::parse(R"({"evid":1,"prefor":4,"before":4,"changed":false})"));
  EXPECT_EQ(table("event"), before);
}

TEST_F(KsdbEdit, DedupKeepsTheLatestOfEqualRows) {
  const std::string before = table("netmag");
  const std::string first = before.substr(0, before.find('\n') + 1);
  std::string later = first;
  const std::size_t date = first.size() - 18;  // lddate stands last, in 17 characters
  later.replace(date, 17, "1700000000.00000 ");
  std::string other = first;
  other.replace(other.find("4.50"), 4, "4.60");
  folder_.write("db.netmag", before + later + first + other);
  EXPECT_EQ(
      run("dedup -n", "netmag").output.find("would be: 2 rows") == std::string::npos,
      false);
  const Json removed = Json::parse(run("dedup --json", "netmag").output);
  ASSERT_EQ(removed.size(), 2U);
  EXPECT_EQ(removed[0], Json::parse(R"({"record":0,"kept":3,"key":"magid 1"})"));
  EXPECT_EQ(removed[1]["record"], 4);
  EXPECT_EQ(table("netmag"), before.substr(first.size()) + later + other);

  /* By key: the row of another value goes as well. */
  EXPECT_EQ(Json::parse(run("dedup --key --json", "netmag").output).size(), 1U);
  EXPECT_EQ(table("netmag"), before.substr(first.size()) + later);
}

/* Origins of one place and time whose ids differ are one by their key, but netmag rows and
 * events name both. */
TEST_F(KsdbEdit, DedupLeavesRowsThatOthersReferTo) {
  ASSERT_EQ(
      run("set --force --record 1", "origin time=2015-08-01 lat=1 lon=2 depth=10").code,
      0);
  ASSERT_EQ(
      run("add --force", "origin time=2015-08-01 lat=1 lon=2 depth=10 lddate=5 evid=1")
          .code,
      0);
  const ProgramRun run1 = run("dedup --key", "origin");
  EXPECT_EQ(run1.code, 0);
  EXPECT_THAT(run1.output, HasSubstr("1 row of origin removed"));
  EXPECT_THAT(run1.errors, HasSubstr("1 row of origin left"));
  EXPECT_EQ(list("origin").size(), 3U);
  EXPECT_TRUE(sound());
}

TEST_F(KsdbEdit, TablesThatCannotBeWrittenGiveAnErrorAndNoChange) {
  std::filesystem::remove(name_ + ".origin");
  std::filesystem::create_directory(name_ + ".origin");
  const std::string before = table("event") + table("netmag") + table("lastid");
  for (const auto &[command, rest] :
       {std::pair("set --all", "origin auth=x"), std::pair("delete --all", "origin"),
        std::pair("delete --all", "event"), std::pair("add", "origin time=0"),
        std::pair("prefer", "1 1"), std::pair("dedup", "origin")}) {
    const ProgramRun failed = run(command, rest);
    EXPECT_EQ(failed.code, 1) << command << rest;
    EXPECT_THAT(failed.errors, HasSubstr("not a regular file")) << command << rest;
  }
  EXPECT_EQ(table("event") + table("netmag") + table("lastid"), before);
}

/* Exit code 2 would tell a script that its expression is wrong. */
TEST_F(KsdbEdit, TablesThatCannotBeReadAreNotWrongUsage) {
  std::filesystem::remove(name_ + ".origin");
  std::filesystem::create_directory(name_ + ".origin");
  for (const auto &[command, rest] :
       {std::pair("list --where 'depth > 5'", "origin"), std::pair("list", "origin"),
        std::pair("subset", "origin 'depth > 5'"), std::pair("sort", "origin depth"),
        std::pair("group --aggregate 'mean(depth)'", "origin evid"),
        std::pair("join --left-keys prefor --right-keys orid", "event origin"),
        std::pair("plot --where 'depth > 5' --x lon --y lat -o /dev/null", "origin")}) {
    const ProgramRun failed = run(command, rest);
    EXPECT_EQ(failed.code, 1) << command;
    EXPECT_THAT(failed.errors, HasSubstr("not a regular file")) << command;
  }
  EXPECT_EQ(run("join --left-keys evid --right-keys magtype", "event netmag").code, 2);
}

TEST_F(KsdbEdit, TwoAddersGetDifferentIds) {
  constexpr int kRows = 40;
  std::vector<std::thread> adders;
  for (int i = 0; i < 2; i++) {
    adders.emplace_back([this, i] {
      std::string text = "evid,time,lat\n";
      for (int row = 0; row < 5; row++) {
        text += "1,2016-01-01," + std::to_string(10 * i + row) + "\n";
      }
      for (int round = 0; round < kRows / 5; round++) {
        const std::string csv = folder_.write("adder" + std::to_string(i), text);
        EXPECT_EQ(run("add -q --force --csv " + csv, "origin").code, 0);
      }
    });
  }
  for (std::thread &adder : adders) adder.join();
  std::set<long> ids;
  for (const Json &row : list("origin", "--fields orid"))
    ids.insert(row["orid"].get<long>());
  EXPECT_EQ(ids.size(), 3U + 2 * kRows);
}

/* The kill comes at a place that each run chooses anew; whatever it is, the table has all
 * rows or none. */
TEST_F(KsdbEdit, KilledAdderHasAddedAllOrNothing) {
  constexpr long kRows = 20000;
  std::string text = "commid,lineno,remark\n";
  for (long i = 0; i < kRows; i++) text += "5," + std::to_string(i) + ",x\n";
  const std::string csv = folder_.write("many.csv", text);
  std::vector<std::string> words = {KSDB_PROGRAM, "add", "-q",    "--csv",
                                    csv,          name_, "remark"};
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  for (int round = 0; round < 8; round++) {
    std::filesystem::remove(name_ + ".remark");
    pid_t child = -1;
    ASSERT_EQ(posix_spawn(&child, KSDB_PROGRAM, nullptr, nullptr, argv.data(), environ),
              0);
    const std::string journal = name_ + ".journal";
    int status = 0;
    /* Early rounds kill it when the journal is there, later ones a little after. */
    while (::access(journal.c_str(), F_OK) != 0 &&
           ::waitpid(child, &status, WNOHANG) == 0) {
    }
    ::usleep(static_cast<useconds_t>(round * 2000));
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    const auto store = db::open_store(name_, "r+", 1 << 20);
    ASSERT_NE(store, nullptr);
    const long count = store->table("remark")->snapshot()->count();
    EXPECT_TRUE(count == 0 || count == kRows) << count;
    EXPECT_NE(::access(journal.c_str(), F_OK), 0);
  }
}

/* Expected figures: by hand; the standard deviation of epoch seconds must not drown in
 * their size. */
TEST_F(KsdbEdit, GroupComputesFiguresOfTheValuesThatThereAre) {
  ASSERT_EQ(run("set --record 2", "origin auth=other").code, 0);
  std::string text = "evid,time,lat,depth,auth\n";
  const double depths[] = {1, 2, 4, 9};
  for (int i = 0; i < 4; i++) {
    text += "1," + std::to_string(4000000000LL + i) + "," + std::to_string(i) + "," +
            std::to_string(depths[i]) + ",figures\n";
  }
  text += "1,4000000004,9,,figures\n";
  ASSERT_EQ(run("add --csv " + folder_.write("f.csv", text), "origin").code, 0);
  const Json row = Json::parse(
      run("group --json --where 'auth == \"figures\"' --aggregate "
          "'count(depth),nulls(depth),min(depth),max(depth),mean(depth),median(depth),"
          "stddev(depth),stddev(time),median(time),mean(max(lat, 3)),nulls(auth)'",
          "origin auth")
          .output)[0];
  EXPECT_EQ(row["count"], 5);
  EXPECT_EQ(row["count(depth)"], 4);
  EXPECT_EQ(row["nulls(depth)"], 1);
  EXPECT_EQ(row["min(depth)"], 1);
  EXPECT_EQ(row["max(depth)"], 9);
  EXPECT_EQ(row["mean(depth)"], 4);
  EXPECT_EQ(row["median(depth)"], 3);
  EXPECT_NEAR(row["stddev(depth)"].get<double>(), std::sqrt(38.0 / 3.0), 1e-14);
  EXPECT_NEAR(row["stddev(time)"].get<double>(), std::sqrt(2.5), 1e-12);
  EXPECT_EQ(row["median(time)"], "2096-10-02T07:06:42.000Z");
  EXPECT_NEAR(row["mean(max(lat, 3))"].get<double>(), (4 * 3 + 9) / 5.0, 1e-14);
  EXPECT_EQ(row["nulls(auth)"], 0);

  const ProgramRun table =
      run("group --aggregate 'mean(depth),stddev(depth),max(time)'", "origin auth");
  EXPECT_EQ(table.code, 0) << table.errors;
  EXPECT_THAT(table.output, HasSubstr("mean(depth)/km  stddev(depth)/km"));
  /* A group of one null depth has no figures. */
  const Json other = Json::parse(
      run("group --json --where 'auth == \"other\"' --aggregate 'mean(depth)'",
          "origin auth")
          .output);
  EXPECT_EQ(other[0]["mean(depth)"], nullptr);
  for (const char *wrong : {"depth", "average(depth)", "mean(depth", "mean(auth)"}) {
    EXPECT_EQ(run(std::string("group --aggregate '") + wrong + "'", "origin auth").code,
              2)
        << wrong;
  }
}

}  // namespace
}  // namespace ksutil::tools
