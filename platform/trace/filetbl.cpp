#include "platform/trace/filetbl.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/shared/tbl_storage.h"
#include "platform/trace/internal/list_file.h"

using namespace ksutil;

namespace {

/* FileStorage: keeps the elements of a list in a file and in memory. */
class FileStorage final : public TblStorage {
 public:
  FileStorage(std::unique_ptr<ListFile> file, const ListState &state,
              std::vector<std::uint8_t> elements, long maximum)
      : file_(std::move(file)),
        state_(state),
        elements_(std::move(elements)),
        maximum_(
            std::min(static_cast<std::uint64_t>(maximum), file_->kind().max_slots())) {
    if (state_.count > maximum_) {
      const std::uint64_t old = state_.count - maximum_;
      drop(old);
      state_ = without_first(old);
    }
    if (state_.count == 0) {
      state_.first = 0;
      state_.capacity = std::max(state_.capacity, maximum_);
    }
  }

  std::size_t element_size() const override { return file_->kind().element_size; }
  long count() const override { return static_cast<long>(state_.count); }
  void *at(long i) override {
    return elements_.data() + head_ + static_cast<std::size_t>(i) * element_size();
  }
  bool store(long i, const void *element) override;
  bool remove(long i) override;

  int fd() const { return file_->fd(); }
  long last_maximum() const { return static_cast<long>(state_.maximum); }

 private:
  ListState without_first(std::uint64_t entries) const;
  void drop(std::uint64_t entries);
  bool grow();
  bool commit(ListState next);

  const std::unique_ptr<ListFile> file_;
  ListState state_;  // as in the file, but for entries that were too many or lost
  std::vector<std::uint8_t> elements_;
  std::size_t head_ = 0;  // bytes of elements_ before the first entry
  const std::uint64_t maximum_;
};

ListState FileStorage::without_first(std::uint64_t entries) const {
  ListState state = state_;
  state.first = state_.slot(entries);
  state.sequence += entries;
  state.count -= entries;
  return state;
}

/* Takes the first entries out of memory. */
void FileStorage::drop(std::uint64_t entries) {
  head_ += static_cast<std::size_t>(entries) * element_size();
  if (head_ > elements_.size() / 2) {
    elements_.erase(elements_.begin(),
                    elements_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
}

bool FileStorage::commit(ListState next) {
  ++next.generation;
  next.maximum = maximum_;
  if (!file_->write_state(next)) return false;
  state_ = next;
  return true;
}

/* Enlarges a full ring.  Entries that have wrapped round to its beginning are copied behind
 * its end, which the present state does not use, before the new state is written. */
bool FileStorage::grow() {
  ListState next = state_;
  next.capacity = std::max(maximum_, state_.capacity + state_.first);
  if (next.capacity > file_->kind().max_slots()) {
    errno = EFBIG;
    return fail_errno("filetbl", "no room for more than %ld elements", count());
  }
  for (std::uint64_t i = state_.capacity - state_.first; i < state_.count; ++i) {
    const auto *const element =
        static_cast<const std::uint8_t *>(at(static_cast<long>(i)));
    if (!file_->write_entry(next, i, element)) return false;
  }
  return commit(next);
}

bool FileStorage::store(long i, const void *element) try {
  if (i != count() || state_.count >= maximum_) return false;
  if (state_.count == state_.capacity && !grow()) return false;
  const std::size_t size = element_size(), used = elements_.size();
  const auto *const bytes = static_cast<const std::uint8_t *>(element);
  if (!file_->write_entry(state_, state_.count, bytes)) return false;
  /* The element may lie in the block that growing replaces. */
  const std::vector<std::uint8_t> copy(bytes, bytes + size);
  elements_.insert(elements_.end(), copy.begin(), copy.end());
  ListState next = state_;
  ++next.count;
  if (commit(next)) return true;
  elements_.resize(used);
  return false;
} catch (const std::bad_alloc &) {
  return false;
}

bool FileStorage::remove(long i) {
  if (i != 0 && i != count() - 1) return false;
  ListState next = state_;
  if (i == 0) {
    next = without_first(1);
  } else {
    --next.count;
  }
  if (!commit(next)) return false;
  if (i == 0) {
    drop(1);
  } else {
    elements_.resize(elements_.size() - element_size());
  }
  return true;
}

FileStorage *file_storage(Tbl *table) {
  return dynamic_cast<FileStorage *>(tbl_storage(table));
}

/* False with a message. */
bool check_arguments(const char *who, const char *path, const char *tag,
                     int element_size) {
  if (path != nullptr && tag != nullptr && *tag != '\0' &&
      std::strlen(tag) < kListTagSize && element_size > 0) {
    return true;
  }
  errno = EINVAL;
  return fail(who, "needs a path, a tag of 1 to %zu characters and an element size",
              kListTagSize - 1);
}

/* make(), or null with a message when memory is short. */
template <class Make>
Tbl *made(const char *who, const Make &make) {
  try {
    return make();
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return fail_errno(who, "malloc() error");
  }
}

/* Reads entries that another program may be changing.  Entries that the other program drops
 * and overwrites during the read look lost: if the state has changed, reads again. */
bool load_steadily(ListFile &file, ListState &state,
                   std::vector<std::uint8_t> &elements) {
  constexpr int kTries = 1000;
  for (int i = 0; i < kTries; ++i) {
    const int mark = elog_mark();
    ListState before, after;
    if (!file.peek(before)) return false;
    const bool loaded = file.load(state, elements);
    if (loaded && file.complete()) return true;
    if (!file.peek(after)) return false;
    if (after.generation == before.generation) return loaded;
    elog_flush(0, mark);
  }
  return fail("filetbl_read", "the file changes too fast to be read");
}

}  // namespace

Tbl *filetbl(const char *path, const char *tag, long maxn, int element_size) {
  if (!check_arguments("filetbl", path, tag, element_size)) return nullptr;
  if (maxn < 1) {
    errno = EINVAL;
    return fail("filetbl", "the maximum of %s is %ld, not at least 1", path, maxn);
  }
  return made("filetbl", [&]() -> Tbl * {
    auto file = std::make_unique<ListFile>(
        "filetbl", path, ListKind{tag, static_cast<std::size_t>(element_size)});
    ListState state;
    std::vector<std::uint8_t> elements;
    if (!file->open_locked() || !file->load(state, elements)) return nullptr;
    std::unique_ptr<TblStorage> storage(new (std::nothrow) FileStorage(
        std::move(file), state, std::move(elements), maxn));
    Tbl *const table = tbl_with_storage(std::move(storage));
    if (table == nullptr) throw std::bad_alloc();
    return table;
  });
}

Tbl *filetbl_read(const char *path, const char *tag, int element_size) {
  if (!check_arguments("filetbl_read", path, tag, element_size)) return nullptr;
  return made("filetbl_read", [&]() -> Tbl * {
    ListFile file("filetbl_read", path,
                  ListKind{tag, static_cast<std::size_t>(element_size)});
    ListState state;
    std::vector<std::uint8_t> elements;
    if (!file.open_to_read() || !load_steadily(file, state, elements)) return nullptr;
    Tbl *const table = inittbl(static_cast<long>(state.count), element_size);
    if (table == nullptr) throw std::bad_alloc();
    const auto step = static_cast<std::size_t>(element_size);
    for (std::size_t at = 0; at < elements.size(); at += step) {
      pushtbl(table, &elements[at]);
    }
    return table;
  });
}

long filetbl_capacity(int element_size) {
  if (element_size < 1) return 0;
  const ListKind kind{"", static_cast<std::size_t>(element_size)};
  return static_cast<long>(kind.max_slots());
}

int filetbl_fd(Tbl *table) {
  const FileStorage *const storage = file_storage(table);
  return storage == nullptr ? -1 : storage->fd();
}

long filetbl_maximum(Tbl *table) {
  const FileStorage *const storage = file_storage(table);
  return storage == nullptr ? -1 : storage->last_maximum();
}
