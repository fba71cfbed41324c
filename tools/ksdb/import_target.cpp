#include "tools/ksdb/import_target.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

#include "platform/db/db.h"
#include "platform/db/schema.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "platform/stock/folder.h"
#include "platform/stock/text.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlockBytes = std::size_t{32} << 20;  // of tables, in memory

/* Whether the ending of a file names a table of a schema, in letters of either case, or a
 * journal.  Without a descriptor a database has the tables of a built-in schema. */
bool is_of_database(const std::string &ending, const std::string &schema) {
  const std::string name = lowered(ending);
  if (name == "journal") return true;
  std::vector<std::string> schemas = db::builtin_schemas();
  if (!schema.empty()) schemas.push_back(schema);
  const ElogScope quiet;
  return std::any_of(schemas.begin(), schemas.end(), [&](const std::string &each) {
    const auto loaded = db::Schema::load(each);
    return loaded != nullptr && loaded->find(name) != nullptr;
  });
}

/* 1 when there is a descriptor, or a file that could be a table or a journal, else 0; -1,
 * with a complaint, when the disk does not tell.  Other files of that name with an ending,
 * such as the catalogue itself, do not count. */
int look_for(const fs::path &path, const std::string &schema) {
  std::error_code failed;
  if (fs::exists(path, failed)) return 1;
  if (failed) {
    complain("cannot look for " + path.string() + ": " + failed.message());
    return -1;
  }
  const std::string begin = path.filename().string() + ".";
  FolderNames names(path.parent_path().string());
  while (const char *const next = names.next()) {
    const std::string file = next;
    if (file.starts_with(begin) && is_of_database(file.substr(begin.size()), schema)) {
      return 1;
    }
  }
  const int error = names.error();
  if (error == 0 || error == ENOENT || error == ENOTDIR || error == EACCES) return 0;
  complain("cannot list the folder of " + path.string() + ": " +
           std::generic_category().message(error));
  return -1;
}

}  // namespace

/* The journal of a step that could not be undone goes too: without rows nothing is left to
 * undo. */
void remove_empty_database(const std::string &name, const db::Schema &schema) {
  const FileHandle journal = open_file(name + ".journal", O_RDWR);
  std::optional<FileLock> lock;
  if (journal && !lock.emplace(journal.get(), FileLock::Wait::kNever).held()) return;
  std::error_code failed;
  std::vector<std::string> empty;
  for (const db::Relation &relation : schema.relations()) {
    const std::string table = name + "." + relation.name;
    const bool exists = fs::exists(table, failed);
    if (failed || (exists && fs::file_size(table, failed) != 0)) return;
    if (exists) empty.push_back(table);
  }
  for (const std::string &table : empty) fs::remove(table, failed);
  fs::remove(name + ".journal", failed);
  fs::remove(name, failed);
}

bool ImportTarget::open(const std::string &name, const std::string &schema,
                        bool dry_run) {
  const int there = look_for(name, schema);
  if (there < 0) return false;
  if (there == 0) {
    if (schema.empty()) {
      complain("there is no database " + name + "; --create SCHEMA makes one");
      return false;
    }
    if (dry_run) {
      store_ = db::open_scratch_store(schema);
      return store_ != nullptr;
    }
    if (dbcreate(name.c_str(), schema.c_str()) != 0) return false;
    made_ = name;
  }
  store_ = db::open_store(name, "r+", kBlockBytes);
  return store_ != nullptr;
}

bool ImportTarget::open_or_make(const db::StoreDescriptor &descriptor) {
  const std::string &name = descriptor.name;
  const int there = look_for(name, descriptor.schema);
  if (there < 0) return false;
  if (there == 0) {
    if (!db::create_database(descriptor)) return false;
    made_ = name;
  } else if (!descriptor.connection.empty()) {
    complain(name + " is there already; --store is for a new database");
    return false;
  }
  store_ = db::open_store(name, "r+", kBlockBytes);
  return store_ != nullptr;
}

ImportTarget::~ImportTarget() {
  if (made_.empty()) return;
  const auto schema = store_ == nullptr ? nullptr : store_->schema();
  store_.reset();
  if (schema != nullptr) {
    remove_empty_database(made_, *schema);
  } else {
    std::error_code failed;
    fs::remove(made_, failed);
  }
}

}  // namespace ksutil::tools
