/* SAC files of either byte order, from a file and through a pipe: header and samples of
 * whatever is accepted can be had, go into rows of a database, and come back from a file. */
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "formats/kssac.h"
#include "platform/db/db.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"
#include "platform/trace/segment.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {
namespace {

struct SacDeleter {
  void operator()(KSSac *sac) const { kssac_free_kssac(sac); }
};
using SacPtr = std::unique_ptr<KSSac, SacDeleter>;

SacPtr read(const char *path) {
  return SacPtr(kssac_read_from_file_either_order(path, "fuzz", nullptr));
}

/* What a pipe gives at once holds all of an input that is not larger. */
SacPtr read_from_pipe(std::string_view input) {
  int ends[2];
  require(::pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0, "a pipe can be made");
  const FileHandle from(ends[0]);
  {
    const FileHandle to(ends[1]);
    require(write_all(to.get(), input.data(), input.size()) ==
                static_cast<ssize_t>(input.size()),
            "a pipe takes an input");
  }
  return read(("/proc/self/fd/" + std::to_string(from.get())).c_str());
}

/* The bytes of a record as a file. */
std::string written(KSSac *sac) {
  static const FileHandle file(memfd_create("written", MFD_CLOEXEC));
  static const std::string path = "/proc/self/fd/" + std::to_string(file.get());
  std::string bytes;
  if (kssac_write_to_file_kssac(sac, path.c_str()) != 0) return "";
  require(read_file(path, std::size_t{1} << 24, bytes), "a written file can be read");
  return bytes;
}

void use(KSSac *sac) {
  Tbl *header = nullptr;
  require(kssac_header_2_tbl(sac, &header) == 0 && kssac_tbl_2_header(header, sac) == 0,
          "a header goes to a table and back");
  kssac_free_header_tbl(header);
  double time = 0, samprate = 0;
  kssac_getreftime_kssac(sac, &time);
  require(kssac_file_type_text(sac) != nullptr, "a record has a kind");
  Segment segment;
  if (kssac_get_segment_kssac(sac, segment) == 0) {
    const SacPtr made(kssac_create_from_segment(segment, "V", "made", nullptr));
  }
  static const Dbptr origin = dblookup(dbtmp("css3.0"), "", "origin", "", "");
  Dbptr place = origin;
  place.record = dbSCRATCH;
  kssac_getevent_kssac(sac, dbinvalid(), place);
  kssac_putevent_kssac(sac, dbinvalid(), place);
  long nsamp = 0;
  float *samples = nullptr;
  if (kssac_getdata_kssac(sac, &nsamp, &time, &samprate, &samples, nullptr) == 0) {
    require(nsamp < 1 || samples != nullptr, "samples come with their number");
  }
  const MallocPtr<float> owned(samples);
}

}  // namespace

void read_input(std::string_view input) {
  const SacPtr sac = read(file_of(input));
  if (input.size() < 60000) {
    const SacPtr piped = read_from_pipe(input);
    require((piped == nullptr) == (sac == nullptr), "a pipe gives what a file gives");
  }
  if (sac == nullptr) return;
  const std::string bytes = written(sac.get());
  if (!bytes.empty()) {
    const SacPtr again = read(file_of(bytes));
    require(again != nullptr && written(again.get()) == bytes,
            "a written file reads as the same record");
  }
  use(sac.get());
}

}  // namespace ksutil::fuzz
