/* data_set: the record behind a ksdsseis, and what its sources share. */
#ifndef KSUTIL_WAVEFORMS_DATASET_INTERNAL_DATA_SET_H
#define KSUTIL_WAVEFORMS_DATASET_INTERNAL_DATA_SET_H

#include <memory>
#include <string>
#include <vector>

#include "platform/trace/waveform.h"
#include "waveforms/ksdsseis.h"

namespace ksutil::dataset {

/* A row of wfdisc with samples in the window. */
struct WaveformRow {
  Dbptr record;
  WaveformSegment segment;
  std::int64_t first = 0, count = 0;  // the samples in the window
  double lddate = 0.0;
  std::string band;  // instype of the row

  double time() const {
    return segment.time + static_cast<double>(first) / segment.samprate;
  }
  double endtime() const {
    return time() + static_cast<double>(count - 1) / segment.samprate;
  }
};

struct Channel {
  ksdsseis_channel description;
  std::vector<WaveformRow> rows;  // in the order of time
};

/* Fills the fields of the channels that other tables than wfdisc have. */
void describe_channels(Dbptr db, std::vector<Channel> &channels);

/* Whether a sample rate is the channel's, so that its segments fit into one vector. */
bool same_samprate(double samprate, double of_channel);

/* The name of the channel's vectors and files: "NET.STA.LOC.CHAN" or "STA.CHAN". */
std::string channel_name(const ksdsseis_channel &channel);

}  // namespace ksutil::dataset

struct ksdsseis {
  Dbptr db;
  double tstart, tend;  // both 0: all
  long unusable;
  std::vector<ksutil::dataset::Channel> channels;
};

namespace ksutil::dataset {

/* The channel of a number; null with a message in the name of `who`. */
Channel *find_channel(const char *who, ksdsseis *set, int channel);

/* Reads segments of a channel: all in the order of time, or (for a vector) those of its
 * sample rate in the order of load dates.  `used` receives their rows, in the same order.
 * False with messages when there are none. */
bool read_channel(const char *who, const ksdsseis &set, const Channel &channel,
                  bool for_vector, std::vector<Segment> &segments,
                  std::vector<const WaveformRow *> *used = nullptr);

/* The vector of a channel, see ksdsseis_read; null with messages. */
ksvector2 *read_vector(const char *who, const ksdsseis &set, const Channel &channel,
                       char *tag, std::vector<const WaveformRow *> *used = nullptr);

}  // namespace ksutil::dataset
#endif
