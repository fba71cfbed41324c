/* Compiling texts and reading files. */
#include <algorithm>
#include <cstdlib>

#include "platform/pf/internal/pf_parse.h"
#include "platform/pf/pf.h"
#include "platform/stock/files.h"

using ksutil::pf_guarded;
using ksutil::PfError;
using ksutil::PfPtr;

namespace {

PfPtr compile_file(const std::string &path, const std::string &text) {
  PfError error;
  PfPtr tree = ksutil::parse_pf(text, error);
  if (tree == nullptr) {
    elog_log(0, "pfread: %s:%ld: %s.\n", path.c_str(), error.line, error.cause.c_str());
  }
  return tree;
}

PfPtr read_path(const std::string &path) {
  std::string text;
  if (!ksutil::read_file(path, kPfMaxBytes, text)) {
    elog_log(1, "pfread: Cannot read %s.\n", path.c_str());
    return nullptr;
  }
  return compile_file(path, text);
}

/* Merges the files of that name in all directories of a colon-separated path.  A file
 * that is there but cannot be used is an error: skipping it would silently give the
 * settings of another directory. */
PfPtr read_along(const std::string &file, const std::string &directories) {
  PfPtr merged;
  for (std::size_t at = 0; at < directories.size();) {
    const std::size_t end = std::min(directories.find(':', at), directories.size());
    const std::string path = directories.substr(at, end - at) + "/" + file;
    at = end + 1;
    std::string text;
    if (!ksutil::read_file(path, kPfMaxBytes, text)) {
      if (errno == ENOENT || errno == ENOTDIR) continue;
      elog_log(1, "pfread: Cannot read %s.\n", path.c_str());
      return nullptr;
    }
    PfPtr tree = compile_file(path, text);
    if (tree == nullptr) return nullptr;
    if (merged == nullptr) {
      merged = std::move(tree);
    } else if (pfmerge(merged.get(), tree.get()) != 0) {
      return nullptr;
    }
  }
  if (merged == nullptr) {
    elog_log(0, "pfread: Cannot find %s in %s.\n", file.c_str(), directories.c_str());
  }
  return merged;
}

PfPtr read_named(const std::string &name) {
  if (name.find('/') != std::string::npos) return read_path(name);
  const char *const directories = std::getenv("KSUTIL_PF_PATH");
  return read_along(name.ends_with(".pf") ? name : name + ".pf",
                    directories == nullptr || *directories == '\0' ? "." : directories);
}

}  // namespace

int pfcompile(const char *text, Pf **pf) {
  if (pf == nullptr) return -1;
  *pf = nullptr;
  if (text == nullptr) {
    elog_log(0, "pfcompile: A text must be given.\n");
    return -1;
  }
  return pf_guarded("pfcompile", -1, [&] {
    PfError error;
    PfPtr tree = ksutil::parse_pf(text, error);
    if (tree == nullptr) {
      elog_log(0, "pfcompile: line %ld: %s.\n", error.line, error.cause.c_str());
      return -1;
    }
    *pf = tree.release();
    return 0;
  });
}

int pfread(const char *name, Pf **pf) {
  if (pf == nullptr) return -1;
  *pf = nullptr;
  if (name == nullptr || *name == '\0') {
    elog_log(0, "pfread: A name must be given.\n");
    return -1;
  }
  return pf_guarded("pfread", -1, [&] {
    *pf = read_named(name).release();
    return *pf == nullptr ? -1 : 0;
  });
}
