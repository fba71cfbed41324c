/* waveform_index: enters scanned waveform files into a database.
 *
 * Each piece of a file has a row of wfdisc: one of miniSEED the datatype "sd", with foff at
 * the first of its records; one of SAC f4 or t4.  The row of a piece is known by its file,
 * channel and foff.  A new piece adds a row; one that has grown, or has been found to begin
 * elsewhere in its file, changes its row and keeps its wfid.  Rows are never removed.
 * New channels get rows of sitechan, and rows of seedcode and affiliation where a file tells
 * their network or location and the schema has these tables.  The channel of the database
 * is the SEED channel with the location behind it, unless seedcode says otherwise.
 * The database has all of the changes afterwards, or none: see
 * DatabaseStore::transaction. */
#ifndef KSUTIL_FORMATS_WAVEFORM_INDEX_WAVEFORM_INDEX_H
#define KSUTIL_FORMATS_WAVEFORM_INDEX_WAVEFORM_INDEX_H

#include <cstdint>
#include <functional>
#include <string>

#include "formats/waveform_index/waveform_scan.h"
#include "platform/db/store.h"

namespace ksutil::waveform_index {

struct IndexCounts {
  /* Rows of wfdisc. */
  std::int64_t added = 0, changed = 0, unchanged = 0;
  std::int64_t refused = 0;   // pieces that the tables cannot hold
  std::int64_t stale = 0;     // rows whose piece their file no longer has
  std::int64_t gone = 0;      // rows whose file is no longer in the folders scanned
  std::int64_t channels = 0;  // rows of sitechan added
};

struct IndexListener {
  std::function<void(std::int64_t files)> reached = [](std::int64_t) {};
  /* A file or some of its pieces that are left out. */
  std::function<void(const std::string &path, const std::string &why)> refused =
      [](const std::string &, const std::string &) {};
  /* A file whose rows stay though it has vanished, or has lost pieces. */
  std::function<void(const std::string &path, const std::string &what)> noted =
      [](const std::string &, const std::string &) {};
};

/* Brings a database up to date with a scan.
 *
 * dry_run   counts what would be done
 * strict    a refused piece undoes everything
 * False, and nothing changed: with a message when the database lacks a table (lastid,
 * sitechan, wfdisc) or cannot be written; or under `strict`, when counts.refused is above
 * 0. */
bool index_waveforms(db::DatabaseStore &store, const Scan &scan, bool dry_run,
                     bool strict, const IndexListener &listener, IndexCounts &counts);

}  // namespace ksutil::waveform_index
#endif
