/* pick: kswave pick. */
#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/db/values.h"
#include "platform/elog/elog.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/common/rows.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/selection.h"
#include "waveforms/signal.h"

namespace ksutil::tools {
namespace {

struct PickOptions {
  Selection selection;
  Processing processing;
  OnsetSearch search;
  Form form = Form::kText;
  std::string auth = "kswave", phase;
  bool dry_run = false, quiet = false;
};

/* The arrivals of one run. */
class Picker {
 public:
  Picker(const PickOptions &options, const ChannelSet &set)
      : options_(options),
        set_(set),
        arrivals_(set.database().table("arrival")),
        rows_(
            {{"sta"}, {"chan"}, {"time"}, {"ratio", true, true}, {"arid", true, true}},
            options.form) {}

  /* Reads what earlier runs have written under the same auth; false with messages. */
  bool read_known() {
    Dbptr rows = dbsubset(arrivals_, ("auth == \"" + options_.auth + "\"").c_str());
    long count = 0;
    if (rows.table == dbINVALID || dbquery(rows, dbq_record_count, &count) != 0) {
      return false;
    }
    for (rows.record = 0; rows.record < count; ++rows.record) {
      std::string sta, chan;
      double time = 0.0;
      if (db::get_values(rows, {{"sta", sta}, {"chan", chan}, {"time", time}}) == 0) {
        known_[{sta, chan}].insert(time);
      }
    }
    dbfree_view(rows);
    return true;
  }

  /* Picks a channel; false with messages. */
  bool pick(int channel) {
    const Series series(set_, channel, options_.processing);
    if (!series.good()) return false;
    const ksvector2 &vector = series.vector();
    const std::vector<Onset> onsets = find_onsets(
        std::span<const double>(vector.data, static_cast<std::size_t>(vector.npts)),
        1.0 / vector.dt, options_.search);
    for (const Onset &onset : onsets) {
      const double time = vector.time + static_cast<double>(onset.sample) * vector.dt;
      if (!take(set_.channel(channel), time, onset.ratio)) return false;
    }
    return true;
  }
  const Rows &rows() const { return rows_; }

 private:
  bool take(const ksdsseis_channel &channel, double time, double ratio) {
    long arid = -1;
    if (!options_.dry_run) {
      if (is_known(channel, time)) return true;
      arid = add(channel, time, ratio);
      if (arid < 0) return false;
    }
    rows_.add({channel.sta, channel.chan, time_cell(time), real_cell(ratio, 1),
               id_cell(arid)});
    return true;
  }

  /* Whether an earlier run has written this onset. */
  bool is_known(const ksdsseis_channel &channel, double time) const {
    const auto found = known_.find({channel.sta, channel.chan});
    if (found == known_.end()) return false;
    const auto near = found->second.lower_bound(time - 0.5);
    return near != found->second.end() && *near <= time + 0.5;
  }

  long add(const ksdsseis_channel &channel, double time, double ratio) {
    const long arid = dbnextid(arrivals_, "arid");
    if (arid < 0) return -1;
    const long record = db::add_values(
        arrivals_, {{"sta", channel.sta},
                    {"chan", channel.chan},
                    {"time", time},
                    {"arid", arid},
                    {"jdate", yearday(time)},
                    {"iphase", options_.phase.empty() ? "-" : options_.phase.c_str()},
                    /* The ratio is one of energies. */
                    {"snr", std::min(std::sqrt(ratio), 999999.0)},
                    {"auth", options_.auth}});
    return record < 0 ? -1 : arid;
  }

  const PickOptions &options_;
  const ChannelSet &set_;
  const Dbptr arrivals_;
  Rows rows_;
  std::map<std::pair<std::string, std::string>, std::set<double>> known_;
};

int pick_all(const PickOptions &options) {
  const ChannelSet set(options.selection, options.dry_run ? "r" : "r+");
  if (!set.good()) return kFailure;
  int result = set.report();
  Picker picker(options, set);
  if (!options.dry_run && !picker.read_known()) return kFailure;
  {
    Progress progress("channels", set.count(), options.quiet);
    for (int i = 0; i < set.count(); ++i) {
      if (!picker.pick(i)) {
        progress.wipe();
        print_register();
        result = kFailure;
      }
      progress.reach(i + 1);
    }
  }
  picker.rows().print();
  return result;
}

std::string fault_of_word(const std::string &text) {
  /* It stands in a field, and in an expression. */
  for (const char c : text) {
    if (static_cast<unsigned char>(c) <= ' ' || c == '"' || c == '\\' || c == '\x7f') {
      return "'" + text + "' is not a word";
    }
  }
  return "";
}

void describe_pick(CLI::App &command, PickOptions &options) {
  OnsetSearch &search = options.search;
  add_selection(command, options.selection);
  add_processing(command, options.processing);
  add_form_options(command, options.form);
  command.add_option("--short", search.sta, "Seconds of the short window")
      ->check(number_between(1e-3, 1e5))
      ->capture_default_str();
  command.add_option("--long", search.lta, "Seconds of the long window before it")
      ->check(number_between(1e-3, 1e6))
      ->capture_default_str();
  command
      .add_option("--ratio", search.ratio,
                  "Least ratio of the energies of both windows at an onset")
      ->check(number_between(1.0, 1e9))
      ->capture_default_str();
  command.add_option("--off", search.off, "Ratio below which the next onset may begin")
      ->check(number_between(0.0, 1e9))
      ->capture_default_str();
  command
      .add_option("--phase", options.phase, "iphase of the arrivals; null by default")
      ->check(fault_of_word)
      ->check([](const std::string &text) {
        return text.size() <= 8 ? "" : "'" + text + "' is longer than 8 characters";
      });
  command.add_option("--auth", options.auth, "auth of the arrivals")
      ->check(fault_of_word)
      ->check([](const std::string &text) {
        return text.size() <= 15 ? "" : "'" + text + "' is longer than 15 characters";
      })
      ->capture_default_str();
  command.add_flag("--dry-run", options.dry_run, "Show the onsets and write nothing");
  add_quiet(command, options.quiet);
}

}  // namespace

Command pick_command() {
  return make_command<PickOptions>(
      "pick", "Finds onsets and writes them as arrivals",
      {"kswave pick --dry-run --chan BHZ --ratio 3 data/mlr/mlr"}, describe_pick,
      pick_all);
}

}  // namespace ksutil::tools
