#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <new>

#include "formats/sac/internal/sac_header.h"
#include "formats/sac/internal/sac_record.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"

using namespace ksutil::sac;

namespace {

constexpr const char *kReader = "kssac_read_from_file_kssac";
constexpr const char *kWriter = "kssac_write_to_file_kssac";

void log_short_read(const char *path, ssize_t got, std::int64_t wanted) {
  elog_log(1, "%s: read(%s) error for data (read %ld bytes instead of %ld bytes).\n",
           kReader, path, static_cast<long>(got), static_cast<long>(wanted));
}

void log_no_memory(std::int64_t bytes) {
  elog_log(1, "%s: malloc(data,%ld) error.\n", kReader, static_cast<long>(bytes));
}

bool read_header(int fd, const char *path, char *header) {
  const ssize_t got = ksutil::read_all(fd, header, KSSAC_HEADER_SIZE);
  if (got == KSSAC_HEADER_SIZE) return true;
  elog_log(1, "%s: read(%s) error for header (read %ld bytes instead of %d bytes).\n",
           kReader, path, static_cast<long>(got), KSSAC_HEADER_SIZE);
  return false;
}

using Samples = ksutil::MallocPtr<float>;

/* `bytes` bytes of samples at once, of a file that is known to have them. */
Samples read_whole(int fd, const char *path, std::int64_t bytes) {
  Samples data(static_cast<float *>(ks_malloc(static_cast<std::size_t>(bytes))));
  if (data == nullptr) {
    log_no_memory(bytes);
    return nullptr;
  }
  const ssize_t got = ksutil::read_all(fd, data.get(), static_cast<std::size_t>(bytes));
  if (got == bytes) return data;
  log_short_read(path, got, bytes);
  return nullptr;
}

/* The same from a pipe or a device, whose length only reading tells: memory grows with
 * what has come. */
Samples read_growing(int fd, const char *path, std::int64_t bytes) {
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
        ksutil::read_all(fd, reinterpret_cast<char *>(data.get()) + done,
                         static_cast<std::size_t>(part));
    if (got != part) {
      log_short_read(path, done + std::max<ssize_t>(got, 0), bytes);
      return nullptr;
    }
    done = room;
  }
  return data;
}

bool read_samples(int fd, const char *path, std::int64_t count, SacImage &image) {
  const std::int64_t bytes = count * static_cast<std::int64_t>(sizeof(float));
  struct stat status {};
  const bool regular = ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
  if (regular && status.st_size - KSSAC_HEADER_SIZE < bytes) {
    errno = 0;
    log_short_read(path, status.st_size - KSSAC_HEADER_SIZE, bytes);
    return false;
  }
  Samples data = regular ? read_whole(fd, path, bytes) : read_growing(fd, path, bytes);
  if (data == nullptr) return false;
  take_samples(image, data.release(), count);
  return true;
}

/* Fills a new record from an open file. */
bool read_record(int fd, const char *path, KSSac *kssac) {
  if (!read_header(fd, path, kssac->image->header)) return false;
  std::int64_t version, file_type, count;
  if (kssac_gethdr_kssac(kssac, "NVHDR", &version, "IFTYPE", &file_type, "NPTS", &count,
                         (char *)nullptr) != 0) {
    elog_log(0, "%s: kssac_gethdr_kssac(%s) error.\n", kReader, path);
    return false;
  }
  if (version != kVersion) {
    elog_log(0, "%s: sac header version from %s, %ld, not supported.\n", kReader, path,
             static_cast<long>(version));
    return false;
  }
  if (file_type != kTimeSeries || count < 1) return true;
  return read_samples(fd, path, count, *kssac->image);
}

}  // namespace

KSSac *kssac_read_from_file_kssac(const char *path, const char *name, char *tag) try {
  if (tag != nullptr) *tag = '\0';
  if (path == nullptr) path = "";
  const ksutil::FileHandle file = ksutil::open_file(path, O_RDONLY);
  if (!file) {
    elog_log(1, "%s: open(%s) error.\n", kReader, path);
    return nullptr;
  }
  RecordPtr kssac = make_record(name);
  if (kssac == nullptr) {
    elog_log(0, "%s: kssac_create(%s) error.\n", kReader, path);
    return nullptr;
  }
  if (!read_record(file.get(), path, kssac.get())) return nullptr;
  if (!register_record(kssac.get(), tag)) return nullptr;
  return kssac.release();
} catch (const std::bad_alloc &) {
  elog_log(1, "%s: malloc(%s) error.\n", kReader, path);
  return nullptr;
}

int kssac_write_to_file_kssac(KSSac *kssac, const char *path) try {
  if (path == nullptr) path = "";
  if (kssac == nullptr || kssac->image == nullptr || kssac->image->data == nullptr) {
    elog_log(0, "%s: No sac data samples to write.\n", kWriter);
    return -1;
  }
  const SacImage &image = *kssac->image;
  const ksutil::FileHandle file =
      ksutil::open_file(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
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
  return 0;
} catch (const std::bad_alloc &) {
  elog_log(1, "%s: malloc(%s) error.\n", kWriter, path);
  return -1;
}
