#include "platform/db/store/internal/flat_journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>

#include "platform/db/store/internal/flat_replacement.h"
#include "platform/db/write_attempt.h"
#include "platform/elog/elog.h"

namespace ksutil::db {
namespace {

constexpr char kMagic[8] = {'k', 's', 'j', 'r', 'n', 'l', '1', '\n'};
constexpr const char *kUnseen = "Cannot look at the journal";
constexpr const char *kDamaged =
    "The journal of an interrupted import is damaged; move it away and verify the "
    "database";
constexpr std::int64_t kMaxTables = 1000;
constexpr std::uint32_t kMaxTableName = 256;
constexpr std::int64_t kMaxRecord = 1 << 20;
constexpr std::size_t kPlaceBytes = sizeof(std::int64_t);

bool read_whole(int fd, void *to, std::size_t bytes, std::int64_t at) {
  return read_at(fd, to, bytes, at) == static_cast<ssize_t>(bytes);
}

std::int64_t size_of(const FileHandle &file) {
  struct stat status;
  return ::fstat(file.get(), &status) == 0 ? status.st_size : -1;
}

/* Whether a process holds the lock of the file, or that cannot be known. */
bool is_locked(const FileHandle &file) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return ::fcntl(file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

/* The rows of a kReplace chunk. */
struct ReplacedRow {
  std::int64_t at;
  std::string_view old_bytes, new_bytes;
};

ReplacedRow replaced_row(std::string_view bytes, std::size_t index,
                         std::size_t length) {
  const std::size_t from = index * (kPlaceBytes + 2 * length);
  ReplacedRow row{0, bytes.substr(from + kPlaceBytes, length),
                  bytes.substr(from + kPlaceBytes + length, length)};
  std::memcpy(&row.at, bytes.data() + from, kPlaceBytes);
  return row;
}

/* How to wait for a lock on a thread that may have a WriteAttempt. */
FileLock::Wait patience_of(FileLock::Wait wait) {
  return WriteAttempt::current() == nullptr ? wait : FileLock::Wait::kNever;
}

/* Whether a lock of a file was not had because somebody else holds it, which a writer's
 * attempt is told. */
bool is_taken(FileLock::Wait wait, const std::string &path) {
  if (errno != EAGAIN && errno != EACCES) return false;
  WriteAttempt *const attempt = WriteAttempt::current();
  if (attempt != nullptr && wait == FileLock::Wait::kUntilFree) attempt->fail_at(path);
  return true;
}

}  // namespace

bool write_whole(int fd, std::string_view bytes, std::int64_t at) {
  return write_at(fd, bytes.data(), bytes.size(), at) ==
         static_cast<ssize_t>(bytes.size());
}

std::string FlatPlaces::path_of(const std::string &table) const {
  for (const std::string &prefix : prefixes) {
    const std::string path = prefix + "." + table;
    if (::access(path.c_str(), F_OK) == 0) return path;
  }
  return prefixes.front() + "." + table;
}

bool FlatJournal::fail(int flag, const char *what) const {
  elog_log(flag, "dbput: %s: %s.\n", places_.journal().c_str(), what);
  return false;
}

/* Eight bytes at a time: the checksum must notice torn pages; it need not resist an
 * attack. */
std::uint64_t FlatJournal::checksum(ChunkHead head, std::string_view bytes) {
  constexpr std::uint64_t kPrime = 0x9e3779b97f4a7c15U;
  std::uint64_t sum = kPrime;
  const auto mix = [&sum](std::uint64_t word) {
    sum = (sum ^ word) * kPrime;
    sum ^= sum >> 29;
  };
  mix(std::uint64_t{head.table} << 32 | head.kind);
  mix(static_cast<std::uint64_t>(head.at));
  mix(bytes.size());
  for (std::size_t at = 0; at < bytes.size(); at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data() + at, std::min<std::size_t>(8, bytes.size() - at));
    mix(word);
  }
  return sum;
}

bool FlatJournal::at_path() const {
  struct stat opened, named;
  if (::fstat(file_.get(), &opened) != 0 ||
      ::stat(places_.journal().c_str(), &named) != 0) {
    return false;
  }
  errno = ENOENT;
  return same_file(opened, named);
}

bool FlatJournal::append(const void *bytes, std::size_t size) {
  if (!write_whole(file_.get(), {static_cast<const char *>(bytes), size}, length_)) {
    return fail(1, "Cannot write");
  }
  length_ += static_cast<std::int64_t>(size);
  return true;
}

FlatJournal::Created FlatJournal::create(const std::vector<JournalTable> &tables) {
  file_ = open_file(places_.journal(), O_RDWR | O_CREAT | O_EXCL);
  if (!file_) {
    if (errno == EEXIST) return Created::kBusy;
    fail(1, "Cannot make the journal");
    return Created::kFailed;
  }
  lock_.emplace(file_.get());
  if (!lock_->held()) {
    fail(1, "Cannot lock");
    ::unlink(places_.journal().c_str());
    return Created::kFailed;
  }
  if (!at_path()) {
    const bool removed = errno == ENOENT;
    if (!removed) fail(1, kUnseen);
    /* The next attempt would wait for this lock. */
    lock_.reset();
    file_.reset();
    /* Another process may have removed the empty file, taking it for one left behind. */
    return removed ? Created::kBusy : Created::kFailed;
  }
  tables_ = tables;
  Head head = {};
  std::memcpy(head.magic, kMagic, sizeof kMagic);
  head.state = kStaging;
  head.tables = static_cast<std::int64_t>(tables.size());
  std::string entries;
  for (const JournalTable &table : tables) {
    const TableHead entry{table.size, table.record_length, table.existed ? 1U : 0U,
                          static_cast<std::uint32_t>(table.name.size())};
    entries.append(reinterpret_cast<const char *>(&entry), sizeof entry);
    entries += table.name;
  }
  head.checksum = checksum({}, entries);
  entries.insert(0, reinterpret_cast<const char *>(&head), sizeof head);
  if (append(entries.data(), entries.size())) return Created::kYes;
  remove();
  return Created::kFailed;
}

bool FlatJournal::add(std::uint32_t table, Kind kind, std::int64_t at,
                      std::string_view bytes) {
  ChunkHead head{table, kind, at, static_cast<std::int64_t>(bytes.size()), 0};
  head.checksum = checksum(head, bytes);
  if (!append(&head, sizeof head)) return false;
  chunks_.push_back({table, kind, at, length_, head.bytes});
  if (!append(bytes.data(), bytes.size())) return false;
  if (kind == kAppend) tables_[table].added += head.bytes;
  if (kind == kExchange) tables_[table].replacement = at;
  return true;
}

bool FlatJournal::set_state(State state) {
  const char byte = state;
  if (!write_whole(file_.get(), {&byte, 1}, offsetof(Head, state))) {
    return fail(1, "Cannot write");
  }
  return !places_.sync || sync_file(file_.get()) == 0 ||
         fail(1, "Cannot bring the journal to disk");
}

bool FlatJournal::commit() {
  const std::string_view length(reinterpret_cast<const char *>(&length_),
                                sizeof length_);
  if (!write_whole(file_.get(), length, offsetof(Head, length))) {
    return fail(1, "Cannot write");
  }
  if (places_.sync) {
    /* The name of the new file is data of its directory. */
    const std::string path = places_.journal();
    const std::size_t slash = path.rfind('/');
    const FileHandle directory = open_file(
        slash == path.npos ? "." : path.substr(0, slash + 1), O_RDONLY | O_DIRECTORY);
    if (sync_file(file_.get()) != 0 || !directory || sync_file(directory.get()) != 0) {
      return fail(1, "Cannot bring the journal to disk");
    }
  }
  return set_state(kCommitted);
}

bool FlatJournal::revert() { return set_state(kUndo); }

bool FlatJournal::remove() {
  const bool removed = ::unlink(places_.journal().c_str()) == 0 || errno == ENOENT;
  if (!removed) fail(1, "Cannot remove the journal");
  lock_.reset();
  file_.reset();
  return removed;
}

bool FlatJournal::read_chunk(const Chunk &chunk, std::string &bytes) const {
  bytes.resize(static_cast<std::size_t>(chunk.bytes));
  return read_whole(file_.get(), bytes.data(), bytes.size(), chunk.offset) ||
         fail(1, "Cannot read");
}

/* Gives rows that follow each other in the file in one call. */
bool FlatJournal::new_bytes(std::uint32_t table, const Write &write) const {
  const auto length = static_cast<std::size_t>(tables_[table].record_length);
  std::string bytes, run;
  for (const Chunk &chunk : chunks_) {
    if (chunk.table != table || chunk.kind == kExchange) continue;
    if (!read_chunk(chunk, bytes)) return false;
    if (chunk.kind == kAppend) {
      if (!write(chunk.at, bytes)) return false;
      continue;
    }
    std::int64_t run_at = 0;
    run.clear();
    for (std::size_t i = 0; i < bytes.size() / (kPlaceBytes + 2 * length); ++i) {
      const ReplacedRow row = replaced_row(bytes, i, length);
      if (!run.empty() && row.at != run_at + static_cast<std::int64_t>(run.size())) {
        if (!write(run_at, run)) return false;
        run.clear();
      }
      if (run.empty()) run_at = row.at;
      run += row.new_bytes;
    }
    if (!run.empty() && !write(run_at, run)) return false;
  }
  return true;
}

bool FlatJournal::old_bytes(std::uint32_t table, const Write &write) const {
  const auto length = static_cast<std::size_t>(tables_[table].record_length);
  std::string bytes;
  for (auto chunk = chunks_.rbegin(); chunk != chunks_.rend(); ++chunk) {
    if (chunk->table != table || chunk->kind != kReplace) continue;
    if (!read_chunk(*chunk, bytes)) return false;
    for (std::size_t i = bytes.size() / (kPlaceBytes + 2 * length); i-- > 0;) {
      const ReplacedRow row = replaced_row(bytes, i, length);
      if (!write(row.at, row.old_bytes)) return false;
    }
  }
  return true;
}

bool FlatJournal::read_tables(Head &head) {
  if (!read_whole(file_.get(), &head, sizeof head, 0) ||
      std::memcmp(head.magic, kMagic, sizeof kMagic) != 0 || head.tables < 0 ||
      head.tables > kMaxTables) {
    return false;
  }
  length_ = sizeof head;
  for (std::int64_t i = 0; i < head.tables; ++i) {
    TableHead entry;
    if (!read_whole(file_.get(), &entry, sizeof entry, length_) ||
        entry.name_length == 0 || entry.name_length > kMaxTableName || entry.size < 0 ||
        entry.record_length < 2 || entry.record_length > kMaxRecord) {
      return false;
    }
    length_ += sizeof entry;
    JournalTable table{std::string(entry.name_length, '\0'), entry.size,
                       entry.record_length, entry.existed != 0};
    if (!read_whole(file_.get(), table.name.data(), table.name.size(), length_) ||
        table.name.find('/') != table.name.npos) {
      return false;
    }
    length_ += entry.name_length;
    tables_.push_back(std::move(table));
  }
  std::string entries(static_cast<std::size_t>(length_) - sizeof head, '\0');
  return read_whole(file_.get(), entries.data(), entries.size(), sizeof head) &&
         checksum({}, entries) == head.checksum;
}

bool FlatJournal::read_chunks(const Head &head) {
  if (head.length != size_of(file_)) return false;
  std::string bytes;
  while (length_ < head.length) {
    ChunkHead entry;
    if (!read_whole(file_.get(), &entry, sizeof entry, length_)) return false;
    length_ += sizeof entry;
    if (entry.table >= tables_.size() || entry.at < 0 || entry.bytes < 0 ||
        entry.bytes > kMaxChunk || entry.bytes > head.length - length_) {
      return false;
    }
    JournalTable &table = tables_[entry.table];
    const std::int64_t row =
        static_cast<std::int64_t>(kPlaceBytes) + 2 * table.record_length;
    const bool whole = entry.kind == kAppend ? entry.at == table.size + table.added
                       : entry.kind == kReplace
                           ? entry.bytes % row == 0
                           : entry.kind == kExchange && entry.bytes == 0;
    const Chunk chunk{entry.table, static_cast<Kind>(entry.kind), entry.at, length_,
                      entry.bytes};
    if (!whole || !read_chunk(chunk, bytes) ||
        checksum(entry, bytes) != entry.checksum) {
      return false;
    }
    chunks_.push_back(chunk);
    if (entry.kind == kAppend) table.added += entry.bytes;
    if (entry.kind == kExchange) table.replacement = entry.at;
    length_ += entry.bytes;
  }
  return true;
}

/* The order matters: a process that ends its step while this one looks has removed the
 * journal before it gives up the lock. */
void FlatJournal::tell_unfinished(const std::string &path) {
  file_ = open_file(path, O_RDONLY);
  Head head = {};
  if (!file_ || !read_whole(file_.get(), &head, sizeof head, 0) ||
      std::memcmp(head.magic, kMagic, sizeof kMagic) != 0 ||
      (head.state != kCommitted && head.state != kUndo) || is_locked(file_) ||
      !at_path()) {
    return;
  }
  elog_log(0,
           "dbopen: %s: an interrupted change is not finished; open the database with "
           "permission to write.\n",
           places_.name.c_str());
}

FlatJournal::Settled FlatJournal::settle(const FlatPlaces &places,
                                         FileLock::Wait wait) {
  const FileLock::Wait patience = patience_of(wait);
  for (;;) {
    FlatJournal journal(places);
    const std::string path = places.journal();
    if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT) return Settled::kNone;
    journal.file_ = open_file(path, O_RDWR);
    if (!journal.file_) {
      if (errno == ENOENT) return Settled::kNone;
      if (wait == FileLock::Wait::kNever && (errno == EACCES || errno == EROFS)) {
        journal.tell_unfinished(path);
        return Settled::kBusy;
      }
      journal.fail(1, "Cannot open the journal that an interrupted import left");
      return Settled::kFailed;
    }
    journal.lock_.emplace(journal.file_.get(), patience);
    if (!journal.lock_->held()) {
      if (is_taken(wait, path)) return Settled::kBusy;
      journal.fail(1, "Cannot lock");
      return Settled::kFailed;
    }
    if (!journal.at_path()) {
      if (errno == ENOENT) continue;
      journal.fail(1, kUnseen);
      return Settled::kFailed;
    }
    const std::int64_t size = size_of(journal.file_);
    Head head = {};
    const bool read = journal.read_tables(head);
    /* A process that died early has left only the beginning of a journal. */
    const std::size_t begun = std::min(sizeof kMagic, static_cast<std::size_t>(size));
    if (!read && std::memcmp(head.magic, kMagic, begun) != 0) {
      journal.fail(0, "This is not a journal of changes; move it away");
      return Settled::kFailed;
    }
    const bool acts = head.state == kCommitted || head.state == kUndo;
    if (!read && acts) {
      journal.fail(0, kDamaged);
      return Settled::kFailed;
    }
    if (!read || head.state == kStaging) {
      if (read) journal.remove_replacements();
      return journal.remove() ? Settled::kNone : Settled::kFailed;
    }
    if (!acts || !journal.read_chunks(head)) {
      journal.fail(0, kDamaged);
      return Settled::kFailed;
    }
    const Settled settled = journal.apply(static_cast<State>(head.state), wait);
    if (settled != Settled::kNone) return settled;
    return journal.remove() ? Settled::kNone : Settled::kFailed;
  }
}

bool FlatJournal::concerns(const FlatPlaces &places, const std::string &table) {
  const std::string path = places.journal();
  if (::access(path.c_str(), F_OK) != 0) return false;
  FlatJournal journal(places);
  journal.file_ = open_file(path, O_RDONLY);
  /* A journal that cannot be read may concern any table. */
  if (!journal.file_) return errno != ENOENT;
  Head head = {};
  /* A journal without its tables has not changed any. */
  if (!journal.read_tables(head)) return false;
  return std::any_of(journal.tables_.begin(), journal.tables_.end(),
                     [&](const JournalTable &entry) { return entry.name == table; });
}

/* Opens and locks the table files, as writers do. */
FlatJournal::Settled FlatJournal::lock_tables(std::vector<FileHandle> &files,
                                              std::deque<FileLock> &locks,
                                              FileLock::Wait wait) const {
  for (const JournalTable &table : tables_) {
    const std::string path = places_.path_of(table.name);
    files.push_back(open_file(path, table.existed ? O_RDWR : O_RDWR | O_CREAT));
    if (!files.back()) {
      elog_log(1, "dbput: %s: Cannot open for an interrupted import.\n", path.c_str());
      return Settled::kFailed;
    }
    locks.emplace_back(files.back().get(), patience_of(wait));
    if (locks.back().held()) continue;
    if (!is_taken(wait, path)) {
      fail(1, "Cannot lock a table");
      return Settled::kFailed;
    }
    if (wait == FileLock::Wait::kNever) {
      elog_log(
          0,
          "dbopen: %s: an interrupted change is not finished while another program "
          "holds the lock of %s.\n",
          places_.name.c_str(), table.name.c_str());
    }
    return Settled::kBusy;
  }
  return Settled::kNone;
}

/* Whether the files are as the dead process left them, as far as their sizes show. */
bool FlatJournal::fits(const std::vector<FileHandle> &files) const {
  for (std::size_t i = 0; i < files.size(); ++i) {
    const std::int64_t size = size_of(files[i]);
    if (tables_[i].replacement >= 0) {
      if (size != tables_[i].size && size != tables_[i].replacement) return false;
      continue;
    }
    if (size < tables_[i].size || size > tables_[i].size + tables_[i].added)
      return false;
  }
  return true;
}

bool FlatJournal::all_in_place(const std::vector<FileHandle> &files) const {
  std::string found;
  for (std::uint32_t i = 0; i < files.size(); ++i) {
    const std::int64_t replacement = tables_[i].replacement;
    if (replacement >= 0 && size_of(files[i]) != replacement) return false;
    const bool same = new_bytes(i, [&](std::int64_t at, std::string_view bytes) {
      found.resize(bytes.size());
      return read_whole(files[i].get(), found.data(), found.size(), at) &&
             found == bytes;
    });
    if (!same) return false;
  }
  return true;
}

bool FlatJournal::redo(const FileHandle &file, std::uint32_t table) const {
  return new_bytes(table, [&](std::int64_t at, std::string_view bytes) {
    return write_whole(file.get(), bytes, at);
  });
}

bool FlatJournal::undo(const FileHandle &file, std::uint32_t table) const {
  return old_bytes(table,
                   [&](std::int64_t at, std::string_view bytes) {
                     return write_whole(file.get(), bytes, at);
                   }) &&
         truncate_file(file.get(), tables_[table].size) == 0;
}

bool FlatJournal::put_replacements_in_place() const {
  return std::all_of(tables_.begin(), tables_.end(), [&](const JournalTable &table) {
    return table.replacement < 0 ||
           FlatReplacement::finish_for(places_.path_of(table.name), table.replacement);
  });
}

void FlatJournal::remove_replacements() const {
  for (const JournalTable &table : tables_) {
    FlatReplacement::remove_for(places_.path_of(table.name));
  }
}

/* Makes or undoes the changes of one table file. */
bool FlatJournal::change(const FileHandle &file, std::uint32_t table,
                         State state) const {
  if (tables_[table].replacement >= 0) return true;
  const bool changed = state == kCommitted ? redo(file, table) : undo(file, table);
  return changed && ::futimens(file.get(), nullptr) == 0 &&
         (!places_.sync || sync_file(file.get()) == 0);
}

FlatJournal::Settled FlatJournal::apply(State state, FileLock::Wait wait) {
  std::vector<FileHandle> files;
  std::deque<FileLock> locks;
  const Settled locked = lock_tables(files, locks, wait);
  if (locked != Settled::kNone) return locked;
  return change_all(state, files) ? Settled::kNone : Settled::kFailed;
}

bool FlatJournal::change_all(State state, const std::vector<FileHandle> &files) {
  if (!fits(files)) {
    if (state == kCommitted && all_in_place(files)) return put_replacements_in_place();
    return fail(0,
                "An interrupted import cannot be finished: its tables have changed "
                "since; move the journal away and verify the database");
  }
  const bool forward = state == kCommitted;
  for (std::uint32_t step = 0; step < files.size(); ++step) {
    const auto table =
        forward ? step : static_cast<std::uint32_t>(files.size()) - 1 - step;
    const FileHandle &file = files[table];
    if (!change(file, table, state)) {
      return fail(1, "Cannot finish an interrupted import");
    }
    const bool replaced = forward && tables_[table].replacement >= 0;
    if (!replaced && size_of(file) == 0 && !tables_[table].existed) {
      ::unlink(places_.path_of(tables_[table].name).c_str());
    }
  }
  if (!forward) remove_replacements();
  if (forward && !put_replacements_in_place()) return false;
  elog_log(0, "dbput: %s: An interrupted import has been %s.\n",
           places_.journal().c_str(), forward ? "finished" : "undone");
  return true;
}

}  // namespace ksutil::db
