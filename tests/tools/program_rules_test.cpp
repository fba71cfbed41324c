/* The programs share rules about nulls, times, limits, messages and what cannot be read;
 * scripts and operators rely on each of them, and a program that breaks one shows wrong
 * values, or none, and calls it success. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/paths.h"
#include "tests/tools/scratch.h"
#include "tools/common/messages.h"

namespace ksutil::tools {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::vector<std::string> kPrograms = {
    KSDB_PROGRAM,     KSEVENTS_PROGRAM, KSSAC_PROGRAM,
    KSVECTOR_PROGRAM, KSGRID_PROGRAM,   KSHISTORY_PROGRAM,
    KSPF_PROGRAM,     KSWAVE_PROGRAM,   KSMOMENT_PROGRAM};

/* Four events whose rows are not in the order of their times: d, a, b, c. */
std::string four_events(const ScratchFolder &folder) {
  const std::string head = "time,latitude,longitude,depth,id,mag,magType\n";
  folder.write("1.csv", head + "2015-08-04T00:00:00Z,1,2,10,d,4.5,mb\n");
  folder.write("2.csv", head +
                            "2015-08-01T00:00:00.12345Z,3,4,20,a,5.5,mb\n"
                            "2015-08-03T00:00:00Z,5,6,,c,,\n"
                            "2015-08-02T00:00:00Z,7,8,40,b,3.5,ml\n");
  for (const char *file : {"1.csv", "2.csv"}) {
    const ProgramRun run = run_program(kKsdb + " import --create css3.0 " +
                                       (folder / file) + " " + (folder / "db"));
    EXPECT_EQ(run.code, 0) << run.errors;
  }
  return folder / "db";
}

long lines_of(const std::string &text) {
  return std::count(text.begin(), text.end(), '\n');
}

/* The row of a table file that holds `text`, replaced as a whole. */
void change_row(const ScratchFolder &folder, const std::string &file,
                const std::string &text, const std::string &with) {
  std::string rows = read_text(folder / file);
  const std::size_t at = rows.find(text);
  ASSERT_NE(at, std::string::npos);
  rows.replace(at, text.size(), with);
  folder.write(file, rows);
}

/* Takes the newline of a record away, so that it can no longer be told from its
 * neighbour. */
void break_record(const ScratchFolder &folder, const std::string &file, int record) {
  std::string rows = read_text(folder / file);
  std::size_t at = rows.find('\n');
  for (int i = 0; i < record; i++) at = rows.find('\n', at + 1);
  rows[at] = 'x';
  folder.write(file, rows);
}

class UnreadableRow : public testing::TestWithParam<const char *> {};

TEST_P(UnreadableRow, IsCountedOnOneLineAndFails) {
  const ScratchFolder folder;
  const std::string database = four_events(folder);
  break_record(folder, "db.origin", 1);
  std::string command = GetParam();
  command.replace(command.find("DB"), 2, database);
  if (command.find("PLOT") != std::string::npos) {
    command.replace(command.find("PLOT"), 4, folder / "p.svg");
  }
  const bool ksdb = command.starts_with("ksdb");
  const ProgramRun run =
      run_program((ksdb ? kKsdb : kKsevents) + command.substr(command.find(' ')));
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(lines_of(run.errors), 1) << run.errors;
  EXPECT_THAT(run.errors, HasSubstr(": 1 "));
  EXPECT_THAT(run.errors,
              HasSubstr("cannot be read; see 'ksdb verify " + database + "'"));
}

INSTANTIATE_TEST_SUITE_P(
    Commands, UnreadableRow,
    testing::Values("ksdb list DB origin", "ksdb list --raw DB origin",
                    "ksdb list --where 'lat > 0' DB origin",
                    "ksdb subset DB origin 'lat > 0'", "ksdb sort DB origin lat",
                    "ksdb group DB origin 'lat > 3'", "ksdb join DB event origin",
                    "ksdb plot --map -o PLOT DB origin", "ksevents list DB"));

TEST(UnreadableValue, IsANullAndCounted) {
  const ScratchFolder folder;
  const std::string database = four_events(folder);
  change_row(folder, "db.origin", "   3.0000    4.0000", "   x.0000    4.0000");
  const ProgramRun events = run_program(kKsevents + " list --json " + database);
  EXPECT_EQ(events.code, 1);
  EXPECT_THAT(events.errors, HasSubstr(": 1 value of "));
  const auto list = nlohmann::json::parse(events.output);
  ASSERT_EQ(list.size(), 4U);
  EXPECT_EQ(std::count_if(list.begin(), list.end(),
                          [](const auto &event) { return event["lat"].is_null(); }),
            1);
  const ProgramRun rows =
      run_program(kKsdb + " list --csv --fields 'lat,lat + 1' " + database + " origin");
  EXPECT_EQ(rows.code, 1);
  EXPECT_THAT(rows.errors, HasSubstr(": 2 values of "));
  EXPECT_THAT(rows.output, HasSubstr("\n,\n"));
  EXPECT_THAT(rows.output, Not(HasSubstr("-999")));
}

TEST(Values, AreNullsAndDatesUnlessRaw) {
  const ScratchFolder folder;
  const std::string database = four_events(folder);
  const std::string list =
      kKsdb + " list --fields time,depth,etype,ml,orid --where 'lat == 3 || lat == 5' ";
  EXPECT_EQ(run_program(list + "--csv " + database + " origin").output,
            "time,depth,etype,ml,orid\n"
            "2015-08-01T00:00:00.12345Z,20.0000,,,2\n"
            "2015-08-03T00:00:00.000Z,,,,4\n");
  EXPECT_EQ(run_program(list + "--raw --csv " + database + " origin").output,
            "time,depth,etype,ml,orid\n"
            "1438387200.12345,20.0000,-,-999.00,2\n"
            "1438560000.00000,-999.0000,-,-999.00,4\n");
  const auto rows = nlohmann::json::parse(
      run_program(list + "--json " + database + " origin").output);
  EXPECT_EQ(rows[1]["time"], "2015-08-03T00:00:00.000Z");
  EXPECT_TRUE(rows[1]["depth"].is_null());
  EXPECT_TRUE(rows[1]["etype"].is_null());
  const ProgramRun query = run_program(
      kKsevents + " list --csv --where 'lat == 5' --fields 'time,depth,lat * 2' ");
  EXPECT_EQ(query.code, 2);  // without a database
  EXPECT_EQ(run_program(kKsevents + " list --csv --where 'lat == 5' --fields " +
                        "'time,depth,lat * 2' " + database)
                .output,
            "time,depth,lat * 2\n2015-08-03T00:00:00.000Z,,10\n");
}

TEST(Limits, ComeAfterTheQueryAndTheLatestAreTheLatestInTime) {
  const ScratchFolder folder;
  const std::string list = kKsevents + " list --csv --fields evname ";
  const std::string database = four_events(folder);
  EXPECT_EQ(run_program(list + "--latest 2 " + database).output, "evname\nd\nc\n");
  EXPECT_EQ(run_program(list + "--where 'magnitude < 5' --latest 1 " + database).output,
            "evname\nd\n");
  EXPECT_EQ(
      run_program(list + "--sort magnitude --reverse --limit 2 " + database).output,
      "evname\na\nd\n");
  EXPECT_EQ(run_program(list + "--where 'magnitude < 4' --limit 1 " + database).output,
            "evname\nb\n");
  EXPECT_EQ(run_program(list + "--limit 0 " + database).output, "evname\n");
}

TEST(WrongUsage, IsToldOnOneLine) {
  const std::string list = kKsdb + " list " + kData + "/aug2015 origin ";
  const std::string digits = "1" + std::string(308, '0');
  for (const std::string &command :
       {kKsdb, kKsdb + " lst x", kKsdb + " list", list + "--limit -1",
        list + "--limit " + digits, list + "--limit 2x", list + "--json --csv",
        list + "--nosuch", kKsevents + " show 17 " + kData + "/aug2015",
        kKsdb + " nextid " + kData + "/aug2015 nosuchid"}) {
    const ProgramRun run = run_program(command);
    EXPECT_EQ(run.code, 2) << command;
    EXPECT_EQ(run.output, "") << command;
    EXPECT_EQ(lines_of(run.errors), 1) << command << "\n" << run.errors;
    EXPECT_LT(run.errors.size(), 200U) << run.errors;
  }
}

TEST(Failures, AreOneLineWithoutNamesOfFunctions) {
  const std::string database = " " + kData + "/aug2015";
  const std::vector<std::pair<int, std::string>> commands = {
      {1, kKsdb + " info /nowhere/db"},
      {1, kKsevents + " list /nowhere/db"},
      {1, kKsevents + " diff" + database + " /nowhere/db"},
      {1, kKsevents + " watch /nowhere/db"},
      {1, kKsevents + " show /nowhere/db 1"},
      {1, kKsevents + " show" + database + " 99999"},
      {1, kKsdb + " list" + database + " nosuch"},
      {1, kKsdb + " join" + database + " origin lastid"},
      /* An expression that does not compile is wrong usage, in every program. */
      {2, kKsevents + " list --where 'mb >='" + database},
      {2, kKsdb + " list --fields nosuch" + database + " origin"},
      {2, kKsdb + " list --where 'mb >='" + database + " origin"},
      {2, kKsdb + " subset" + database + " origin 'mb >='"},
      {2, kKsdb + " subset" + database + " origin 'time >= \"someday\"'"},
      {2, kKsdb + " sort" + database + " origin nosuch"},
      {2, kKsdb + " sort --where nosuch" + database + " origin time"},
      {2, kKsdb + " group" + database + " origin nosuch"},
      {2, kKsdb + " group --aggregate 'mean(nosuch)'" + database + " origin auth"},
      {2, kKsdb + " join --left-keys nosuch --right-keys orid" + database +
              " event origin"}};
  for (const auto &[code, command] : commands) {
    const ProgramRun run = run_program(command);
    EXPECT_EQ(run.code, code) << command;
    EXPECT_EQ(run.output, "") << command;
    EXPECT_EQ(lines_of(run.errors), 1) << command << "\n" << run.errors;
    EXPECT_THAT(run.errors, Not(HasSubstr("::"))) << command;
    EXPECT_THAT(run.errors, Not(testing::ContainsRegex("db[a-z_]*: [a-z]*db")))
        << command;
  }
}

/* The first word of each line is the program. */
/* A person who meets a program for the first time has only its message to go on. */
TEST(Mistakes, AreAnsweredByWhatWasProbablyMeant) {
  const ScratchFolder folder;
  const std::string database = four_events(folder);
  std::filesystem::create_directory(folder / "year");
  for (const auto &[command, answer] : std::vector<std::pair<std::string, std::string>>{
           {kKsevents, "; see 'ksevents --help'"},
           {kKsevents + " list --lastest 3 " + database,
            "ksevents: there is no option --lastest (is it --latest?); see"},
           {kKsevents + " list --frobnicate=3 " + database,
            "there is no option --frobnicate; see"},
           {kKsevents + " list " + (folder / "year"),
            "year is a folder; a database in it is named " + (folder / "year/NAME")},
           {kKsevents + " list " + (folder / "none"), "there is no database"},
           {kKsdb + " list " + database + " orgin",
            "has no table 'orgin' (is it origin?)"},
           {kKsdb + " schema css3.0 Origin", "has no table Origin (is it origin?)"},
           {kKsdb + " create --schema css3 " + (folder / "new"),
            "No schema \"css3\"; the built-in ones are css3.0, kbcore, trace"},
           {kKsdb + " import " + database + " " + (folder / "1.csv"),
            "db is a database; the file to import stands before the database"},
           {kKsdb + " export " + database + " " + (folder / "out.xyz"),
            "see 'ksdb formats'"},
       }) {
    const ProgramRun run = run_program(command);
    EXPECT_NE(run.code, 0) << command;
    EXPECT_THAT(run.errors, HasSubstr(answer)) << command;
    EXPECT_EQ(lines_of(run.errors), 1) << run.errors;
  }
}

TEST(Failures, OfFileProgramsAreOneLineToo) {
  const ScratchFolder folder;
  const std::string bin = std::filesystem::path(kKsdb).parent_path().string() + "/";
  const std::string text = " " + folder.write("text", "some words\n");
  const std::vector<std::pair<int, std::string>> commands = {
      {1, "kssac header /nowhere"},
      {1, "kssac dump" + text},
      {1, "kssac from-db --dir " + (folder / "") + " /nowhere/db"},
      {2, "kssac from-db --start soon /nowhere/db"},
      {2, "kssac dump --limit -1" + text},
      {1, "ksvector read /nowhere"},
      {1, "ksvector eval --at 1" + text},
      {2, "ksvector eval --at 1,x" + text},
      {2, "ksvector eval" + text},
      {1, "ksgrid info /nowhere"},
      {1, "ksgrid info" + text},
      {1, "ksgrid eval --x 1 --y 1" + text},
      {2, "ksgrid eval --x 1,2 --y 1" + text},
      {1, "kshistory show /nowhere"},
      {1, "kshistory show" + text},
      {2, "kshistory show --at soon" + text},
      {1, "kspf get /nowhere"},
      {1, "kspf get" + text + " nosuch"},
      {2, "kspf check" + text}};
  for (const auto &[code, command] : commands) {
    const ProgramRun run = run_program(bin + command);
    EXPECT_EQ(run.code, code) << command;
    EXPECT_EQ(run.output, "") << command;
    EXPECT_EQ(lines_of(run.errors), 1) << command << "\n" << run.errors;
    EXPECT_THAT(run.errors,
                testing::StartsWith(command.substr(0, command.find(' ')) + ": "));
    EXPECT_THAT(run.errors, Not(testing::ContainsRegex("[a-z]\\(|::"))) << command;
  }
  for (const std::string &program : kPrograms) {
    for (const char *const wrong : {"", " nosuch", " --nosuch"}) {
      const ProgramRun run = run_program(program + wrong);
      EXPECT_EQ(run.code, 2) << program << wrong;
      EXPECT_EQ(lines_of(run.errors), 1) << run.errors;
    }
  }
}

TEST(RegisterCauses, KeepTheCauseAndDropItsCallers) {
  EXPECT_THAT(register_causes("dbopen: Cannot open a.origin.\nPermission denied\n"
                              "dbquery: cannot look at table origin.\n"
                              "EVServer::refreshEvents: refreshEvent() error.\n"
                              "dbopen: Cannot open a.origin.\nPermission denied\n"
                              "dbget: a.event: Record 3 is broken.\n"),
              ElementsAre("Cannot open a.origin: Permission denied",
                          "a.event: Record 3 is broken."));
  EXPECT_THAT(register_causes("f: cannot do it.\ng: f() error.\n"),
              ElementsAre("cannot do it."));
  EXPECT_THAT(register_causes(""), testing::IsEmpty());
}

TEST(Help, OfACommandShowsItsOwnExamplesIn80Columns) {
  for (const std::string &program : {kKsdb, kKsevents}) {
    const std::string help = run_program(program + " list --help").output;
    EXPECT_THAT(help, HasSubstr("\n  ks"));
    EXPECT_THAT(help, Not(testing::ContainsRegex("\n  ks[a-z]* [^l]")));
    for (std::size_t start = 0; start < help.size();) {
      const std::size_t end = std::min(help.find('\n', start), help.size());
      EXPECT_LE(end - start, 80U) << help.substr(start, end - start);
      start = end + 1;
    }
  }
}

/* The lines of a help text under "Example:" or "Examples:". */
std::vector<std::string> examples_of(const std::string &help) {
  std::vector<std::string> examples;
  std::istringstream lines(help);
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (inside && line.starts_with("  ")) examples.push_back(line.substr(2));
    if (line.starts_with("Example")) inside = true;
  }
  return examples;
}

TEST(Help, ShowsExamplesThatRunAsPrinted) {
  const ScratchFolder folder;
  std::filesystem::copy(kData, folder / "data",
                        std::filesystem::copy_options::recursive);
  const std::string bin = std::filesystem::path(kKsdb).parent_path();
  const std::string here =
      "cd " + folder.path() + " && export PATH=" + bin + ":$PATH; ";
  for (const char *database : {"mydb", "yesterday", "today"}) {
    const ProgramRun made = run_program(
        here + "ksdb import --quiet --create css3.0 data/aug2015.csv " + database);
    ASSERT_EQ(made.code, 0) << made.errors;
  }
  for (const std::string &program : kPrograms) {
    const std::string needed = run_program(program).errors;
    const std::size_t list = needed.find("needed: ") + 8;
    std::istringstream names(needed.substr(list, needed.find(';') - list));
    for (std::string name; std::getline(names >> std::ws, name, ',');) {
      const auto examples =
          examples_of(run_program(program + " " + name + " --help").output);
      EXPECT_FALSE(examples.empty()) << name;
      for (const std::string &example : examples) {
        const bool endless =
            example.starts_with("ksevents watch") || example.starts_with("ksdb follow");
        const ProgramRun run =
            run_program(here + (endless ? "timeout 1 " : "") + example);
        EXPECT_EQ(run.code, endless ? 124 : 0) << example << "\n" << run.errors;
      }
    }
  }
}

TEST(Completion, KnowsCommandsAndTheirOptions) {
  const auto completed = [](const std::string &words, int word) {
    return run_program("bash -c 'source <(" + kKsdb + " --completion); COMP_WORDS=(" +
                       words + "); COMP_CWORD=" + std::to_string(word) +
                       "; _ksdb; echo ${COMPREPLY[@]}'")
        .output;
  };
  EXPECT_EQ(completed("ksdb ver", 1), "verify\n");
  EXPECT_EQ(completed("ksdb verify --fi", 2), "--fix\n");
  EXPECT_EQ(completed("ksdb list --where x --f", 4), "--fields\n");
}

}  // namespace
}  // namespace ksutil::tools
