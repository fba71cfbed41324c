#include "platform/db/store/internal/found_tables.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "platform/db/store/internal/layout_fit.h"
#include "platform/stock/files.h"
#include "platform/stock/folder.h"

namespace ksutil::db {
namespace {

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

bool is_known_table(const std::string &name) {
  const std::vector<std::string> known = known_tables();
  return std::find(known.begin(), known.end(), name) != known.end();
}

std::string lower_case(std::string text) {
  for (char &c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

}  // namespace

bool is_file(const std::string &path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

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

std::string database_of_table_file(const std::string &path) {
  const std::size_t point = path.rfind('.');
  const std::size_t slash = path.rfind('/');
  const std::size_t base = slash == path.npos ? 0 : slash + 1;
  if (point == path.npos || point <= base) return "";
  return is_known_table(path.substr(point + 1)) ? path.substr(0, point) : "";
}

std::string misspelled_table_file(const std::string &name) {
  const std::size_t slash = name.rfind('/');
  const std::size_t base = slash == name.npos ? 0 : slash + 1;
  const std::string begin = name.substr(base) + ".";
  FolderNames names(name.substr(0, base));
  while (const char *const next = names.next()) {
    const std::string_view file = next;
    if (!file.starts_with(begin)) continue;
    const std::string table(file.substr(begin.size())), lower = lower_case(table);
    if (table != lower && is_known_table(lower) && !is_file(name + "." + lower)) {
      return name + "." + table;
    }
  }
  return "";
}

}  // namespace ksutil::db
