/* get: kspf get. */
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "platform/pf/owners.h"
#include "platform/stock/memory.h"
#include "platform/stock/owners.h"
#include "tools/common/rows.h"
#include "tools/kspf/commands.h"

namespace ksutil::tools {
namespace {

struct GetOptions {
  std::string file, path;
  std::optional<std::string> fallback;
  bool json = false, search = false;
};

/* Texts as strings, tables as arrays, arrays as objects in the order written. */
nlohmann::ordered_json json_of(Pf *pf) {
  if (pf_kind(pf) == PFSTRING) return pf_text(pf);
  if (pf_kind(pf) == PFTBL) {
    auto list = nlohmann::ordered_json::array();
    Tbl *const items = pf_tbl(pf);
    for (long i = 0; i < counttbl(items); i++) {
      list.push_back(json_of(static_cast<Pf *>(gettbl(items, i))));
    }
    return list;
  }
  auto object = nlohmann::ordered_json::object();
  const TblPtr keys(pfkeys_in_order(pf));
  for (long i = 0; i < counttbl(keys.get()); i++) {
    const char *const key = static_cast<const char *>(gettbl(keys.get(), i));
    object[key] = json_of(static_cast<Pf *>(getarr(pf_arr(pf), key)));
  }
  return object;
}

int print(Pf *tree, bool json) {
  if (json) {
    print_json(json_of(tree));
  } else if (pf_kind(tree) == PFSTRING) {
    std::puts(pf_text(tree));
  } else {
    const MallocPtr<char> text(pf2string(tree));
    if (text == nullptr) return kFailure;
    std::fputs(text.get(), stdout);
  }
  return kOk;
}

int get(const GetOptions &options) {
  KSPf pf;
  if (!read_input(options.file, options.search, pf)) return kFailure;
  std::string path = options.path;
  if (options.fallback && pf.kind(path) == PFINVALID) {
    /* A faulty path is an error, also when a default is given. */
    std::string text;
    if (pf.getString(path, text, *options.fallback) < 0) return kFailure;
    path = "default";
    pf = KSPf();
    if (pf.set(path, text) != 0) return kFailure;
  }
  Pf *tree = nullptr;
  if (pf.getPf(path, &tree) != 0) return kFailure;
  return print(PfOwner(tree).get(), options.json);
}

void describe_get(CLI::App &command, GetOptions &options) {
  command.add_option("file", options.file, "Parameter file, - for standard input")
      ->required();
  command.add_option("path", options.path, "Path of the value; without it the file");
  command.add_option("--default", options.fallback,
                     "Text to print when there is no value");
  command.add_flag("--json", options.json, "Print JSON");
  command.add_flag("--search", options.search,
                   "Look for the file along KSUTIL_PF_PATH");
}

}  // namespace

Command get_command() {
  return make_command<GetOptions>("get", "Prints a value",
                                  {"kspf get --json data/settings/server.pf magnitudes",
                                   "kspf get data/settings/server.pf monitor.interval"},
                                  describe_get, get);
}

}  // namespace ksutil::tools
