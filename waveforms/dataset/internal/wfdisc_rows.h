/* wfdisc_rows: adds rows of wfdisc for files that have been written. */
#ifndef KSUTIL_WAVEFORMS_DATASET_INTERNAL_WFDISC_ROWS_H
#define KSUTIL_WAVEFORMS_DATASET_INTERNAL_WFDISC_ROWS_H

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/db/store.h"
#include "waveforms/dataset/internal/miniseed_files.h"

namespace ksutil::dataset {

/* Adds rows in one transaction, with the chanid that sitechan has for their channel on
 * their day; null without one. */
class RowWriter {
 public:
  RowWriter(const char *who, Dbptr db);

  /* Whether the database takes rows; false with a message. */
  bool open();
  bool add(const std::vector<NewRow> &rows);

 private:
  struct Epoch {
    std::int64_t ondate, offdate, chanid;
  };

  bool read_channels();
  std::int64_t chanid_of(const NewRow &row) const;
  bool fill(const db::Relation &layout, const NewRow &from, long wfid, double now,
            std::string &row) const;
  std::string dir_of(const std::filesystem::path &folder) const;

  const char *const who_;
  Dbptr db_;
  db::DatabaseStore *store_ = nullptr;
  std::filesystem::path directory_;
  std::multimap<std::pair<std::string, std::string>, Epoch> epochs_;  // by sta and chan
};

}  // namespace ksutil::dataset
#endif
