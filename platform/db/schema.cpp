#include "platform/db/schema.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <mutex>

#include "platform/db/internal/schema_reader.h"
#include "platform/elog/failure.h"
#include "platform/stock/files.h"

namespace ksutil::embedded {
extern const char schema_css30[];
extern const char schema_kbcore[];
extern const char schema_trace[];
}  // namespace ksutil::embedded

namespace ksutil::db {
namespace {

constexpr struct {
  const char *name;
  const char *text;
} kBuiltin[] = {{"css3.0", embedded::schema_css30},
                {"kbcore", embedded::schema_kbcore},
                {"trace", embedded::schema_trace}};

/* Finds the file of that name along the path; false when there is none.  A file that
 * cannot be read is an error: the search does not go on to another directory. */
bool find_file(const std::string &path, const std::string &name, std::string &file) {
  for (std::size_t from = 0; from <= path.size();) {
    const std::size_t end = std::min(path.find(':', from), path.size());
    if (end > from) {
      file = path.substr(from, end - from) + "/" + name;
      struct stat status;
      if (::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode)) return true;
    }
    from = end + 1;
  }
  return false;
}

std::shared_ptr<const Schema> read_schema(const std::string &path,
                                          const std::string &name) {
  std::string file;
  if (find_file(path, name, file)) {
    std::string text;
    if (!read_file(file, kSchemaMaxBytes, text)) {
      fail_errno("Schema::load", "Cannot read %s", file.c_str());
      return nullptr;
    }
    return SchemaReader(file).read(text);
  }
  for (const auto &builtin : kBuiltin) {
    if (name == builtin.name) {
      return SchemaReader("built-in schema " + name).read(builtin.text);
    }
  }
  std::string known;
  for (const auto &builtin : kBuiltin) {
    if (!known.empty()) known += ", ";
    known += builtin.name;
  }
  fail("Schema::load", "No schema \"%s\"; the built-in ones are %s", name.c_str(),
       known.c_str());
  return nullptr;
}

}  // namespace

const Field *Relation::find(std::string_view field) const {
  const int i = index(field);
  return i < 0 ? nullptr : &fields[static_cast<std::size_t>(i)];
}

int Relation::index(std::string_view field) const {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].name == field) return static_cast<int>(i);
  }
  return -1;
}

/* Exported for the stores in plug-ins. */
KSUTIL_API bool same_layout(const Relation &a, const Relation &b) {
  if (&a == &b) return true;
  return a.name == b.name && a.width == b.width &&
         std::equal(a.fields.begin(), a.fields.end(), b.fields.begin(), b.fields.end(),
                    [](const Field &x, const Field &y) {
                      return x.name == y.name && x.type == y.type &&
                             x.offset == y.offset && x.width == y.width;
                    });
}

std::shared_ptr<const Schema> Schema::load(std::string_view name) {
  const std::string wanted(name);
  if (wanted.empty() || wanted == "." || wanted == ".." ||
      wanted.find('/') != std::string::npos) {
    fail("Schema::load", "\"%s\" is not a name of a schema", wanted.c_str());
    return nullptr;
  }
  const char *path = std::getenv("KSUTIL_SCHEMA_PATH");
  const std::string directories = path == nullptr ? "" : path;

  static std::mutex mutex;
  static auto &loaded = *new std::map<std::string, std::shared_ptr<const Schema>>;
  const std::lock_guard lock(mutex);
  const std::string key = directories + "\n" + wanted;
  const auto found = loaded.find(key);
  if (found != loaded.end()) return found->second;
  auto schema = read_schema(directories, wanted);
  if (schema != nullptr) loaded.emplace(key, schema);
  return schema;
}

const Relation *Schema::find(std::string_view table) const {
  const int i = index(table);
  return i < 0 ? nullptr : &relations_[static_cast<std::size_t>(i)];
}

int Schema::index(std::string_view table) const {
  for (std::size_t i = 0; i < relations_.size(); ++i) {
    if (relations_[i].name == table) return static_cast<int>(i);
  }
  return -1;
}

std::vector<Schema::CounterUse> Schema::counter_uses(std::string_view counter) const {
  std::vector<std::string> fields{std::string(counter)};
  for (const Counter &known : counters_) {
    if (known.name == counter) fields = known.fields;
  }
  std::vector<CounterUse> uses;
  for (const Relation &relation : relations_) {
    for (const std::string &field : fields) {
      if (relation.find(field) != nullptr) uses.push_back({relation.name, field});
    }
  }
  return uses;
}

std::vector<std::string> builtin_schemas() {
  std::vector<std::string> names;
  for (const auto &builtin : kBuiltin) names.emplace_back(builtin.name);
  return names;
}

std::string null_record(const Relation &relation) {
  std::string record(static_cast<std::size_t>(relation.width), ' ');
  for (const Field &field : relation.fields) {
    const bool left = field.format.size() > 1 && field.format[1] == '-';
    const int indent =
        left ? 0 : field.width - static_cast<int>(field.null_text.size());
    record.replace(static_cast<std::size_t>(field.offset + indent),
                   field.null_text.size(), field.null_text);
  }
  return record + '\n';
}

}  // namespace ksutil::db
