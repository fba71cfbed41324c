/* ksevents watch --exec calls people out of bed: an event that is not reported, reported
 * twice at once or reported in the place of another matters, and no command, however it
 * behaves, may hold up the next. */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <thread>

#include "tests/tools/scratch.h"

namespace ksutil::tools {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using namespace std::chrono_literals;

class KseventsExec : public testing::Test {
 protected:
  KseventsExec() {
    import({{ "first", 4.0 }});
  }
  ~KseventsExec() override {
    if (child_ > 0) stop();
  }

  void import(const std::vector<std::pair<std::string, double>> &events) const {
    std::string text = "time,latitude,longitude,id,mag,magType\n";
    for (const auto &[id, magnitude] : events) {
      text +=
          "2015-08-01T00:00:00Z,1,2," + id + "," + std::to_string(magnitude) + ",mb\n";
    }
    const ProgramRun run =
        run_program(std::string(KSDB_PROGRAM) + " import -q --create css3.0 " +
                    folder_.write("c.csv", text) + " " + database_);
    ASSERT_EQ(run.code, 0) << run.errors;
  }
  std::string script(const std::string &name, const std::string &text) const {
    const std::string path = folder_.write(name, "#!/bin/sh\n" + text);
    ::chmod(path.c_str(), 0700);
    return path;
  }
  void watch(std::vector<std::string> options) {
    options.insert(options.begin(), {KSEVENTS_PROGRAM, "watch", "--interval", "0.05"});
    options.push_back(database_);
    start(options);
    wait_for("out", "watching");
  }
  void start(std::vector<std::string> options) {
    std::vector<char *> argv;
    for (std::string &word : options) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string out = folder_ / "out", err = folder_ / "err";
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(),
                                     O_CREAT | O_WRONLY | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(),
                                     O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ASSERT_EQ(posix_spawn(&child_, argv[0], &actions, nullptr, argv.data(), environ),
              0);
    posix_spawn_file_actions_destroy(&actions);
  }
  /* A watch started by a shell, so that its output can be anything. */
  void watch_in_shell(const std::string &before, const std::string &options) {
    start({"/bin/sh", "-c",
           before + "exec " KSEVENTS_PROGRAM " watch --json --interval 0.05 " +
               options + " " + database_});
  }
  int stop() {
    ::kill(child_, SIGTERM);
    return end();
  }
  int end() {
    int status = -1;
    ::waitpid(child_, &status, 0);
    child_ = -1;
    return status;
  }
  std::string text(const std::string &file) const { return read_text(folder_ / file); }
  void wait_for(const std::string &file, const std::string &what) const {
    for (int i = 0; i < 4000 && text(file).find(what) == std::string::npos; i++) {
      std::this_thread::sleep_for(5ms);
    }
    EXPECT_THAT(text(file), HasSubstr(what));
  }

  const ScratchFolder folder_;
  const std::string database_ = folder_ / "db";
  pid_t child_ = -1;
};

TEST_F(KseventsExec, RunsForTheEventsThatTheQueryTakes) {
  const std::string taken = folder_ / "taken";
  const std::string command =
      script("run", "cat >>\"$1\"\nprintf '%s' \"$2\" >>\"$1\"\n");
  /* What a shell would expand or run stays text. */
  watch({"--where", "magnitude >= 5", "--exec",
         command + " " + taken + " 'a b'\\ \"$HOME `x` \\\"q\\\"\""});
  import({{"small", 4.5}, { "strong", 5.5 }});
  wait_for("taken", "q\"");
  import({{ "small", 6.0 }});
  wait_for("taken", "\"magnitude\":6.0");
  EXPECT_EQ(stop(), 0);
  std::istringstream lines(text("taken"));
  std::string line;
  ASSERT_TRUE(std::getline(lines, line));
  const auto event = nlohmann::json::parse(line);
  EXPECT_EQ(event["evid"], 3);
  EXPECT_EQ(event["new"], true);
  EXPECT_EQ(event["magnitude"], 5.5);
  EXPECT_EQ(event["time"], "2015-08-01T00:00:00.000Z");
  ASSERT_TRUE(std::getline(lines, line));
  const std::string words = "a b $HOME `x` \"q\"";
  ASSERT_EQ(line.substr(0, words.size()), words);
  EXPECT_EQ(nlohmann::json::parse(line.substr(words.size()))["new"], false);
  EXPECT_THAT(text("out"), AllOf(HasSubstr("evid 3"), Not(HasSubstr("4.50"))));
}

/* None of them reads its input; all end badly. */
TEST_F(KseventsExec, FailuresAreToldAndDoNotEndTheWatch) {
  const std::string bad = script("bad", "exec <&-\nkill -9 $$\n");
  watch({"--exec", bad});
  import({{ "a", 5.0 }});
  wait_for("err", bad + " for event 2 was ended by signal 9");
  std::vector<std::pair<std::string, double>> many;
  for (int i = 0; i < 50; i++) many.emplace_back("m" + std::to_string(i), 5.0);
  import(many);
  wait_for("err", "for event 52 was ended");
  EXPECT_EQ(stop(), 0);
  child_ = -1;
  watch({"--exec", folder_ / "nosuch"});
  import({{ "b", 5.0 }});
  wait_for("err", "cannot run " + (folder_ / "nosuch") + " for event 53: No such file");
  EXPECT_EQ(stop(), 0);
}

/* Each run notes its begin and its end; never are more under way than allowed. */
TEST_F(KseventsExec, AtMostSoManyRunAtATime) {
  const std::string log = folder_ / "log";
  watch({"--jobs", "2", "--exec",
         script("run",
                "echo begin >>'" + log + "'\nsleep 0.05\necho end >>'" + log + "'\n")});
  std::vector<std::pair<std::string, double>> many;
  for (int i = 0; i < 12; i++) many.emplace_back("m" + std::to_string(i), 5.0);
  import(many);
  const auto ended = [&] {
    const std::string all = text("log");
    long count = 0;
    for (std::size_t at = 0; (at = all.find("end", at)) != all.npos; at++) count++;
    return count;
  };
  for (int i = 0; i < 4000 && ended() < 12; i++) std::this_thread::sleep_for(5ms);
  EXPECT_EQ(ended(), 12);
  EXPECT_EQ(stop(), 0);
  std::istringstream words(text("log"));
  int running = 0, most = 0;
  for (std::string word; words >> word;) {
    running += word == "begin" ? 1 : -1;
    most = std::max(most, running);
  }
  EXPECT_EQ(running, 0);
  EXPECT_LE(most, 2);
}

/* A removed row gives the rows behind it other numbers, and nothing else. */
TEST_F(KseventsExec, EventsWhoseRowsOnlyMovedAreNotNews) {
  import({{"a", 5.0}, {"b", 5.0}, { "c", 5.0 }});
  watch({"--exec", script("run", "cat >>'" + (folder_ / "log") + "'\n")});
  const ProgramRun removed =
      run_program(std::string(KSDB_PROGRAM) + " delete -q --force --record 1 " +
                  database_ + " event");
  ASSERT_EQ(removed.code, 0) << removed.errors;
  wait_for("out", "removed  evid 2");
  import({{ "d", 6.0 }});
  wait_for("log", "\"magnitude\":6.0");
  EXPECT_EQ(stop(), 0);
  const std::string log = text("log");
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(KseventsExec, EndsWithoutWaitingForCommands) {
  const std::string begun = folder_ / "begun";
  watch({"--jobs", "1", "--exec",
         script("run", "echo $$ >>'" + begun + "'\nexec sleep 60\n")});
  import({{"a", 5.0}, {"b", 5.0}, { "c", 5.0 }});
  wait_for("begun", "\n");
  const auto from = std::chrono::steady_clock::now();
  EXPECT_EQ(stop(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - from, 10s);
  EXPECT_THAT(text("err"), HasSubstr("2 commands were not run"));
  /* It has not been taken along. */
  const pid_t left = static_cast<pid_t>(std::stol(text("begun")));
  EXPECT_EQ(::kill(left, SIGKILL), 0);
}

/* A watch that cannot read looks like a quiet night. */
TEST_F(KseventsExec, LooksThatFailAreToldOnceAndDecideTheEnd) {
  watch({});
  const auto lines = [&] {
    const std::string all = text("err");
    return std::count(all.begin(), all.end(), '\n');
  };
  folder_.write("db.mt", "garbage\n");
  wait_for("err", "db.mt");
  std::this_thread::sleep_for(300ms);
  EXPECT_EQ(lines(), 1) << text("err");
  std::filesystem::remove(folder_ / "db.mt");
  wait_for("err", "ksevents: " + database_ + " can be read again\n");
  import({{ "a", 5.0 }});
  wait_for("out", "evid 2");
  EXPECT_EQ(lines(), 2) << text("err");
  folder_.write("db.mt", "garbage\n");
  for (int i = 0; i < 4000 && lines() < 3; i++) std::this_thread::sleep_for(5ms);
  const int status = stop();
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);
}

/* The report of twenty events does not fit the one block that a file may have. */
TEST_F(KseventsExec, OutputThatCannotBeWrittenEndsTheWatchAtOnce) {
  watch_in_shell("ulimit -S -f 1; ", "");
  wait_for("out", "start");
  std::vector<std::pair<std::string, double>> many;
  for (int i = 0; i < 20; i++) many.emplace_back("m" + std::to_string(i), 5.0);
  import(many);
  const int status = end();
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);
  EXPECT_EQ(text("err"), "ksevents: cannot write the output\n");
}

TEST_F(KseventsExec, CommandsAreRunWithoutOutput) {
  watch_in_shell("exec >/dev/full; ",
                 "--exec " + script("run", "cat >>'" + (folder_ / "log") + "'\n"));
  wait_for("err", "cannot write the output\n");
  import({{ "a", 5.0 }});
  wait_for("log", "\"evid\":2,");
  import({{ "b", 5.5 }});
  wait_for("log", "\"evid\":3,");
  const int status = stop();
  EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);
  EXPECT_EQ(text("err"), "ksevents: cannot write the output\n");
}

TEST_F(KseventsExec, RefusesWhatIsNoCommandOrNoCondition) {
  const std::string watch_command = std::string(KSEVENTS_PROGRAM) + " watch ";
  EXPECT_EQ(run_program(watch_command + "--exec \"'open\" " + database_).code, 2);
  EXPECT_EQ(run_program(watch_command + "--exec ' ' " + database_).code, 2);
  EXPECT_EQ(run_program(watch_command + "--exec '' " + database_).code, 2);
  EXPECT_EQ(run_program(watch_command + "--exec 'a\\' " + database_).code, 2);
  EXPECT_EQ(run_program(watch_command + "--where 'nosuch > 1' " + database_).code, 2);
  EXPECT_EQ(run_program(watch_command + "--where magtype " + database_).code, 2);
}

}  // namespace
}  // namespace ksutil::tools
