#include "platform/db/store/internal/flat_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

#include "platform/db/store/internal/flat_descriptor.h"
#include "platform/db/store/internal/flat_table.h"
#include "platform/db/store/internal/layout_fit.h"
#include "platform/elog/elog.h"
#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

bool is_file(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/* The names of all tables that a flat-file database may have. */
std::vector<std::string> known_tables() {
  std::vector<std::string> names;
  for (const std::string &schema_name : builtin_schemas()) {
    const auto schema = Schema::load(schema_name);
    if (schema == nullptr) continue;
    for (const Relation &relation : schema->relations()) {
      if (std::find(names.begin(), names.end(), relation.name) == names.end()) {
        names.push_back(relation.name);
      }
    }
  }
  return names;
}

/* Reads from the files that are there which schema they follow: the first built-in one,
 * unless a table has the layout of another.  "" when there are no tables. */
std::string schema_of_files(const Prefixes &prefixes) {
  const std::string first = builtin_schemas().front();
  const auto schema = Schema::load(first);
  if (schema == nullptr) return "";
  std::string found;
  for (const std::string &table : known_tables()) {
    for (const std::string &prefix : prefixes) {
      const std::string path = prefix + "." + table;
      if (!is_file(path)) continue;
      if (found.empty()) found = first;
      std::string head(kFitBytes, '\0');
      const FileHandle file = open_file(path, O_RDONLY);
      const ssize_t got = read_at(file.get(), head.data(), head.size(), 0);
      if (got <= 0) break;
      head.resize(static_cast<std::size_t>(got));
      Fit fit;
      if (fit_layout(*schema, table, head, head.size() < kFitBytes, fit) &&
          fit.schema != first) {
        return fit.schema;
      }
      break;
    }
  }
  return found;
}

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
      elog_log(0, "dblookup: %s: The schema %s has no table %.*s.\n", name_.c_str(),
               settings_.schema->name().c_str(), static_cast<int>(name.size()),
               name.data());
      return nullptr;
    }
    std::vector<std::string> paths;
    for (const std::string &prefix : prefixes_)
      paths.push_back(prefix + "." + relation->name);
    auto made = std::make_unique<FlatTable>(settings_, *relation, std::move(paths));
    return tables_.emplace(relation->name, std::move(made)).first->second.get();
  }

 private:
  const std::string name_;
  const Prefixes prefixes_;
  const FlatSettings settings_;
  std::map<std::string, std::unique_ptr<FlatTable>, std::less<>> tables_;
};

}  // namespace

std::unique_ptr<DatabaseStore> open_flat_files(const std::string &name,
                                               const std::string &mode) {
  if (mode != "r" && mode != "r+") {
    elog_log(0, "dbopen: The mode \"%s\" is neither r nor r+.\n", mode.c_str());
    return nullptr;
  }
  if (name.empty() || name.back() == '/') {
    elog_log(0, "dbopen: \"%s\" is no name of a database.\n", name.c_str());
    return nullptr;
  }
  FlatDescriptor descriptor;
  const bool described = is_file(name);
  if (described && !descriptor.read(name)) return nullptr;
  Prefixes prefixes{name};
  prefixes.insert(prefixes.end(), descriptor.prefixes.begin(),
                  descriptor.prefixes.end());
  if (descriptor.schema.empty()) {
    descriptor.schema = schema_of_files(prefixes);
    if (descriptor.schema.empty() && !described) {
      elog_log(0, "dbopen: %s has neither a descriptor nor a table.\n", name.c_str());
      return nullptr;
    }
    if (descriptor.schema.empty()) descriptor.schema = builtin_schemas().front();
  }
  auto schema = Schema::load(descriptor.schema);
  if (schema == nullptr) {
    elog_log(0, "dbopen: Cannot open %s.\n", name.c_str());
    return nullptr;
  }
  FlatSettings settings{std::move(schema), mode == "r+", descriptor.sync,
                        std::make_shared<FlatShared>(kBlockBudget)};
  return std::make_unique<FlatDatabase>(name, std::move(prefixes), std::move(settings));
}

bool create_flat_files(const std::string &name, const std::string &schema) {
  if (Schema::load(schema) == nullptr) return false;
  const FileHandle file = open_file(name, O_WRONLY | O_CREAT | O_EXCL);
  if (!file) {
    elog_log(1, "dbcreate: Cannot make %s.\n", name.c_str());
    return false;
  }
  const std::string text = "schema  " + schema + "\n";
  if (write_all(file.get(), text.data(), text.size()) !=
      static_cast<ssize_t>(text.size())) {
    elog_log(1, "dbcreate: Cannot write %s.\n", name.c_str());
    ::remove(name.c_str());
    return false;
  }
  return true;
}

}  // namespace ksutil::db
