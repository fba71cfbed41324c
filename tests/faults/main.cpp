/* ksutil_faults: runs the programs under failing system calls, one after another, and
 * checks what each promises: no crash and no hang; exit code 0 with the result of a run
 * without faults, or 1 with a message and the files as they were.
 *
 * Usage: ksutil_faults [--seconds S] [--whole] [--most N] [--kind KIND] [--list]
 *                      [SCENARIO...]
 * Without --whole it fails calls by chance for S seconds, in all scenarios but those that
 * draw.  With it each call of each kind is failed, or N of them. */
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include "tests/faults/faulted_run.h"
#include "tests/faults/folder_content.h"
#include "tests/faults/scenarios.h"

namespace {

using namespace faults;

struct Settings {
  double seconds = 20;
  bool whole = false;
  long most = 0;  // calls of a kind that are failed; 0: all, with `whole`
  std::string kind;
  std::vector<std::string> names;
};

/* A way of a kind to fail. */
struct Failure {
  Kind kind;
  Way way;
  int error;              // of a stalled call: its milliseconds
  bool harmless = false;  // the result must be that of a run without faults
};

constexpr int kStall = 200;  // ms

const Failure kFailures[] = {{kAlloc, Way::kOnce, ENOMEM},
                             {kAlloc, Way::kFromThere, ENOMEM},
                             {kOpen, Way::kOnce, EMFILE},
                             {kOpen, Way::kFromThere, EMFILE},
                             {kOpen, Way::kOnce, EACCES},
                             {kOpen, Way::kOnce, EINTR, true},
                             {kRead, Way::kOnce, EIO},
                             {kRead, Way::kFromThere, EIO},
                             {kRead, Way::kOnce, EINTR, true},
                             {kRead, Way::kShort, 0, true},
                             {kRead, Way::kStall, kStall, true},
                             {kWrite, Way::kOnce, ENOSPC},
                             {kWrite, Way::kFull, ENOSPC},
                             {kWrite, Way::kFromThere, EIO},
                             {kWrite, Way::kOnce, EINTR, true},
                             {kWrite, Way::kShort, 0, true},
                             {kSync, Way::kOnce, EIO},
                             {kSync, Way::kFromThere, EIO},
                             {kSync, Way::kStall, kStall, true},
                             {kClose, Way::kOnce, EIO},
                             {kClose, Way::kFromThere, EIO},
                             {kRename, Way::kOnce, EIO},
                             {kRename, Way::kFromThere, EACCES},
                             {kLock, Way::kOnce, ENOLCK},
                             {kLock, Way::kFromThere, ENOLCK},
                             {kMap, Way::kOnce, ENOMEM},
                             {kThread, Way::kOnce, EAGAIN},
                             {kThread, Way::kFromThere, EAGAIN},
                             {kClock, Way::kOnce, 0},
                             {kStat, Way::kOnce, EIO},
                             {kStat, Way::kFromThere, EIO},
                             {kStat, Way::kStall, kStall, true},
                             {kFolder, Way::kOnce, EIO},
                             {kCreate, Way::kOnce, ENOSPC},
                             {kMode, Way::kOnce, EPERM}};

const char *way_name(const Failure &failure) {
  switch (failure.way) {
    case Way::kOnce:
      return failure.kind == kClock ? "stepping back" : "once";
    case Way::kFromThere:
      return "from there on";
    case Way::kShort:
      return "short";
    case Way::kFull:
      return "disk full";
    case Way::kStall:
      return "stalled";
  }
  return "";
}

/* Runs one scenario and judges the outcomes. */
class Trial {
 public:
  Trial(const Scenario &scenario, const Runner &runner)
      : scenario_(scenario), runner_(runner) {
    restore_folder(runner_.folder(), read_folder(runner_.folder()), {});
    prepare(scenario_, runner_);
    before_ = read_folder(runner_.folder());
    if (scenario_.promise == Promise::kHistory) note_history();
    good_ = runner_.run(scenario_.command, {});
    after_ = read_folder(runner_.folder());
    if (scenario_.promise == Promise::kHistory) history_after_ = shown_history();
    restore_folder(runner_.folder(), after_, before_);
    if (good_.hung || good_.code < 0 || good_.code > 1) {
      std::fprintf(stderr, "%s fails without a fault: %s\n", scenario.name.c_str(),
                   good_.messages.c_str());
      std::exit(2);
    }
  }

  long calls(Kind kind) const { return good_.calls[kind]; }

  /* Fails the call number `at`; false when no call was failed any more. */
  bool attempt(const Failure &failure, long at) {
    const Outcome outcome =
        runner_.run(scenario_.command, {failure.kind, failure.way, failure.error, at});
    Content left = read_folder(runner_.folder());
    if (outcome.strikes > 0) {
      runs++;
      const std::string problem = judge(failure, outcome, left);
      if (!problem.empty()) report(failure, at, outcome, problem);
    }
    restore_folder(runner_.folder(), read_folder(runner_.folder()), before_);
    return outcome.strikes > 0;
  }

  long runs = 0, problems = 0;

 private:
  static bool is_counter(const std::string &name) { return name.ends_with(".lastid"); }

  std::string messages_problem(const Outcome &outcome) const {
    if (outcome.messages.empty()) return "no message";
    const std::string start = scenario_.command[0] + ": ";
    std::size_t at = 0;
    while (at < outcome.messages.size()) {
      /* Drawing lets its library of fonts speak for itself. */
      const bool of_fonts = outcome.messages.compare(at, 10, "Fontconfig") == 0;
      if (!of_fonts && outcome.messages.compare(at, start.size(), start) != 0) {
        return "a message has another form";
      }
      at = outcome.messages.find('\n', at);
      if (at == std::string::npos) return "a message does not end";
      at++;
    }
    return "";
  }

  /* What is wrong with the files that a failed run has left. */
  std::string files_problem(const Content &left) const {
    bool all_old = true, all_new = true;
    for (const auto &[name, text] : left) {
      if (is_counter(name)) continue;
      const auto old_text = before_.find(name), new_text = after_.find(name);
      const bool is_old = old_text != before_.end() && old_text->second == text;
      const bool is_new = new_text != after_.end() && new_text->second == text;
      if (old_text == before_.end() && new_text == after_.end()) {
        return "left behind: " + name;
      }
      if (!is_old && !is_new) return "neither old nor new: " + name;
      all_old = all_old && is_old;
      all_new = all_new && is_new;
    }
    for (const auto &[name, text] : before_) {
      if (!left.contains(name) && after_.contains(name)) return "gone: " + name;
    }
    if (scenario_.promise == Promise::kOneStep && !all_old && !all_new)
      return "a part is done";
    return "";
  }

  /* Bytes of a history that do not count may differ; an empty file is a list without
   * entries, and as good as none. */
  std::string history_problem() const {
    const std::string now = shown_history();
    return now == history_before_ || now == history_after_ || now == history_empty_
               ? ""
               : "the history has changed";
  }

  void note_history() {
    history_before_ = history_empty_ = shown_history();
    if (before_.contains("a.hst")) return;
    restore_folder(runner_.folder(), before_, {{"a.hst", ""}});
    history_empty_ = shown_history();
    restore_folder(runner_.folder(), {{"a.hst", ""}}, before_);
  }

  /* What kshistory shows, or its message. */
  std::string shown_history() const {
    const Outcome shown = runner_.run({"kshistory", "show", "a.hst"}, {});
    return shown.code == 0 ? shown.output : shown.messages;
  }

  /* A journal is left when its step could be neither finished nor undone: the next
   * program that writes does so. */
  void let_the_next_program_mend(Content &left) const {
    const auto journal = std::find_if(left.begin(), left.end(), [](const auto &file) {
      return file.first.ends_with(".journal");
    });
    if (journal == left.end()) return;
    const std::string database = journal->first.substr(0, journal->first.rfind('.'));
    runner_.run({"ksdb", "nextid", database, "commid"}, {});
    left = read_folder(runner_.folder());
  }

  std::string judge(const Failure &failure, const Outcome &outcome,
                    Content &left) const {
    if (outcome.hung) return "hangs";
    if (outcome.code < 0) return "crashes with signal " + std::to_string(-outcome.code);
    if (outcome.code > 1) return "has exit code " + std::to_string(outcome.code);
    /* A new table without rows is none. */
    std::erase_if(left, [this](const auto &file) {
      const auto meant = after_.find(file.first);
      return file.second.empty() && !file.first.ends_with('/') &&
             !before_.contains(file.first) &&
             (meant == after_.end() || !meant->second.empty());
    });
    const bool as_good =
        outcome.code == good_.code && outcome.output == good_.output && left == after_;
    if (as_good) return "";
    if (failure.harmless) return "does not do as without the fault";
    if (failure.kind == kClock) return "";
    if (scenario_.promise == Promise::kPicture && !outcome.messages.empty() &&
        outcome.code == 0) {
      return "";
    }
    if (scenario_.promise == Promise::kPartial && outcome.code == 1 &&
        outcome.output.size() + outcome.messages.size() > 0) {
      return "";
    }
    if (outcome.code == 0) {
      if (outcome.output != good_.output) return "has another output and exit code 0";
      return "has left other files and exit code 0";
    }
    const std::string problem = messages_problem(outcome);
    if (!problem.empty()) return problem;
    let_the_next_program_mend(left);
    if (scenario_.promise == Promise::kHistory) return history_problem();
    return files_problem(left);
  }

  void report(const Failure &failure, long at, const Outcome &outcome,
              const std::string &problem) {
    problems++;
    const std::string key = std::string(kKindNames[failure.kind]) + problem;
    if (++told_[key] > 3) return;
    std::printf("FAULT %s: %s %ld (%s, %s): %s\n", scenario_.name.c_str(),
                kKindNames[failure.kind], at, way_name(failure),
                failure.error == 0 || failure.way == Way::kStall
                    ? "-"
                    : strerrorname_np(failure.error),
                problem.c_str());
    if (!outcome.messages.empty()) std::printf("      %s", outcome.messages.c_str());
    std::fflush(stdout);
  }

  const Scenario &scenario_;
  const Runner &runner_;
  Outcome good_;
  Content before_, after_;
  std::string history_before_, history_empty_, history_after_;
  std::map<std::string, int> told_;
};

double now() {
  return std::chrono::duration<double>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

/* The calls of a kind to fail: all, or the first, the last and some by chance. */
std::set<long> chosen(long calls, long most, std::mt19937 &random) {
  std::set<long> numbers;
  if (calls == 0) return numbers;
  if (most <= 0 || calls <= most) {
    for (long n = 1; n <= calls; n++) numbers.insert(n);
    return numbers;
  }
  numbers.insert(1);
  if (most > 1) numbers.insert(calls);
  std::uniform_int_distribution<long> any(1, calls);
  while (static_cast<long>(numbers.size()) < most) numbers.insert(any(random));
  return numbers;
}

bool wanted(const Settings &settings, const Scenario &scenario) {
  if (settings.names.empty())
    return settings.whole || scenario.promise != Promise::kPicture;
  return std::any_of(
      settings.names.begin(), settings.names.end(),
      [&](const std::string &name) { return scenario.name.starts_with(name); });
}

Settings read_arguments(int argc, char **argv) {
  Settings settings;
  for (int i = 1; i < argc; i++) {
    const std::string argument = argv[i];
    const char *const value = i + 1 < argc ? argv[i + 1] : "";
    if (argument == "--whole") {
      settings.whole = true;
    } else if (argument == "--seconds") {
      settings.seconds = std::atof(value);
      i++;
    } else if (argument == "--most") {
      settings.most = std::atol(value);
      i++;
    } else if (argument == "--kind") {
      settings.kind = value;
      i++;
    } else if (argument == "--list") {
      for (const Scenario &scenario : scenarios()) std::puts(scenario.name.c_str());
      std::exit(0);
    } else {
      settings.names.push_back(argument);
    }
  }
  return settings;
}

}  // namespace

int main(int argc, char **argv) {
  const Settings settings = read_arguments(argc, argv);
  const char *const given = std::getenv("KSUTIL_STRESS_SEED");
  const unsigned seed = given != nullptr ? static_cast<unsigned>(std::atol(given))
                                         : std::random_device()();
  std::printf("seed %u\n", seed);
  std::mt19937 random(seed);
  const Runner runner;
  std::vector<const Scenario *> list;
  for (const Scenario &scenario : scenarios()) {
    if (wanted(settings, scenario)) list.push_back(&scenario);
  }
  std::shuffle(list.begin(), list.end(), random);
  const double end = now() + settings.seconds;
  long runs = 0, problems = 0;
  std::size_t done = 0;
  for (const Scenario *scenario : list) {
    const double begin = now();
    /* Each scenario gets its share of the time that is left. */
    const double share = (end - begin) / static_cast<double>(list.size() - done++);
    Trial trial(*scenario, runner);
    for (long round = 1; settings.whole ? round == 1 : now() < begin + share; round++) {
      for (const Failure &failure : kFailures) {
        if (!settings.kind.empty() && settings.kind != kKindNames[failure.kind]) {
          continue;
        }
        if (!settings.whole && now() > begin + share) break;
        const long most = settings.whole ? settings.most : 1;
        for (const long at : chosen(trial.calls(failure.kind), most, random)) {
          trial.attempt(failure, at);
        }
      }
    }
    std::printf("%-22s %6ld runs, %ld faults, %.1f s\n", scenario->name.c_str(),
                trial.runs, trial.problems, now() - begin);
    std::fflush(stdout);
    runs += trial.runs;
    problems += trial.problems;
  }
  std::printf("%zu scenarios, %ld runs with a failed call, %ld faults\n", list.size(),
              runs, problems);
  return problems == 0 && runs > 0 ? 0 : 1;
}
