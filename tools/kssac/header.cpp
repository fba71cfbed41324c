/* header: kssac header. */
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tools/common/cells.h"
#include "tools/common/rows.h"
#include "tools/kssac/commands.h"
#include "tools/kssac/header_names.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {
namespace {

struct HeaderOptions {
  std::vector<std::string> files;
  bool all = false, raw = false;
  Form form = Form::kText;
};

struct FreeTable {
  void operator()(Tbl *table) const { kssac_free_header_tbl(table); }
};

/* The shortest text that gives the same single-precision number. */
std::string real_text(double value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, static_cast<float>(value));
  return {text, end.ptr};
}

/* A header variable as text. */
struct Shown {
  std::string name, value;
  bool null = false, number = false, logical = false;
};

Shown shown(const KSSacHeaderValue &entry, int type, bool raw) {
  if (!raw && type == KSSAC_LOGICAL) {
    return {entry.name, entry.value.i != 0 ? "TRUE" : "FALSE", false, false, true};
  }
  if (!raw && type == KSSAC_ENUMERATED) {
    return {entry.name, enumerated_name(entry.value.i), entry.value.i == -12345};
  }
  switch (entry.kind) {
    case KSSAC_KIND_REAL:
      return {entry.name, real_text(entry.value.d), entry.value.d == -12345.0,
              std::isfinite(entry.value.d)};
    case KSSAC_KIND_INTEGER:
      return {entry.name, std::to_string(entry.value.i),
              type != KSSAC_LOGICAL && entry.value.i == -12345, true};
    default:
      return {entry.name, entry.value.s,
              entry.value.s[0] == '\0' || std::strcmp(entry.value.s, "-12345") == 0,
              false};
  }
}

/* The variables to be shown, with their place in the header's definitions. */
bool header_of(KSSac *kssac, const HeaderOptions &options,
               std::vector<std::pair<int, Shown>> &variables) {
  Tbl *made = nullptr;
  if (kssac_header_2_tbl(kssac, &made) != 0) return false;
  const std::unique_ptr<Tbl, FreeTable> table(made);
  for (int i = 0; i < KSSAC_HEADER_COUNT; ++i) {
    const auto *const entry =
        static_cast<const KSSacHeaderValue *>(gettbl(table.get(), i));
    Shown variable = shown(*entry, SacHeaderDefines[i].type, options.raw);
    if (options.all || !variable.null) variables.emplace_back(i, std::move(variable));
  }
  return true;
}

/* The time of the first sample, as far as the header gives it. */
std::string begin_text(KSSac *kssac) {
  double reference, begin;
  if (!known(kssac, "B", begin) || !reference_time(kssac, reference)) {
    return "no reference time";
  }
  return "begins " + time_cell(reference + begin);
}

void print_text(const std::string &path, KSSac *kssac,
                const std::vector<std::pair<int, Shown>> &variables) {
  const long held = static_cast<long>(kssac->image->npts_data);
  std::printf("%s: %ld samples, %s\n", path.c_str(), held, begin_text(kssac).c_str());
  for (const auto &[index, variable] : variables) {
    std::printf("  %-9s  %-16s  %s\n", variable.name.c_str(), variable.value.c_str(),
                SacHeaderDefines[index].description);
  }
}

nlohmann::ordered_json json_of(const std::string &path,
                               const std::vector<std::pair<int, Shown>> &variables) {
  nlohmann::ordered_json object{{"file", path}};
  for (const auto &[index, variable] : variables) {
    if (variable.null) {
      object[variable.name] = nullptr;
    } else if (variable.logical) {
      object[variable.name] = variable.value == "TRUE";
    } else if (variable.number) {
      object[variable.name] = json_number(variable.value);
    } else {
      object[variable.name] = variable.value;
    }
  }
  return object;
}

int header(const HeaderOptions &options) {
  int result = kOk;
  auto list = nlohmann::ordered_json::array();
  Rows rows({{"file"}, {"name"}, {"value"}}, options.form);
  for (const std::string &path : options.files) {
    const KssacPtr kssac = read_sac(path);
    std::vector<std::pair<int, Shown>> variables;
    if (kssac == nullptr || !header_of(kssac.get(), options, variables)) {
      result = kFailure;
      continue;
    }
    if (options.form == Form::kText) {
      print_text(path, kssac.get(), variables);
    } else if (options.form == Form::kJson) {
      list.push_back(json_of(path, variables));
    } else {
      for (const auto &[index, variable] : variables) {
        rows.add({path, variable.name, variable.null ? "" : variable.value});
      }
    }
  }
  if (options.form == Form::kJson) {
    print_json(list);
  } else if (options.form == Form::kCsv) {
    rows.print();
  }
  return result;
}

void describe_header(CLI::App &command, HeaderOptions &options) {
  command.add_option("files", options.files, "SAC files")->required();
  command.add_flag("--all", options.all, "Null variables too");
  command.add_flag("--raw", options.raw,
                   "Enumerated and logical values as the numbers in the file");
  add_form_options(command, options.form);
}

}  // namespace

Command header_command() {
  return make_command<HeaderOptions>(
      "header", "Prints the header variables that are set",
      {"kssac header MLR.*.sac", "kssac header --all --json MLR.*.sac"},
      describe_header, header);
}

}  // namespace ksutil::tools
