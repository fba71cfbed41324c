/* sac_files: writes a vector to SAC files, one for each stretch without gaps. */
#ifndef KSUTIL_WAVEFORMS_DATASET_INTERNAL_SAC_FILES_H
#define KSUTIL_WAVEFORMS_DATASET_INTERNAL_SAC_FILES_H

#include "formats/kssac.h"
#include "waveforms/dataset/internal/file_set.h"

namespace ksutil::dataset {

class SacWriter {
 public:
  /* origin: a record, or dbinvalid() */
  SacWriter(const char *who, FileSet &files, Dbptr origin)
      : who_(who), files_(files), origin_(origin) {}

  /* type: IDEP of the header; factor: of the samples, to its unit.  False with messages. */
  bool write(const ksdsseis_channel &channel, const ksvector2 &vector, const char *type,
             double factor);

 private:
  bool write_stretch(const ksdsseis_channel &channel, const ksvector2 &vector,
                     const Stretch &stretch, const char *type, double factor);
  static bool fill_header(const ksdsseis_channel &from, KSSac *kssac);

  const char *const who_;
  FileSet &files_;
  const Dbptr origin_;
};

}  // namespace ksutil::dataset
#endif
