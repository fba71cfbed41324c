/* get: kswave get. */
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/elog/elog.h"
#include "platform/stock/owners.h"
#include "platform/stock/text.h"
#include "platform/trace/miniseed.h"
#include "platform/trace/segment.h"
#include "platform/trace/trace.h"
#include "tools/common/cells.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/event_picks.h"
#include "tools/kswave/selection.h"

namespace ksutil::tools {
namespace {

enum class GetFormat { kSac, kMiniseed, kText };

struct GetOptions {
  Selection selection;
  EventChoice event;
  GetFormat format = GetFormat::kSac;
  std::string directory = ".";
  bool force = false, quiet = false;
};

std::string file_part(std::string text) {
  for (char &c : text) {
    if (c == '/' || static_cast<unsigned char>(c) <= ' ') c = '_';
  }
  return text;
}

/* Writes the files of one run, each as a whole and none twice. */
class Extractor {
 public:
  Extractor(const GetOptions &options, const ChannelSet &set, const EventPicks &event)
      : options_(options), set_(set), event_(event) {}

  bool write(int channel) {
    if (options_.format == GetFormat::kSac) return write_sac(channel);
    const VectorPtr vector(ksdsseis_read(set_.get(), channel, nullptr));
    if (vector == nullptr) return false;
    const ksdsseis_channel &of = set_.channel(channel);
    const bool text = options_.format == GetFormat::kText;
    const std::string path = path_of(of, vector->time, text ? "txt" : "mseed");
    if (!written_.insert(path).second) {
      elog_log(0, "%s is the file of another channel too.\n", path.c_str());
      return false;
    }
    if (!options_.force && ::access(path.c_str(), F_OK) == 0) {
      elog_log(0, "%s is there already.\n", path.c_str());
      return false;
    }
    const std::string beside = path + "." + std::to_string(::getpid()) + ".new";
    ::unlink(beside.c_str());
    bool good =
        text ? write_text(beside, of, *vector) : write_miniseed(beside, of, *vector);
    if (good && std::rename(beside.c_str(), path.c_str()) != 0) {
      elog_log(1, "cannot make %s.\n", path.c_str());
      good = false;
    }
    if (!good) ::unlink(beside.c_str());
    if (good) say(path);
    return good;
  }

 private:
  void say(const std::string &path) const {
    if (!options_.quiet) std::puts(path.c_str());
  }

  std::string path_of(const ksdsseis_channel &channel, double time,
                      const char *kind) const {
    time = std::floor(time);
    const std::string text = time_text(time, 0);
    const std::string of_day = text.substr(text.find('T') + 1);
    const std::string name = file_part(channel_name(channel)) + "." +
                             std::to_string(yearday(time)) + "." + of_day.substr(0, 2) +
                             of_day.substr(3, 2) + of_day.substr(6) + "." + kind;
    return (std::filesystem::path(options_.directory) / name).string();
  }

  bool write_sac(int channel) const {
    Tbl *list = nullptr;
    const int count =
        ksdsseis_write_sac(set_.get(), channel, options_.directory.c_str(),
                           event_.origin, options_.force ? 1 : 0, &list);
    const TblOfTexts paths(list);
    for_each<const char>(paths.get(), [&](const char *path) { say(path); });
    return count >= 0;
  }

  /* A line for each sample: time and value; gaps have none. */
  static bool write_text(const std::string &path, const ksdsseis_channel &channel,
                         const ksvector2 &vector) {
    std::FILE *const file = std::fopen(path.c_str(), "wx");
    if (file == nullptr) {
      elog_log(1, "cannot make %s.\n", path.c_str());
      return false;
    }
    std::string text = "# " + channel_name(channel) + " " +
                       shortest_cell(channel.samprate) + " Hz, counts\n";
    bool good = true;
    for (int i = 0; i < vector.npts && good; ++i) {
      const double value = vector.data[i];
      if (!is_gap_sample(value)) {
        text +=
            time_cell(vector.time + i * vector.dt) + " " + shortest_cell(value) + "\n";
      }
      if (text.size() > 60000 || i + 1 == vector.npts) {
        good = std::fwrite(text.data(), 1, text.size(), file) == text.size();
        text.clear();
      }
    }
    if (std::fclose(file) != 0 || !good) {
      elog_log(1, "cannot write %s.\n", path.c_str());
      return false;
    }
    return true;
  }

  /* Counts stay counts where the samples are whole. */
  static bool write_miniseed(const std::string &path, const ksdsseis_channel &channel,
                             const ksvector2 &vector) {
    MiniseedCodes codes;
    codes.net = channel.net;
    codes.sta = channel.seedsta[0] != '\0' ? channel.seedsta : channel.sta;
    codes.chan = channel.seedchan[0] != '\0' ? channel.seedchan : channel.chan;
    codes.loc = channel.loc;
    std::vector<float> floats;
    std::vector<std::int32_t> counts;
    for (int begin = 0; begin < vector.npts;) {
      if (is_gap_sample(vector.data[begin])) {
        ++begin;
        continue;
      }
      int end = begin;
      bool whole = true;
      while (end < vector.npts && !is_gap_sample(vector.data[end])) {
        const double value = vector.data[end++];
        whole = whole && std::abs(value) < 2147483647.0 && value == std::trunc(value);
      }
      Segment segment;
      segment.sta = codes.sta;
      segment.chan = codes.chan;
      segment.time = vector.time + begin * vector.dt;
      segment.samprate = channel.samprate;
      const auto *const from = vector.data + begin, *const to = vector.data + end;
      if (whole) {
        counts.clear();
        std::transform(from, to, std::back_inserter(counts),
                       [](double value) { return static_cast<std::int32_t>(value); });
        segment.samples = Segment::Counts(counts);
      } else {
        floats.clear();
        std::transform(from, to, std::back_inserter(floats),
                       [](double value) { return static_cast<float>(value); });
        segment.samples = Segment::Floats(floats);
      }
      if (!miniseed_append(path, segment, codes, 512)) return false;
      begin = end;
    }
    return true;
  }

  const GetOptions &options_;
  const ChannelSet &set_;
  const EventPicks &event_;
  std::set<std::string> written_;
};

int get(const GetOptions &options) {
  const ChannelSet set(options.selection, "r");
  if (!set.good()) return kFailure;
  EventPicks event;
  if (options.event.any() && !read_event(set.database(), options.event, event)) {
    return kFailure;
  }
  int result = set.report();
  Extractor extractor(options, set, event);
  Progress progress("channels", set.count(), options.quiet);
  for (int i = 0; i < set.count(); ++i) {
    const bool written = extractor.write(i);
    /* Also of segments that were passed over. */
    if (!written || anything_registered()) {
      progress.wipe();
      print_register();
      result = kFailure;
    }
    progress.reach(i + 1);
  }
  return result;
}

void describe_get(CLI::App &command, GetOptions &options) {
  static const std::map<std::string, GetFormat> formats{{"sac", GetFormat::kSac},
                                                        {"mseed", GetFormat::kMiniseed},
                                                        {"text", GetFormat::kText}};
  add_selection(command, options.selection);
  command
      .add_option("--format", options.format,
                  "sac (a file for each stretch without gaps), mseed or text")
      ->transform(CLI::CheckedTransformer(formats));
  command.add_option("--dir", options.directory, "Folder for the files")
      ->check(CLI::ExistingDirectory);
  add_event_choice(command, options.event);
  command.add_flag("--force", options.force, "Replace files that are there already");
  command.add_flag("-q,--quiet", options.quiet, "Do not print the names of the files");
}

}  // namespace

Command get_command() {
  return make_command<GetOptions>(
      "get", "Writes waveforms to SAC, miniSEED or text files",
      {"kswave get --force --start 2010-05-20T00:01 data/mlr/mlr",
       "kswave get --format text --chan BHZ data/mlr/mlr"},
      describe_get, get);
}

}  // namespace ksutil::tools
