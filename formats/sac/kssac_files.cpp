#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "formats/sac/internal/sac_header.h"
#include "formats/sac/internal/sac_record.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"

using namespace ksutil::sac;
using ksutil::fail, ksutil::fail_errno;

namespace {

constexpr const char *kReader = "kssac_read_from_file_kssac";
constexpr const char *kEitherReader = "kssac_read_from_file_either_order";
constexpr const char *kWriter = "kssac_write_to_file_kssac";

/* Numbers of 4 bytes at the beginning of a header; texts follow. */
constexpr std::size_t kHeaderNumbers = 110;
constexpr std::size_t kNumberSize = 4;

using Samples = ksutil::MallocPtr<float>;

/* Reads one file into a record, with messages in the name of `who`. */
class SacReader {
 public:
  SacReader(const char *who, const char *path, bool either_order)
      : who_(who), path_(path), either_order_(either_order) {}

  RecordPtr read(const char *name);

 private:
  bool read_record(KSSac &kssac);
  bool read_header(char *header) const;
  bool read_samples(std::int64_t count, SacImage &image) const;
  Samples read_whole(std::int64_t bytes) const;
  Samples read_growing(std::int64_t bytes) const;
  void log_short_read(ssize_t got, std::int64_t wanted) const {
    fail_errno(who_, "read(%s) error for data (read %ld bytes instead of %ld bytes)",
               path_, static_cast<long>(got), static_cast<long>(wanted));
  }
  void log_no_memory(std::int64_t bytes) const {
    fail_errno(who_, "malloc(data,%ld) error", static_cast<long>(bytes));
  }

  const char *who_;
  const char *path_;
  bool either_order_;  // files of the other byte order are read too
  bool swapped_ = false;
  ksutil::FileHandle file_;
};

/* Reverses the bytes of `count` numbers of 4 bytes. */
void swap_numbers(void *numbers, std::size_t count) {
  auto *at = static_cast<char *>(numbers);
  for (std::size_t i = 0; i < count; ++i, at += kNumberSize) {
    std::reverse(at, at + kNumberSize);
  }
}

bool SacReader::read_header(char *header) const {
  const ssize_t got = ksutil::read_all(file_.get(), header, KSSAC_HEADER_SIZE);
  if (got == KSSAC_HEADER_SIZE) return true;
  return fail_errno(who_,
                    "read(%s) error for header (read %ld bytes instead of %d bytes)",
                    path_, static_cast<long>(got), KSSAC_HEADER_SIZE);
}

/* Reads `bytes` bytes of samples at once, of a file that is known to have them. */
Samples SacReader::read_whole(std::int64_t bytes) const {
  Samples data(static_cast<float *>(ks_malloc(static_cast<std::size_t>(bytes))));
  if (data == nullptr) {
    log_no_memory(bytes);
    return nullptr;
  }
  const ssize_t got =
      ksutil::read_all(file_.get(), data.get(), static_cast<std::size_t>(bytes));
  if (got == bytes) return data;
  log_short_read(got, bytes);
  return nullptr;
}

/* Reads from a pipe or a device, whose length is unknown: the buffer grows with the bytes
 * that have arrived. */
Samples SacReader::read_growing(std::int64_t bytes) const {
  constexpr std::int64_t kFirstRoom = 1 << 20;
  Samples data;
  for (std::int64_t done = 0, room = kFirstRoom; done < bytes; room *= 2) {
    room = std::min(room, bytes);
    void *const grown = ks_realloc(data.get(), static_cast<std::size_t>(room));
    if (grown == nullptr) {
      log_no_memory(room);
      return nullptr;
    }
    static_cast<void>(data.release());
    data.reset(static_cast<float *>(grown));
    const std::int64_t part = room - done;
    const ssize_t got =
        ksutil::read_all(file_.get(), reinterpret_cast<char *>(data.get()) + done,
                         static_cast<std::size_t>(part));
    if (got != part) {
      log_short_read(done + std::max<ssize_t>(got, 0), bytes);
      return nullptr;
    }
    done = room;
  }
  return data;
}

bool SacReader::read_samples(std::int64_t count, SacImage &image) const {
  const std::int64_t bytes = count * static_cast<std::int64_t>(sizeof(float));
  struct stat status {};
  const bool regular = ::fstat(file_.get(), &status) == 0 && S_ISREG(status.st_mode);
  if (regular && status.st_size - KSSAC_HEADER_SIZE < bytes) {
    errno = 0;
    log_short_read(status.st_size - KSSAC_HEADER_SIZE, bytes);
    return false;
  }
  Samples data = regular ? read_whole(bytes) : read_growing(bytes);
  if (data == nullptr) return false;
  if (swapped_) swap_numbers(data.get(), static_cast<std::size_t>(count));
  take_samples(image, data.release(), count);
  return true;
}

/* Fills a new record from the open file. */
bool SacReader::read_record(KSSac &kssac) {
  char *const header = kssac.image->header;
  if (!read_header(header)) return false;
  if (either_order_ && integer_of(kssac, "NVHDR") != kVersion) {
    swap_numbers(header, kHeaderNumbers);
    swapped_ = integer_of(kssac, "NVHDR") == kVersion;
    if (!swapped_) swap_numbers(header, kHeaderNumbers);
  }
  std::int64_t version, file_type, count;
  if (kssac_gethdr_kssac(&kssac, "NVHDR", &version, "IFTYPE", &file_type, "NPTS",
                         &count, (char *)nullptr) != 0) {
    return fail(who_, "kssac_gethdr_kssac(%s) error", path_);
  }
  if (version != kVersion) {
    return fail(who_, "sac header version from %s, %ld, not supported", path_,
                static_cast<long>(version));
  }
  if (file_type != kTimeSeries || count < 1) return true;
  return read_samples(count, *kssac.image);
}

RecordPtr SacReader::read(const char *name) {
  file_ = ksutil::open_file(path_, O_RDONLY);
  if (!file_) return fail_errno(who_, "open(%s) error", path_);
  RecordPtr kssac = make_record(name);
  if (kssac == nullptr) return fail(who_, "kssac_create(%s) error", path_);
  return read_record(*kssac) ? std::move(kssac) : nullptr;
}

KSSac *read_file(const char *who, const char *path, bool either_order, const char *name,
                 char *tag) {
  Sacs::none(tag);
  RecordPtr kssac = read_record(who, path, either_order, name);
  return kssac == nullptr ? nullptr
                          : Sacs::publish("kssac_create", std::move(kssac), tag);
}

}  // namespace

RecordPtr ksutil::sac::read_record(const char *who, const char *path, bool either_order,
                                   const char *name) try {
  return SacReader(who, path == nullptr ? "" : path, either_order).read(name);
} catch (const std::bad_alloc &) {
  errno = ENOMEM;
  return fail_errno(who, "malloc(%s) error", path == nullptr ? "" : path);
}

KSSac *kssac_read_from_file_kssac(const char *path, const char *name, char *tag) {
  return read_file(kReader, path, false, name, tag);
}

KSSac *kssac_read_from_file_either_order(const char *path, const char *name,
                                         char *tag) {
  return read_file(kEitherReader, path, true, name, tag);
}

int kssac_write_to_file_kssac(KSSac *kssac, const char *path) try {
  if (path == nullptr) path = "";
  if (kssac == nullptr || kssac->image == nullptr || kssac->image->data == nullptr) {
    elog_log(0, "%s: No sac data samples to write.\n", kWriter);
    return -1;
  }
  const SacImage &image = *kssac->image;
  ksutil::FileHandle file = ksutil::open_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
  if (!file) {
    elog_log(1, "%s: open(%s) error.\n", kWriter, path);
    return -1;
  }
  ssize_t wrote = ksutil::write_all(file.get(), image.header, KSSAC_HEADER_SIZE);
  if (wrote != KSSAC_HEADER_SIZE) {
    elog_log(1,
             "%s: write(%s) error for header (wrote %ld bytes instead of %d bytes).\n",
             kWriter, path, static_cast<long>(wrote), KSSAC_HEADER_SIZE);
    return -1;
  }
  wrote = ksutil::write_all(file.get(), image.data,
                            static_cast<std::size_t>(image.data_bytes));
  if (wrote != image.data_bytes) {
    elog_log(
        1, "%s: write(%s) error for data (wrote %ld bytes instead of %ld bytes).\n",
        kWriter, path, static_cast<long>(wrote), static_cast<long>(image.data_bytes));
    return -1;
  }
  /* Network file systems report a full disk here.  After EINTR the descriptor is closed. */
  if (::close(file.release()) != 0 && errno != EINTR) {
    elog_log(1, "%s: close(%s) error.\n", kWriter, path);
    return -1;
  }
  return 0;
} catch (const std::bad_alloc &) {
  elog_log(1, "%s: malloc(%s) error.\n", kWriter, path);
  return -1;
}
