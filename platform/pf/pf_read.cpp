/* Compiling texts and reading files. */
#include <algorithm>
#include <cstdlib>

#include "platform/elog/failure.h"
#include "platform/pf/internal/pf_files.h"
#include "platform/pf/internal/pf_parse.h"
#include "platform/pf/pf.h"
#include "platform/stock/files.h"

namespace ksutil {
namespace {

/* The files of that name in all directories of a colon-separated path.  A file that is
 * there but cannot be read is an error: skipping it would silently give the settings of
 * another directory. */
bool find_along(const char *function, const std::string &name,
                const std::string &directories, std::vector<PfFile> &files) {
  for (std::size_t at = 0; at < directories.size();) {
    const std::size_t end = std::min(directories.find(':', at), directories.size());
    PfFile file{directories.substr(at, end - at) + "/" + name, {}};
    at = end + 1;
    if (read_file(file.path, kPfMaxBytes, file.text)) {
      files.push_back(std::move(file));
    } else if (errno != ENOENT && errno != ENOTDIR) {
      elog_log(1, "%s: Cannot read %s.\n", function, file.path.c_str());
      return false;
    }
  }
  if (files.empty()) {
    elog_log(0, "%s: Cannot find %s in %s.\n", function, name.c_str(),
             directories.c_str());
  }
  return !files.empty();
}

}  // namespace

bool read_pf_file(const char *function, const std::string &path, PfFile &file) {
  file.path = path;
  if (read_file(path, kPfMaxBytes, file.text)) return true;
  elog_log(1, "%s: Cannot read %s.\n", function, path.c_str());
  return false;
}

bool find_pf_files(const char *function, const std::string &name,
                   std::vector<PfFile> &files) {
  files.clear();
  if (name.find('/') != std::string::npos) {
    return read_pf_file(function, name, files.emplace_back());
  }
  const char *const directories = std::getenv("KSUTIL_PF_PATH");
  return find_along(function, name.ends_with(".pf") ? name : name + ".pf",
                    directories == nullptr || *directories == '\0' ? "." : directories,
                    files);
}

}  // namespace ksutil

using ksutil::at_boundary;
using ksutil::PfError;
using ksutil::PfFile;
using ksutil::PfPtr;

namespace {

PfPtr compile_file(const PfFile &file) {
  PfError error;
  PfPtr tree = ksutil::parse_pf(file.text, error);
  if (tree == nullptr) {
    elog_log(0, "pfread: %s:%ld: %s.\n", file.path.c_str(), error.line,
             error.cause.c_str());
  }
  return tree;
}

PfPtr read_named(const std::string &name) {
  std::vector<PfFile> files;
  if (!ksutil::find_pf_files("pfread", name, files)) return nullptr;
  PfPtr merged;
  for (const PfFile &file : files) {
    PfPtr tree = compile_file(file);
    if (tree == nullptr) return nullptr;
    if (merged == nullptr) {
      merged = std::move(tree);
    } else if (pfmerge(merged.get(), tree.get()) != 0) {
      return nullptr;
    }
  }
  return merged;
}

}  // namespace

int pfcompile(const char *text, Pf **pf) {
  if (pf == nullptr) return -1;
  *pf = nullptr;
  if (text == nullptr) {
    elog_log(0, "pfcompile: A text must be given.\n");
    return -1;
  }
  return at_boundary("pfcompile", -1, [&] {
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
  return at_boundary("pfread", -1, [&] {
    *pf = read_named(name).release();
    return *pf == nullptr ? -1 : 0;
  });
}
