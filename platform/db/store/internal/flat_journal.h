/* FlatJournal: the file that makes changes of several table files one step.
 *
 * A transaction writes all its changes into path/name.journal first, commits the journal
 * with one byte, and only then changes the table files ("publishes").  A process that dies
 *   before the commit   has changed no table: the journal is removed;
 *   after the commit    has changed some: the next process finishes the publication.
 * When publishing fails (a full disk), the state byte is set back to kUndo first and the
 * tables are restored from the journal; when the process dies meanwhile, the next one
 * restores the rest.  Files that take the place of a table file are renamed after all other
 * changes: once the first one is in its place, the publication can only be finished.
 *
 * Rules that make this safe:
 *   - The journal's owner holds its file lock from creation to removal; a journal whose
 *     lock is free was left behind by a dead process.
 *   - The owner locks its tables before it creates the journal, never waits for the
 *     journal while it holds them, and unlocks them after it has removed the journal.
 *   - Every writer looks for the journal after it has locked a table.  When the journal
 *     concerns that table, the writer unlocks it, settles the journal, and starts again.
 *
 * Bytes: Head, then for each table a TableHead and its name, then chunks, each a ChunkHead
 * with its bytes.  Numbers are those of the machine.  Each chunk has a checksum, so that a
 * journal which a loss of power has torn is not applied. */
#ifndef KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_JOURNAL_H
#define KSUTIL_PLATFORM_DB_STORE_INTERNAL_FLAT_JOURNAL_H

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/files.h"

namespace ksutil::db {

/* Where a database's files are: table T is at the first prefix + "." + T that exists, or
 * will be made at the first. */
struct FlatPlaces {
  std::string name;                   // path of the descriptor
  std::vector<std::string> prefixes;  // at least one
  bool sync = false;                  // synchronise each step with the disk
  std::string journal() const { return name + ".journal"; }
  std::string path_of(const std::string &table) const;
};

/* A table as the transaction found it. */
struct JournalTable {
  std::string name;
  std::int64_t size = 0;           // bytes before the transaction
  std::int64_t record_length = 0;  // with the newline
  bool existed = false;
  std::int64_t added = 0;  // bytes that the journal's chunks append; counted by it
  /* Bytes of the FlatReplacement that takes the place of the file; -1: none. */
  std::int64_t replacement = -1;
};

class FlatJournal {
 public:
  /* kAppend: bytes that belong at `at` of the table file.  kReplace: for each row its
   * place in the file (8 bytes), its old bytes and its new bytes.  kExchange: a
   * FlatReplacement of `at` bytes takes the place of the file; no bytes. */
  enum Kind : std::uint32_t { kAppend = 1, kReplace = 2, kExchange = 3 };
  struct Chunk {
    std::uint32_t table;
    Kind kind;
    std::int64_t at;      // in the table file; 0 for kReplace; see kExchange
    std::int64_t offset;  // of the bytes, in the journal
    std::int64_t bytes;
  };

  static constexpr std::int64_t kMaxChunk = std::int64_t{4} << 20;  // bytes

  explicit FlatJournal(FlatPlaces places) : places_(std::move(places)) {}

  /* Creates and locks the journal.  kBusy: another process has one, or has left one
   * behind; settle it.  kFailed with a message. */
  enum class Created { kYes, kBusy, kFailed };
  Created create(const std::vector<JournalTable> &tables);

  /* Adds a chunk; false with a message. */
  bool add(std::uint32_t table, Kind kind, std::int64_t at, std::string_view bytes);
  /* From here on the changes will be made, by this process or the next. */
  bool commit();
  /* From here on the changes will be undone. */
  bool revert();
  /* Removes the journal: the end of the transaction. */
  bool remove();

  /* Gives each stretch of a table file that the journal changes, in file order of the
   * chunks (for the old bytes: in reverse), as (place, bytes); false as soon as `write`
   * gives false or, with a message, when the journal cannot be read.  The old bytes are
   * those of replaced rows only. */
  using Write = std::function<bool(std::int64_t at, std::string_view bytes)>;
  bool new_bytes(std::uint32_t table, const Write &write) const;
  bool old_bytes(std::uint32_t table, const Write &write) const;

  /* Finishes or removes the journal that a dead process left.
   *   kNone     there is none, or none any more
   *   kBusy     a living process owns it, or a table of it, and this thread does not wait:
   *             `wait` is kNever, or it has a WriteAttempt, which is told.  Also when this
   *             process may not write it and `wait` is kNever.  A message of dbopen tells
   *             when a dead process has left it with changes that are only partly made
   *   kFailed   it cannot be applied; with a message.  It stays for the next attempt. */
  enum class Settled { kNone, kBusy, kFailed };
  static Settled settle(const FlatPlaces &places, FileLock::Wait wait);

  /* Whether there is a journal whose changes concern the table, which the caller has
   * locked.  Costs one system call when there is none. */
  static bool concerns(const FlatPlaces &places, const std::string &table);

 private:
  enum State : char { kStaging = 'S', kCommitted = 'C', kUndo = 'U' };
  struct Head {
    char magic[8];
    char state;
    char reserved[7];
    std::int64_t length;  // of the whole journal; 0 until it is committed
    std::int64_t tables;
    std::uint64_t checksum;  // of the heads of the tables
  };
  struct TableHead {
    std::int64_t size, record_length;
    std::uint32_t existed, name_length;
  };
  struct ChunkHead {
    std::uint32_t table, kind;
    std::int64_t at, bytes;
    std::uint64_t checksum;
  };
  static std::uint64_t checksum(ChunkHead head, std::string_view bytes);

  bool fail(int flag, const char *what) const;
  bool append(const void *bytes, std::size_t size);
  bool set_state(State state);
  /* Whether the journal's name means the open file; if not, errno is ENOENT when it means
   * another file or none, else the cause. */
  bool at_path() const;
  /* Registers that a journal which may only be read waits to be finished or undone, unless
   * a living process owns it. */
  void tell_unfinished(const std::string &path);
  /* Reads a journal; false when its bytes are not those of a whole journal. */
  bool read_tables(Head &head);
  bool read_chunks(const Head &head);
  bool read_chunk(const Chunk &chunk, std::string &bytes) const;
  Settled apply(State state, FileLock::Wait wait);
  bool change_all(State state, const std::vector<FileHandle> &files);
  Settled lock_tables(std::vector<FileHandle> &files, std::deque<FileLock> &locks,
                      FileLock::Wait wait) const;
  bool fits(const std::vector<FileHandle> &files) const;
  bool all_in_place(const std::vector<FileHandle> &files) const;
  bool redo(const FileHandle &file, std::uint32_t table) const;
  bool undo(const FileHandle &file, std::uint32_t table) const;
  bool change(const FileHandle &file, std::uint32_t table, State state) const;
  bool put_replacements_in_place() const;
  void remove_replacements() const;

  FlatPlaces places_;
  FileHandle file_;
  std::optional<FileLock> lock_;
  std::vector<JournalTable> tables_;
  std::vector<Chunk> chunks_;
  std::int64_t length_ = 0;
};

/* Writes all bytes at an offset of a file; false with errno set. */
bool write_whole(int fd, std::string_view bytes, std::int64_t at);

}  // namespace ksutil::db
#endif
