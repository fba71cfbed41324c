/* pf_read: compiles texts and reads files. */
#include <string>
#include <utility>
#include <vector>

#include "platform/elog/failure.h"
#include "platform/pf/pf.h"
#include "platform/pf/shared/pf_files.h"
#include "platform/pf/shared/pf_parse.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::PfError;
using ksutil::PfFile;
using ksutil::PfPtr;

namespace {

PfPtr compile_file(const PfFile &file) {
  PfError error;
  PfPtr tree = ksutil::parse_pf(file.text, error);
  if (tree == nullptr) {
    fail("pfread", "%s:%ld: %s", file.path.c_str(), error.line, error.cause.c_str());
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
    return fail("pfcompile", "A text must be given");
  }
  return at_boundary("pfcompile", [&]() -> int {
    PfError error;
    PfPtr tree = ksutil::parse_pf(text, error);
    if (tree == nullptr) {
      return fail("pfcompile", "line %ld: %s", error.line, error.cause.c_str());
    }
    *pf = tree.release();
    return 0;
  });
}

int pfread(const char *name, Pf **pf) {
  if (pf == nullptr) return -1;
  *pf = nullptr;
  if (name == nullptr || *name == '\0') {
    return fail("pfread", "A name must be given");
  }
  return at_boundary("pfread", [&] {
    *pf = read_named(name).release();
    return *pf == nullptr ? -1 : 0;
  });
}
