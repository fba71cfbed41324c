/* file_set: puts the files of one call in their places, and finds the stretches of a vector
 * that go into them. */
#ifndef KSUTIL_WAVEFORMS_DATASET_INTERNAL_FILE_SET_H
#define KSUTIL_WAVEFORMS_DATASET_INTERNAL_FILE_SET_H

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "waveforms/ksdsseis.h"

namespace ksutil::dataset {

/* The SEED codes of a channel, or those of the database when the SEED codes are unknown. */
inline const char *seed_sta(const ksdsseis_channel &of) {
  return of.seedsta[0] != '\0' ? of.seedsta : of.sta;
}
inline const char *seed_chan(const ksdsseis_channel &of) {
  return of.seedchan[0] != '\0' ? of.seedchan : of.chan;
}

/* Samples begin ... end - 1 of a vector, without gaps. */
struct Stretch {
  std::size_t begin, end;
};
std::vector<Stretch> stretches_of(const ksvector2 &vector);

inline double time_of(const ksvector2 &vector, std::size_t sample) {
  return vector.time + static_cast<double>(sample) * vector.dt;
}

/* Puts each file in its place as a whole, and none twice.  Messages are in the name of
 * `who`, which must outlive the set as `dir` must. */
class FileSet {
 public:
  /* replace: files that are there already are replaced; else they are an error. */
  FileSet(const char *who, const char *dir, bool replace)
      : who_(who), dir_(dir), replace_(replace) {}

  std::string path_of(const std::string &name) const;
  /* `write` fills the file of the name it is given; false with messages. */
  bool put(const std::string &path,
           const std::function<bool(const std::string &)> &write);
  /* Takes back what was put. */
  void remove();
  const std::vector<std::string> &paths() const { return paths_; }

 private:
  bool refused(const char *call, const std::string &path) const;

  const char *const who_;
  const char *const dir_;
  const bool replace_;
  std::set<std::string> written_;
  std::vector<std::string> paths_;
};

}  // namespace ksutil::dataset
#endif
