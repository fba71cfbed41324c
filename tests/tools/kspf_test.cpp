/* kspf changes settings of running systems from scripts, which see its output and its exit
 * code only. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::HasSubstr;

const std::string kKspf = KSPF_PROGRAM;

class Kspf : public testing::Test {
 protected:
  ProgramRun run(const std::string &arguments) {
    return run_program(kKspf + " " + arguments);
  }

  ScratchFolder folder_;
  const std::string file_ = folder_.write(
      "server.pf",
      "# head\nport 80 # default\nmap &Arr{\n  \"a.b\" \"x \"\n  t &Tbl{\n    1\n"
      "    &Arr{}\n  }\n}\n");
};

TEST_F(Kspf, GetPrintsTextsBlocksAndJson) {
  EXPECT_EQ(run("get " + file_ + " port").output, "80\n");
  EXPECT_EQ(run("get " + file_ + " map.t").output, "1\n&Arr{\n}\n");
  const ProgramRun json = run("get --json - < " + file_);
  EXPECT_EQ(
      nlohmann::json::parse(json.output),
      nlohmann::json::parse(R"({"port": "80", "map": {"a.b": "x ", "t": ["1", {}]}})"));
  const ProgramRun absent = run("get " + file_ + " map.u");
  EXPECT_EQ(absent.code, 1);
  EXPECT_EQ(absent.output, "");
  EXPECT_THAT(absent.errors, HasSubstr("There is no map.u."));
  for (const char *path : {"map.u", "port.x", "'map.t[9]'", "no.such[0].way"}) {
    const ProgramRun fallback = run("get " + file_ + " " + path + " --default 7");
    EXPECT_EQ(fallback.code, 0) << path << fallback.errors;
    EXPECT_EQ(fallback.output, "7\n");
  }
  EXPECT_EQ(run("get " + file_ + " 'map[' --default 7").code, 1);
  EXPECT_EQ(run("get " + file_ + " port --default 7").output, "80\n");
  EXPECT_EQ(run("get").code, 2);
}

TEST_F(Kspf, EditsReplaceTheFileOnlyWhenTheySucceed) {
  EXPECT_EQ(run("set " + file_ + " port -- -1").code, 0);
  EXPECT_EQ(run("insert " + file_ + " 'map.t[1]' 2").code, 0);
  EXPECT_EQ(run("set --block " + file_ + " new.list '&Tbl{\none\n}'").code, 0);
  EXPECT_EQ(run("delete " + file_ + " 'map.\"a.b\"'").code, 0);
  const std::string edited =
      "# head\nport -1 # default\nmap &Arr{\n  t &Tbl{\n    1\n    2\n    &Arr{}\n  }\n"
      "}\nnew &Arr{\n  list &Tbl{\n    one\n  }\n}\n";
  EXPECT_EQ(read_text(file_), edited);
  const ProgramRun refused = run("insert " + file_ + " port 1");
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.errors, HasSubstr("port is there already."));
  EXPECT_EQ(read_text(file_), edited);
}

TEST_F(Kspf, FailsWhenItsOutputIsLost) {
  std::string many;
  for (int i = 0; i < 20000; i++) many += "key" + std::to_string(i) + " value\n";
  const std::string big = folder_.write("big.pf", many);
  for (const std::string &file : {file_, big}) {
    for (const char *command : {"get ", "get --json ", "format "}) {
      const ProgramRun lost = run(command + file + " > /dev/full");
      EXPECT_EQ(lost.code, 1) << command << file;
      EXPECT_THAT(lost.errors, HasSubstr("cannot write the output"));
    }
  }
}

TEST_F(Kspf, CheckListsViolationsAndFailsOnlyForThem) {
  const std::string rules = folder_.write(
      "rules", "keys &Arr{\nport &Arr{\ntype integer\nmax 79\n}\n}\nothers any\n");
  const ProgramRun bad = run("check " + file_ + " --rules " + rules);
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.output, file_ + ":2: port: '80' is above the maximum 79\n");
  const ProgramRun json = run("check --json " + file_ + " --rules " + rules);
  EXPECT_EQ(json.code, 1);
  EXPECT_EQ(nlohmann::json::parse(json.output)[0]["line"], 2);
  EXPECT_EQ(run("set " + file_ + " port 79").code, 0);
  const ProgramRun good = run("check " + file_ + " --rules " + rules);
  EXPECT_EQ(good.code, 0);
  EXPECT_EQ(good.output + good.errors, "");
  const std::string faulty = folder_.write("faulty", "keys &Arr{\na colour\n}\n");
  const ProgramRun fault = run("check " + file_ + " --rules " + faulty);
  EXPECT_EQ(fault.code, 1);
  EXPECT_THAT(fault.errors, HasSubstr(faulty + ":2: keys.a: there is no type"));
}

TEST_F(Kspf, MergeAndFormatPrintOrWrite) {
  const std::string user =
      folder_.write("user.pf", "port 8080\nmap &Arr{\nt &Tbl{\n3\n}\n}\n");
  const std::string merged =
      "# head\nport 8080 # default\nmap &Arr{\n  \"a.b\" \"x \"\n  t &Tbl{\n    1\n"
      "    &Arr{}\n    3\n  }\n}\n";
  EXPECT_EQ(run("merge --append-tables " + file_ + " " + user).output, merged);
  EXPECT_EQ(run("merge --append-tables " + file_ + " " + user + " -o " + user).code, 0);
  EXPECT_EQ(read_text(user), merged);
  const std::string formatted =
      "# head\nport 8080  # default\nmap &Arr{\n  \"a.b\" \"x \"\n  t &Tbl{\n    1\n"
      "    &Arr{}\n    3\n  }\n}\n";
  EXPECT_EQ(run("format --check " + user).code, 1);
  EXPECT_EQ(run("format " + user).output, formatted);
  EXPECT_EQ(run("format -i " + user).code, 0);
  EXPECT_EQ(read_text(user), formatted);
  EXPECT_EQ(run("format --check " + user).code, 0);
}

}  // namespace
}  // namespace ksutil::tools
