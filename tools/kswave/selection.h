/* Selection: the options that choose channels and a time, and the data set of them. */
#ifndef KSUTIL_TOOLS_KSWAVE_SELECTION_H
#define KSUTIL_TOOLS_KSWAVE_SELECTION_H

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "tools/common/open_database.h"
#include "waveforms/ksdsseis.h"

namespace ksutil::tools {

struct FreeVector {
  void operator()(ksvector2 *vector) const { ksvector2_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<ksvector2, FreeVector>;

struct Selection {
  std::string database, sta, chan, start, end;
};

/* The operand DATABASE, --sta, --chan, --start and --end. */
void add_selection(CLI::App &command, Selection &selection);

/* Accepts four frequencies that ascend, or two: the texts of --corners and --filter. */
bool parse_frequencies(const std::string &text, std::size_t count,
                       std::vector<double> &frequencies);

/* The channels of a database that are meant, for one scope. */
class ChannelSet {
 public:
  /* False from good(), with messages, when the database cannot be read or has none. */
  ChannelSet(const Selection &selection, const char *mode);
  ~ChannelSet() { ksdsseis_close(set_); }
  ChannelSet(const ChannelSet &) = delete;
  ChannelSet &operator=(const ChannelSet &) = delete;

  bool good() const { return set_ != nullptr; }
  const OpenDatabase &database() const { return database_; }
  ksdsseis *get() const { return set_; }
  int count() const { return ksdsseis_count(set_); }
  const ksdsseis_channel &channel(int i) const { return *ksdsseis_describe(set_, i); }

  /* Complains of rows that could not be used; kFailure when there are some, else kOk. */
  int report() const;

 private:
  std::string name_;
  OpenDatabase database_;
  ksdsseis *set_ = nullptr;
};

/* "NET.STA.LOC.CHAN" or "STA.CHAN". */
std::string channel_name(const ksdsseis_channel &channel);

/* The processing of samples before they are shown. */
struct Processing {
  std::string filter, corners, motion;
  int order = 4;
  double water_level = 60.0;
  double samprate = 0.0;       // Hz; 0: as recorded
  bool correct_clock = false;  // true times, by tshift of sensor

  /* Whether samples and times stay as they are. */
  bool none() const {
    return filter.empty() && motion.empty() && samprate == 0.0 && !correct_clock;
  }
};

/* --filter, --order, --motion, --corners, --water-level, --samprate and
 * --correct-clock. */
void add_processing(CLI::App &command, Processing &processing);

/* The samples of a channel as a vector that is freed at the end of the scope. */
class Series {
 public:
  /* Reads the channel and processes it; false from good(), with messages. */
  Series(const ChannelSet &set, int channel, const Processing &processing);
  ~Series() {
    if (tag_[0] != '\0') ksvector2_free(tag_);
  }
  Series(const Series &) = delete;
  Series &operator=(const Series &) = delete;

  bool good() const { return vector_ != nullptr; }
  const ksvector2 &vector() const { return *vector_; }
  const char *tag() const { return tag_; }
  /* "counts", or the unit of the ground motion. */
  static std::string unit(const Processing &processing);

 private:
  char tag_[KS_TAG_SIZE] = "";
  const ksvector2 *vector_ = nullptr;
};

}  // namespace ksutil::tools
#endif
