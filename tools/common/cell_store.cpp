#include "tools/common/cell_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <stdexcept>

namespace ksutil::tools {
namespace {

/* A file that has no name any more; empty when there can be none. */
FileHandle nameless_file() {
  const char *const folder = std::getenv("TMPDIR");
  std::string path = folder != nullptr && *folder != '\0' ? folder : "/tmp";
  path += "/ksutil-XXXXXX";
  FileHandle file(::mkostemp(path.data(), O_CLOEXEC));
  if (file) ::unlink(path.c_str());
  return file;
}

}  // namespace

void CellStore::add(const std::vector<std::string> &cells) {
  for (const std::string &cell : cells) {
    const auto length = static_cast<std::uint32_t>(cell.size());
    char front[sizeof length];
    std::memcpy(front, &length, sizeof length);
    rows_.append(front, sizeof front);
    rows_ += cell;
  }
  if (rows_.size() > bytes_ && !file_failed_ && spill()) rows_.clear();
}

bool CellStore::spill() {
  if (!file_) file_ = nameless_file();
  const off_t end = std::accumulate(
      written_.begin(), written_.end(), off_t{0},
      [](off_t sum, std::size_t size) { return sum + static_cast<off_t>(size); });
  if (!file_ || write_at(file_.get(), rows_.data(), rows_.size(), end) !=
                    static_cast<ssize_t>(rows_.size())) {
    file_failed_ = true;
    return false;
  }
  written_.push_back(rows_.size());
  return true;
}

/* Reads the row at a place of a piece: the place behind it. */
const char *CellStore::take(const char *at, std::vector<std::string> &cells) const {
  cells.resize(columns_);
  for (std::string &cell : cells) {
    std::uint32_t length = 0;
    std::memcpy(&length, at, sizeof length);
    at += sizeof length;
    cell.assign(at, length);
    at += length;
  }
  return at;
}

void CellStore::each(
    const std::function<void(const std::vector<std::string> &)> &visit) const {
  std::vector<std::string> cells;
  std::string piece;
  off_t start = 0;
  for (const std::size_t size : written_) {
    piece.resize(size);
    if (read_at(file_.get(), piece.data(), size, start) != static_cast<ssize_t>(size)) {
      throw std::runtime_error(std::string("cannot read a temporary file: ") +
                               std::strerror(errno));
    }
    start += static_cast<off_t>(size);
    for (const char *at = piece.data(); at != piece.data() + size;) {
      at = take(at, cells);
      visit(cells);
    }
  }
  for (const char *at = rows_.data(); at != rows_.data() + rows_.size();) {
    at = take(at, cells);
    visit(cells);
  }
}

}  // namespace ksutil::tools
