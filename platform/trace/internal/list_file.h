/* ListFile: reads and writes a list file; see filetbl.h for its layout. */
#ifndef KSUTIL_PLATFORM_TRACE_INTERNAL_LIST_FILE_H
#define KSUTIL_PLATFORM_TRACE_INTERNAL_LIST_FILE_H

#include <optional>
#include <string>
#include <vector>

#include "platform/stock/files.h"
#include "platform/trace/internal/list_format.h"

namespace ksutil {

/* Failures are logged in the name of the function that was called, and keep errno. */
class ListFile {
 public:
  /* `who` must outlive the file. */
  ListFile(const char *who, std::string path, ListKind kind)
      : who_(who), path_(std::move(path)), kind_(std::move(kind)) {}
  ~ListFile();
  ListFile(const ListFile &) = delete;
  ListFile &operator=(const ListFile &) = delete;

  /* Opens the file for changes: makes it unless it exists, and locks it.  The child of a
   * fork closes its copy of the descriptor at once, so that the lock ends with this
   * process and not with the child. */
  bool open_locked();
  bool open_to_read();

  /* Reads the entries, or begins an empty file.  Entries at the ends that a power cut kept
   * from the disk are left out of the state. */
  bool load(ListState &state, std::vector<std::uint8_t> &elements);

  /* Whether the last load() found all entries. */
  bool complete() const { return complete_; }

  /* The state as it is in the file now. */
  bool peek(ListState &state);

  bool write_entry(const ListState &state, std::uint64_t i,
                   const std::uint8_t *element);
  bool write_state(const ListState &state);

  int fd() const { return file_.get(); }
  const ListKind &kind() const { return kind_; }

 private:
  friend class LockedFiles;

  bool check_regular();
  bool read_head(ListHead &head, std::size_t &size);
  bool begin(const ListHead &found, std::size_t size, bool &begun);
  bool load_entries(ListState &state, std::vector<std::uint8_t> &elements);
  bool present(const ListState &state, std::uint64_t &count);
  bool read(void *to, std::size_t bytes, std::uint64_t at);
  bool write(const void *from, std::size_t bytes, std::uint64_t at);
  std::uint64_t slot_offset(std::uint64_t slot) const {
    return kListSlotsAt + slot * kind_.slot_size();
  }
  bool refuse(const std::string &cause) const;
  bool fail(const char *call) const;

  const char *who_;
  const std::string path_;
  const ListKind kind_;
  FileHandle file_;
  std::optional<FileLock> lock_;
  std::vector<std::uint8_t> slot_;
  bool complete_ = false;
};

}  // namespace ksutil
#endif
