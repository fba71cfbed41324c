/* ksdsseis_files: writes the samples of a data set to SAC and miniSEED files. */
#include <cctype>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/elog/failure.h"
#include "platform/stock/owners.h"
#include "waveforms/dataset/internal/data_set.h"
#include "waveforms/dataset/internal/file_set.h"
#include "waveforms/dataset/internal/miniseed_files.h"
#include "waveforms/dataset/internal/sac_files.h"
#include "waveforms/dataset/internal/wfdisc_rows.h"

using namespace ksutil;
using namespace ksutil::dataset;

namespace {

struct FreeVector {
  void operator()(ksvector2 *vector) const { ksvector2_free_vector(vector); }
};
using VectorPtr = std::unique_ptr<ksvector2, FreeVector>;

/* Runs `write` for a channel, or with -1 for all. */
bool for_channels(const char *who, ksdsseis *set, int channel,
                  const std::function<bool(const Channel &)> &write) {
  if (channel >= 0) {
    const Channel *const found = find_channel(who, set, channel);
    return found != nullptr && write(*found);
  }
  bool good = true;
  for (const Channel &each : set->channels) good = write(each) && good;
  return good;
}

int finish(bool good, const FileSet &files, Tbl **paths) {
  if (paths != nullptr) *paths = from_texts(files.paths()).release();
  return good ? static_cast<int>(files.paths().size()) : -1;
}

}  // namespace

int ksdsseis_write_sac(ksdsseis *set, int channel, const char *dir, Dbptr origin,
                       int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_sac";
  return at_boundary(kSelf, [&]() -> int {
    if (set == nullptr || dir == nullptr) {
      return fail(kSelf, "No data set or folder given");
    }
    FileSet files(kSelf, dir, replace != 0);
    SacWriter writer(kSelf, files, origin);
    const bool good = for_channels(kSelf, set, channel, [&](const Channel &each) {
      const VectorPtr vector(read_vector(kSelf, *set, each, nullptr));
      return vector != nullptr &&
             writer.write(each.description, *vector, each.description.segtype, 1.0);
    });
    return finish(good, files, paths);
  });
}

int ksdsseis_write_miniseed(ksdsseis *set, int channel, const char *dir, Dbptr db,
                            int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_miniseed";
  return at_boundary(kSelf, [&]() -> int {
    if (set == nullptr || dir == nullptr) {
      return fail(kSelf, "No data set or folder given");
    }
    const bool with_rows = db.database >= 0;
    if (with_rows && replace != 0) {
      return fail(kSelf, "Files with rows are not replaced: rows may point into them");
    }
    RowWriter rows(kSelf, db);
    if (with_rows && !rows.open()) return -1;
    FileSet files(kSelf, dir, replace != 0);
    MiniseedWriter writer(kSelf, files);
    const bool good = for_channels(kSelf, set, channel, [&](const Channel &each) {
      std::vector<const WaveformRow *> used;
      const VectorPtr vector(read_vector(kSelf, *set, each, nullptr, &used));
      if (vector == nullptr) return false;
      if (!with_rows) return writer.write(each, *vector, nullptr);
      const RowCover cover(used, *vector);
      return writer.write(each, *vector, &cover);
    });
    if (with_rows && !rows.add(writer.rows())) {
      files.remove();
      fail(kSelf, "The rows cannot be added; the files are removed");
      return finish(false, files, paths);
    }
    return finish(good, files, paths);
  });
}

namespace {

/* A vector to be written under the description of a channel. */
struct VectorFiles {
  const char *who;
  const char *tag, *type, *format, *dir;
  Dbptr origin;
  int replace;
};

int write_vector(const VectorFiles &how, const Channel &channel, Tbl **paths) {
  const ksvector2 *const vector =
      how.tag == nullptr ? nullptr : ksvector2_get_vector(how.tag);
  if (vector == nullptr || vector->tsamp == 0) {
    return fail(how.who, "No time-sampled vector of that tag");
  }
  const std::string kind = how.type == nullptr ? "" : how.type;
  if (!kind.empty() && kind != "D" && kind != "V" && kind != "A") {
    return fail(how.who, "Type '%s' is not D, V or A", how.type);
  }
  const std::string_view as = how.format == nullptr ? "" : how.format;
  if (how.dir == nullptr || (as != "sac" && as != "mseed")) {
    return fail(how.who, "A folder and the format sac or mseed are needed");
  }
  FileSet files(how.who, how.dir, how.replace != 0);
  bool good;
  if (as == "sac") {
    /* SAC files have ground motion in nm, nm/s and nm/s^2. */
    good = SacWriter(how.who, files, how.origin)
               .write(channel.description, *vector, kind.c_str(),
                      kind.empty() ? 1.0 : 1e9);
  } else {
    good = MiniseedWriter(how.who, files).write(channel, *vector, nullptr);
  }
  return finish(good, files, paths);
}

/* Gives a channel code another component: its third letter, or its last one when it is
 * shorter. */
void set_component(char *code, char component) {
  const std::size_t size = std::strlen(code);
  if (size > 0) code[size < 3 ? size - 1 : 2] = component;
}

}  // namespace

int ksdsseis_write_vector(ksdsseis *set, int channel, const char *tag, const char *type,
                          const char *format, const char *dir, Dbptr origin,
                          int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_vector";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    return write_vector({kSelf, tag, type, format, dir, origin, replace}, *found,
                        paths);
  });
}

int ksdsseis_write_component(ksdsseis *set, int channel, const char *tag,
                             char component, double hang, double vang, const char *type,
                             const char *format, const char *dir, Dbptr origin,
                             int replace, Tbl **paths) {
  constexpr char kSelf[] = "ksdsseis_write_component";
  return at_boundary(kSelf, [&]() -> int {
    const Channel *const found = find_channel(kSelf, set, channel);
    if (found == nullptr) return -1;
    if (std::isalnum(static_cast<unsigned char>(component)) == 0) {
      return fail(kSelf, "A component is a letter or a digit");
    }
    Channel as;
    as.description = found->description;
    set_component(as.description.chan, component);
    set_component(as.description.seedchan, component);
    as.description.hang = hang;
    as.description.vang = vang;
    return write_vector({kSelf, tag, type, format, dir, origin, replace}, as, paths);
  });
}
