/* miniseed_files: writes vectors to miniSEED files, and knows the rows of wfdisc that point
 * to them. */
#ifndef KSUTIL_WAVEFORMS_DATASET_INTERNAL_MINISEED_FILES_H
#define KSUTIL_WAVEFORMS_DATASET_INTERNAL_MINISEED_FILES_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "waveforms/dataset/internal/data_set.h"
#include "waveforms/dataset/internal/file_set.h"

namespace ksutil::dataset {

/* The fields of a row of wfdisc that give samples their unit. */
struct Calibration {
  double calib = 0.0, calper = -1.0;
  std::string segtype;
  bool operator==(const Calibration &) const = default;
};

/* Knows which row each sample of a vector comes from. */
class RowCover {
 public:
  /* rows: in the order in which the vector was filled, the later ones on top. */
  RowCover(const std::vector<const WaveformRow *> &rows, const ksvector2 &vector);
  /* Cuts a stretch where the calibration changes. */
  std::vector<std::pair<Stretch, const WaveformRow *>> cut(
      const Stretch &stretch) const;
  /* Of samples from a row; null: of those from none. */
  static Calibration calibration(const WaveformRow *row);

 private:
  void split(long at);
  void paint(long begin, long end, const WaveformRow *row);

  std::map<long, const WaveformRow *> owners_;  // from this sample on
};

/* A row of wfdisc to be added. */
struct NewRow {
  const Channel *channel;
  const WaveformRow *source;
  std::string path;
  double time, endtime, samprate;
  std::int64_t nsamp, foff;
};

/* Packs samples of a vector as counts where all are whole, else as floats. */
class MiniseedWriter {
 public:
  MiniseedWriter(const char *who, FileSet &files) : who_(who), files_(files) {}

  /* cover: null when no rows are wanted.  False with messages. */
  bool write(const Channel &channel, const ksvector2 &vector, const RowCover *cover);
  const std::vector<NewRow> &rows() const { return rows_; }

 private:
  static bool append(const std::string &path, const ksdsseis_channel &of,
                     const ksvector2 &vector, const Stretch &stretch);
  static bool take_times(const std::string &path, std::vector<NewRow> &rows);

  const char *const who_;
  FileSet &files_;
  std::vector<NewRow> rows_;
};

}  // namespace ksutil::dataset
#endif
