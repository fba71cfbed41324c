#include "platform/db/store/internal/flat_descriptor.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/pf/pf.h"
#include "platform/stock/files.h"

namespace ksutil::db {
namespace {

constexpr std::size_t kDescriptorMaxBytes = std::size_t{1} << 20;
constexpr std::size_t kMaxTablePaths = 100;

std::string directory_of(const std::string &name) {
  const std::size_t slash = name.rfind('/');
  return slash == name.npos ? "" : name.substr(0, slash + 1);
}

/* The places that table_path names: "dir" holds tables of the database's own base name,
 * "dir/{base}" holds those of another; both are relative to the descriptor. */
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
      return fail("dbopen", "%s: table_path has too many entries", name.c_str());
    }
    std::string base = own_base;
    const std::size_t brace = entry.find('{');
    if (brace != entry.npos) {
      if (entry.back() != '}' || entry.size() < brace + 3) {
        return fail("dbopen", "%s: table_path: \"%s\" does not end in {name}",
                    name.c_str(), entry.c_str());
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

}  // namespace

bool FlatDescriptor::read(const std::string &name) {
  std::string text;
  if (!read_file(name, kDescriptorMaxBytes, text)) {
    content = Content::kUnreadable;
    if (errno == EFBIG) return true;
    return fail_errno("dbopen", "Cannot read %s", name.c_str());
  }
  Pf *compiled = nullptr;
  {
    const ElogScope quiet;
    if (text.find('\0') != text.npos || pfcompile(text.c_str(), &compiled) != 0) {
      content = Content::kUnreadable;
      return true;
    }
  }
  content = Content::kNoWords;
  const std::unique_ptr<Pf, void (*)(Pf *)> tree(compiled, pffree);
  for (const char *word : {"schema", "table_path", "sync", "store", "connection"}) {
    if (pfget_string(tree.get(), word) != nullptr) content = Content::kWords;
  }
  if (const char *value = pfget_string(tree.get(), "schema")) schema = value;
  if (const char *value = pfget_string(tree.get(), "store")) store = value;
  if (const char *value = pfget_string(tree.get(), "connection")) connection = value;
  if (const char *given = pfget_string(tree.get(), "sync")) {
    const std::string value = given;
    sync = value == "yes" || value == "true" || value == "1";
    if (!sync && value != "no" && value != "false" && value != "0") {
      return fail("dbopen", "%s: sync is \"%s\", not yes or no", name.c_str(), given);
    }
  }
  const char *path = pfget_string(tree.get(), "table_path");
  return path == nullptr || read_table_path(name, path, prefixes);
}

}  // namespace ksutil::db
