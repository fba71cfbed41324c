/* set: kssac set. */
#include <climits>
#include <cstring>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/elog/elog.h"
#include "platform/stock/text.h"
#include "tools/common/write_safely.h"
#include "tools/kssac/commands.h"
#include "tools/kssac/header_check.h"
#include "tools/kssac/header_names.h"
#include "tools/kssac/raw_file.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {
namespace {

struct SetOptions {
  std::string file;
  std::vector<std::string> assignments;
};

/* Reads an integer, the name of an enumerated value, or TRUE or FALSE. */
bool parse_whole(int type, const std::string &text, std::int64_t &number) {
  if (type == KSSAC_ENUMERATED) return parse_enumerated(text, number);
  if (type == KSSAC_LOGICAL) return parse_logical(text, number);
  return parse_integer(text, number);
}

/* Variables without which no program can read a file. */
bool is_required(std::string_view name) {
  for (const char *const required :
       {"B", "DELTA", "E", "IFTYPE", "LEVEN", "NPTS", "NVHDR"}) {
    if (name == required) return true;
  }
  return false;
}

/* Sets a variable from text; an empty one gives the null.  False with a complaint. */
bool assign(KSSac *kssac, const std::string &name, const std::string &value) {
  const KSSacDefine *const define = kssac_get_header_define(name.c_str());
  if (define == nullptr) {
    complain("there is no header variable " + name);
    return false;
  }
  const bool null = value.empty();
  if (null && is_required(define->name)) {
    complain("'' is not a value for " + name);
    return false;
  }
  switch (define->type) {
    case KSSAC_FLOAT: {
      double number = -12345.0;
      if (!null && !parse_real(value, number)) break;
      return kssac_puthdr_kssac(kssac, define->name, number, (char *)nullptr) == 0;
    }
    case KSSAC_STRING8:
    case KSSAC_STRING16: {
      if (value.size() > (define->type == KSSAC_STRING16 ? 16U : 8U)) break;
      return kssac_puthdr_kssac(kssac, define->name, null ? nullptr : value.c_str(),
                                (char *)nullptr) == 0;
    }
    default: {
      std::int64_t number = define->type == KSSAC_LOGICAL ? 0 : -12345;
      if (!null && (!parse_whole(define->type, value, number) || number < INT_MIN ||
                    number > INT_MAX)) {
        break;
      }
      return kssac_puthdr_kssac(kssac, define->name, number, (char *)nullptr) == 0;
    }
  }
  complain("'" + value + "' is not a value for " + name);
  return false;
}

/* Sets all variables and lists their names.  False with a complaint. */
bool assign_all(KSSac *kssac, const std::vector<std::string> &assignments,
                std::set<std::string> &changed) {
  for (const std::string &text : assignments) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
      complain("'" + text + "' is not of the form NAME=VALUE");
      return false;
    }
    if (!assign(kssac, text.substr(0, equals), text.substr(equals + 1))) return false;
    changed.insert(text.substr(0, equals));
  }
  return true;
}

int set(const SetOptions &options) {
  const KssacPtr kssac = read_sac(options.file);
  std::set<std::string> changed;
  if (kssac == nullptr || !assign_all(kssac.get(), options.assignments, changed) ||
      !check_changes(kssac.get(), changed, kssac->image->npts_data, options.file)) {
    return kFailure;
  }
  const bool swapped = is_swapped(options.file);
  const auto with_header = [&](char *bytes, std::size_t count, std::size_t at) {
    if (at == 0 && count >= KSSAC_HEADER_SIZE) {
      std::memcpy(bytes, kssac->image->header, KSSAC_HEADER_SIZE);
      if (swapped) reverse_words(bytes, KSSAC_HEADER_SIZE, 0);
    }
  };
  const auto write = [&](const std::string &path) {
    if (!copy_changed(options.file, path, with_header)) return false;
    const ElogScope quiet;  // its messages name a file that the user does not know
    if (read_sac(path) != nullptr) return true;
    complain("with these values " + options.file + " could not be read again");
    return false;
  };
  return write_safely(options.file, write) ? kOk : kFailure;
}

void describe_set(CLI::App &command, SetOptions &options) {
  command.add_option("file", options.file, "SAC file")->required();
  command
      .add_option(
          "assignments", options.assignments,
          "NAME=VALUE, as KSTNM=ANMO, IFTYPE=ITIME, LEVEN=TRUE; without a value "
          "the variable becomes null")
      ->required();
}

}  // namespace

Command set_command() {
  return make_command<SetOptions>(
      "set", "Sets header variables",
      {"kssac set MLR.BHZ.2010140.000000.019.sac T0=12.5 KT0=S KHOLE=00"}, describe_set,
      set);
}

}  // namespace ksutil::tools
