#include "platform/db/store/internal/flat_files.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <vector>

#include "platform/db/store/internal/flat_descriptor.h"
#include "platform/db/store/internal/flat_table.h"
#include "platform/db/store/internal/flat_transaction.h"
#include "platform/db/store/internal/found_tables.h"
#include "platform/db/store/internal/plugin_loading.h"
#include "platform/db/store_plugin.h"
#include "platform/elog/failure.h"
#include "platform/stock/files.h"
#include "platform/stock/fspath.h"

namespace ksutil::db {
namespace {

class FlatDatabase final : public DatabaseStore {
 public:
  FlatDatabase(std::string name, Prefixes prefixes, FlatSettings settings)
      : name_(std::move(name)),
        prefixes_(std::move(prefixes)),
        settings_(std::move(settings)) {}

  const std::string &name() const override { return name_; }
  std::shared_ptr<const Schema> schema() const override { return settings_.schema; }
  bool writable() const override { return settings_.writable; }

  TableStore *table(std::string_view name) override {
    const auto known = tables_.find(name);
    if (known != tables_.end()) return known->second.get();
    const Relation *relation = settings_.schema->find(name);
    if (relation == nullptr) {
      return fail("dblookup", "%s: The schema %s has no table %.*s", name_.c_str(),
                  settings_.schema->name().c_str(), static_cast<int>(name.size()),
                  name.data());
    }
    std::vector<std::string> paths;
    for (const std::string &prefix : prefixes_)
      paths.push_back(prefix + "." + relation->name);
    auto made = std::make_unique<FlatTable>(settings_, *relation, std::move(paths));
    return tables_.emplace(relation->name, std::move(made)).first->second.get();
  }

  bool transaction(const std::vector<std::string> &names,
                   const std::function<bool(Transaction &)> &work) override {
    if (!settings_.writable) {
      return fail("dbput", "%s: The database is open for reading only", name_.c_str());
    }
    std::vector<FlatTable *> tables;
    for (const std::string &name : names) {
      if (table(name) == nullptr) return false;
      tables.push_back(tables_.find(name)->second.get());
    }
    FlatTransaction transaction(*settings_.places, std::move(tables));
    return transaction.begin() && work(transaction) && transaction.publish();
  }

 private:
  const std::string name_;
  const Prefixes prefixes_;
  const FlatSettings settings_;
  std::map<std::string, std::unique_ptr<FlatTable>, std::less<>> tables_;
};

/* Whether a database is there; false, with a message that suggests what was meant.
 * Chooses the schema by the table files when the descriptor does not name one. */
bool check_tables(const std::string &name, const Prefixes &prefixes,
                  FlatDescriptor &descriptor) {
  using Content = FlatDescriptor::Content;
  const std::string misspelled = misspelled_table_file(name);
  if (!misspelled.empty()) {
    return fail("dbopen", "%s: names of tables are in lower case; rename the file",
                misspelled.c_str());
  }
  const std::string found =
      descriptor.schema.empty() || descriptor.content != Content::kWords
          ? schema_of_files(prefixes)
          : descriptor.schema;
  const std::string meant = database_of_table_file(name);
  if (descriptor.content == Content::kUnreadable && !found.empty()) {
    return fail("dbopen", "%s is not a descriptor of a database", name.c_str());
  }
  if (descriptor.content == Content::kMissing && found.empty()) {
    std::error_code unknown;
    if (std::filesystem::is_directory(name, unknown)) {
      return fail("dbopen", "%s is a folder; a database in it is named %s/NAME",
                  name.c_str(), name.c_str());
    }
    return fail("dbopen",
                "there is no database %s: it has neither a descriptor nor a table file "
                "such as %s.origin",
                name.c_str(), name.c_str());
  }
  if (descriptor.content != Content::kWords && found.empty()) {
    if (meant.empty()) {
      fail("dbopen",
           "%s is not a database: it names no schema, table_path or sync, and no table "
           "file such as %s.origin is beside it",
           name.c_str(), name.c_str());
    } else {
      fail("dbopen", "%s is a table file, not a database; open %s", name.c_str(),
           meant.c_str());
    }
    return false;
  }
  if (descriptor.schema.empty()) {
    descriptor.schema = found.empty() ? builtin_schemas().front() : found;
  }
  return true;
}

/* False, with a message, when a name or a mode makes no sense; else reads the descriptor
 * if there is one. */
bool read_descriptor(const std::string &name, const std::string &mode,
                     FlatDescriptor &descriptor) {
  if (mode != "r" && mode != "r+") {
    return fail("dbopen", "The mode \"%s\" is neither r nor r+", mode.c_str());
  }
  if (name.empty() || name.back() == '/') {
    return fail("dbopen", "\"%s\" is not a name of a database", name.c_str());
  }
  return !is_file(name) || descriptor.read(name);
}

std::unique_ptr<DatabaseStore> open_tables(const std::string &name, bool writable,
                                           std::size_t block_budget,
                                           FlatDescriptor &descriptor) {
  Prefixes prefixes{name};
  prefixes.insert(prefixes.end(), descriptor.prefixes.begin(),
                  descriptor.prefixes.end());
  if (!check_tables(name, prefixes, descriptor)) return nullptr;
  /* The files stay the same when the program changes its working directory. */
  for (std::string &prefix : prefixes) prefix = absolute_path(prefix);
  auto schema = Schema::load(descriptor.schema);
  if (schema == nullptr) return fail("dbopen", "Cannot open %s", name.c_str());
  auto places = std::make_shared<const FlatPlaces>(
      FlatPlaces{absolute_path(name), prefixes, descriptor.sync});
  /* A reader without permission to settle a transaction reads the files as they are. */
  if (FlatJournal::settle(*places, FileLock::Wait::kNever) ==
          FlatJournal::Settled::kFailed &&
      writable) {
    return nullptr;
  }
  auto folders = std::make_shared<FlatFolders>(schema, prefixes);
  FlatSettings settings{std::move(schema), writable,
                        descriptor.sync,   std::make_shared<FlatShared>(block_budget),
                        std::move(places), std::move(folders)};
  return std::make_unique<FlatDatabase>(name, std::move(prefixes), std::move(settings));
}

std::atomic<std::size_t> default_budget{kBlockBudget};

}  // namespace

std::size_t default_block_budget() { return default_budget; }

ScopedBlockBudget::ScopedBlockBudget(std::size_t limit) { default_budget = limit; }
ScopedBlockBudget::~ScopedBlockBudget() { default_budget = kBlockBudget; }

std::unique_ptr<DatabaseStore> open_flat_files(const std::string &name,
                                               const std::string &mode,
                                               std::size_t block_budget) {
  FlatDescriptor descriptor;
  if (!read_descriptor(name, mode, descriptor)) return nullptr;
  return open_tables(name, mode == "r+", block_budget, descriptor);
}

bool create_flat_files(const std::string &name, const std::string &schema) {
  if (Schema::load(schema) == nullptr) return false;
  const FileHandle file = open_file(name, O_WRONLY | O_CREAT | O_EXCL);
  if (!file) return fail_errno("dbcreate", "Cannot make %s", name.c_str());
  const std::string text = "schema  " + schema + "\n";
  if (write_all(file.get(), text.data(), text.size()) !=
      static_cast<ssize_t>(text.size())) {
    fail_errno("dbcreate", "Cannot write %s", name.c_str());
    ::remove(name.c_str());
    return false;
  }
  return true;
}

std::unique_ptr<DatabaseStore> open_store(const std::string &name,
                                          const std::string &mode,
                                          std::size_t block_budget) {
  return open_store_within(name, mode, std::max(block_budget, kLeastBlockBudget));
}

std::unique_ptr<DatabaseStore> open_store_within(const std::string &name,
                                                 const std::string &mode,
                                                 std::size_t block_budget) {
  FlatDescriptor descriptor;
  if (!read_descriptor(name, mode, descriptor)) return nullptr;
  if (!descriptor.store.empty() && descriptor.store != kFlatFilesStore) {
    return open_with_plugin(
        {name, descriptor.schema, descriptor.store, descriptor.connection},
        mode == "r+", block_budget);
  }
  return open_tables(name, mode == "r+", block_budget, descriptor);
}

}  // namespace ksutil::db
