#include "platform/db/flat_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

#include "platform/db/internal/flat_table.h"
#include "platform/db/internal/layout_fit.h"
#include "platform/elog/elog.h"
#include "platform/pf/pf.h"
#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kDescriptorMaxBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxTablePaths = 100;

/* A place where tables may be: their files are prefix + "." + table. */
using Prefixes = std::vector<std::string>;

struct Descriptor {
  std::string schema;
  Prefixes prefixes;
  bool sync = false;
};

std::string directory_of(const std::string &name) {
  const std::size_t slash = name.rfind('/');
  return slash == name.npos ? "" : name.substr(0, slash + 1);
}

/* The places that table_path tells: "dir" holds tables of the database's own base name,
 * "dir/{base}" those of another; both relative to the descriptor. */
bool read_table_path(const std::string &name, const std::string &text,
                     Prefixes &prefixes) {
  const std::string directory = directory_of(name);
  const std::string own_base = name.substr(directory.size());
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find(':', from), text.size());
    std::string entry = text.substr(from, end - from);
    from = end + 1;
    if (entry.empty()) continue;
    if (prefixes.size() >= kMaxTablePaths) {
      elog_log(0, "dbopen: %s: table_path has too many entries.\n", name.c_str());
      return false;
    }
    std::string base = own_base;
    const std::size_t brace = entry.find('{');
    if (brace != entry.npos) {
      if (entry.back() != '}' || entry.size() < brace + 3) {
        elog_log(0, "dbopen: %s: table_path: \"%s\" does not end in {name}.\n",
                 name.c_str(), entry.c_str());
        return false;
      }
      base = entry.substr(brace + 1, entry.size() - brace - 2);
      entry.resize(brace);
    }
    if (entry.empty() || entry.front() != '/') entry = directory + entry;
    if (!entry.empty() && entry.back() != '/') entry += '/';
    prefixes.push_back(entry + base);
  }
  return true;
}

bool read_descriptor(const std::string &name, Descriptor &descriptor) {
  std::string text;
  if (!read_file(name, kDescriptorMaxBytes, text)) {
    elog_log(1, "dbopen: Cannot read %s.\n", name.c_str());
    return false;
  }
  Pf *compiled = nullptr;
  if (pfcompile(text.c_str(), &compiled) != 0) {
    elog_log(0, "dbopen: %s is no descriptor of a database.\n", name.c_str());
    return false;
  }
  const std::unique_ptr<Pf, void (*)(Pf *)> tree(compiled, pffree);
  if (const char *schema = pfget_string(tree.get(), "schema"))
    descriptor.schema = schema;
  if (const char *sync = pfget_string(tree.get(), "sync")) {
    const std::string value = sync;
    descriptor.sync = value == "yes" || value == "true" || value == "1";
    if (!descriptor.sync && value != "no" && value != "false" && value != "0") {
      elog_log(0, "dbopen: %s: sync is \"%s\", not yes or no.\n", name.c_str(), sync);
      return false;
    }
  }
  const char *path = pfget_string(tree.get(), "table_path");
  return path == nullptr || read_table_path(name, path, descriptor.prefixes);
}

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
  Descriptor descriptor;
  const bool described = is_file(name);
  if (described && !read_descriptor(name, descriptor)) return nullptr;
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
