/* ksmoment as users run it, and the rows of mt that ksdb verify compares with their tensors. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "mechanisms/ksmoment.h"
#include "platform/db/db.h"
#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kKsmoment = KSMOMENT_PROGRAM;

class Ksmoment : public testing::Test {
 protected:
  ProgramRun run(const std::string &arguments) {
    return run_program(kKsmoment + " " + arguments);
  }

  /* A database whose table mt has a thrust, a row with planes alone and one with nothing. */
  std::string database() {
    const std::string name = folder_ / "db";
    EXPECT_EQ(dbcreate(name.c_str(), "css3.0"), 0);
    Dbptr db;
    EXPECT_EQ(dbopen_noshare(name.c_str(), "r+", &db), 0);
    Dbptr mt = dblookup(db, nullptr, "mt", nullptr, nullptr);
    char *const end = nullptr;
    const KSMomentPlane thrust{30, 45, 90};
    double m[6];
    ksmoment_from_plane(&thrust, 4e18, m);
    mt.record = dbaddv(mt, "mtid", 1L, "orid", 1L, "evid", 9L, end);
    EXPECT_EQ(ksmoment_to_row(m, mt), 0);
    dbaddv(mt, "mtid", 2L, "orid", 2L, "strike1", 0.0, "dip1", 90.0, "rake1", 0.0, end);
    dbaddv(mt, "mtid", 3L, "orid", 3L, end);
    dbclose(db);
    return name;
  }

  ScratchFolder folder_;
};

TEST_F(Ksmoment, PrintsWhatFollowsFromAMechanism) {
  const auto rows = nlohmann::json::parse(
      run("info --json --plane 133,72,66 --mw 5.3 --tensor 1,1,1,0,0,0").output);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["mw"], -6.01);
  EXPECT_EQ(rows[0]["strike1"], nullptr);
  EXPECT_EQ(rows[0]["pctiso"], 100.0);
  EXPECT_EQ(rows[1]["mw"], 5.3);
  EXPECT_EQ(rows[1]["strike2"], 133.0);
  EXPECT_EQ(rows[1]["dip1"], 29.7);
  const ProgramRun angle = run("compare --csv --plane 0,90,0 --plane 20,90,0");
  EXPECT_THAT(angle.output, HasSubstr("20.0,1.000"));
}

TEST_F(Ksmoment, ReadsAndDrawsTheRowsOfADatabase) {
  const std::string db = database();
  const ProgramRun info = run("info --csv " + db);
  EXPECT_EQ(info.code, 0);
  EXPECT_THAT(info.output, HasSubstr("mt 1,"));
  EXPECT_THAT(info.output, HasSubstr("mt 2,"));
  EXPECT_THAT(info.output, Not(HasSubstr("mt 3,")));
  EXPECT_THAT(info.errors, HasSubstr("1 rows of mt have neither tensor nor plane"));
  EXPECT_THAT(run("info --csv --evid 9 " + db).output, Not(HasSubstr("mt 2,")));
  const std::string picture = folder_ / "balls.svg";
  EXPECT_EQ(run("plot --planes --axes -o " + picture + " " + db).code, 0);
  const std::string svg = read_text(picture);
  EXPECT_THAT(svg, HasSubstr("fill-rule=\"evenodd\""));
  EXPECT_THAT(svg, HasSubstr("9  Mw 6.3"));
  for (const char *faulty :
       {"info", "info --tensor 1,2,3", "info --tensor 1,1,1,0,0,nan",
        "info --plane 1,91,0", "compare --plane 1,2,3",
        "plot --plane 1,2,3 --colour red -o x.svg"}) {
    EXPECT_EQ(run(faulty).code, 2) << faulty;
  }
}

TEST_F(Ksmoment, VerifyComparesRowsWithTheirTensors) {
  const std::string name = database();
  const std::string verify = std::string(KSDB_PROGRAM) + " verify " + name;
  EXPECT_THAT(run_program(verify).output, Not(HasSubstr("tensor")));
  Dbptr db;
  ASSERT_EQ(dbopen_noshare(name.c_str(), "r+", &db), 0);
  Dbptr mt = dblookup(db, nullptr, "mt", nullptr, nullptr);
  mt.record = 0;
  ASSERT_EQ(dbputv(mt, "moment", 4e25, "strike1", 120.0, "mw", 7.0, "tplunge", 10.0,
                   static_cast<char *>(nullptr)),
            0);
  dbclose(db);
  const ProgramRun run = run_program(verify);
  EXPECT_EQ(run.code, 1);
  for (const char *kind :
       {"moments that do not fit", "moment magnitudes that do not fit",
        "axes that do not fit", "nodal planes that do not fit"}) {
    EXPECT_THAT(run.output, HasSubstr(kind));
  }
}

}  // namespace
}  // namespace ksutil::tools
