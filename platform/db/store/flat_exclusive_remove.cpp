/* flat_exclusive_remove: removes rows from a table file by a new file that takes the
 * place of the old one. */
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/db/store/internal/flat_exclusive.h"
#include "platform/db/store/internal/flat_replacement.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

constexpr const char *kRewritten = ".rewritten";  // of the name of the new file

/* Removes a file at the end of the scope unless it is kept. */
class Unlinker {
 public:
  explicit Unlinker(std::string path) : path_(std::move(path)) {}
  ~Unlinker() {
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  Unlinker(const Unlinker &) = delete;
  Unlinker &operator=(const Unlinker &) = delete;
  void keep() { path_.clear(); }

 private:
  std::string path_;
};

}  // namespace

void FlatExclusive::remove_leftover() {
  if (std::exchange(table_.leftover_removed_, true)) return;
  const std::string path = real_path(table_.file_.path);
  if (!path.empty()) ::unlink(hidden_name_beside(path, kRewritten).c_str());
}

/* Copies the whole records of the locked file, except those of the list. */
bool FlatExclusive::copy_without(const std::vector<long> &records, int to) {
  const auto length = static_cast<off_t>(table_.record_length());
  const off_t end = table_.file_.stamp.count * length;
  std::string piece;
  off_t from = 0;
  for (std::size_t next = 0; from < end;) {
    const off_t stop = next < records.size() ? records[next] * length : end;
    while (from < stop) {
      piece.resize(
          static_cast<std::size_t>(std::min<off_t>(stop - from, off_t{kPiece})));
      const auto bytes = static_cast<ssize_t>(piece.size());
      if (read_at(handle_.get(), piece.data(), piece.size(), from) != bytes) {
        return fail(1, "Cannot read the records");
      }
      if (write_all(to, piece.data(), piece.size()) != bytes) {
        return fail(1, "Cannot write the records that stay");
      }
      from += bytes;
    }
    if (next++ < records.size()) from += length;
  }
  return true;
}

bool FlatExclusive::remove(const std::vector<long> &records) {
  if (!prepare()) return false;
  if (records.front() < 0 || records.back() >= table_.file_.stamp.count) {
    return fail(0, "A record to be removed is not there");
  }
  struct stat before, after;
  const std::string path = real_path(table_.file_.path);
  if (path.empty() || ::fstat(handle_.get(), &before) != 0) {
    return fail(1, "Cannot look at the file");
  }
  const std::string beside = hidden_name_beside(path, kRewritten);
  /* A process may have been killed since remove_leftover. */
  ::unlink(beside.c_str());
  FileHandle fresh =
      open_file(beside, O_RDWR | O_CREAT | O_EXCL, before.st_mode & 0777);
  if (!fresh) return fail(1, "Cannot make a file beside it");
  Unlinker unlinker(beside);
  if (!take_owner_and_mode(fresh.get(), before)) {
    return fail(1, "Cannot set the permissions of the new file");
  }
  if (!copy_without(records, fresh.get())) return false;
  /* Programs that open the new file wait until this process has finished. */
  auto lock = std::make_unique<FileLock>(fresh.get());
  if (!lock->held()) return fail(1, "Cannot lock the new file");
  if (sync_file(fresh.get()) != 0) return fail(1, "Cannot bring the records to disk");

  if (!still_at_path()) return lost();
  if (::fstat(handle_.get(), &after) != 0 || after.st_size != before.st_size) {
    return fail(0, "Another program has changed the file without a lock");
  }
  std::swap(handle_, fresh);
  if (!move_time_forward() || (std::rename(beside.c_str(), path.c_str()) != 0 &&
                               !fail(1, "Cannot put the new file in its place"))) {
    std::swap(handle_, fresh);
    return false;
  }
  unlinker.keep();
  wrote_ = true;
  /* The old file is still open here: the release of its lock needs it. */
  lock_ = std::move(lock);
  const FileHandle directory =
      open_file(path.substr(0, path.rfind('/') + 1), O_RDONLY | O_DIRECTORY);
  if (directory) sync_file(directory.get());
  return true;
}

}  // namespace ksutil::db
