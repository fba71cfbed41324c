#include "tools/kssac/sac_file.h"

#include <fcntl.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
bool is_swapped(const std::string &path) {
  const FileHandle file = open_file(path, O_RDONLY | O_NONBLOCK);
  constexpr off_t kVersionAt = 304;
  std::int32_t version;
  return file &&
         read_at(file.get(), &version, sizeof version, kVersionAt) == sizeof version &&
         __builtin_bswap32(static_cast<std::uint32_t>(version)) == 6;
}

KssacPtr read_sac(const std::string &path) {
  return KssacPtr(kssac_read_from_file_either_order(path.c_str(), nullptr, nullptr));
}

bool known(KSSac *kssac, const char *name, double &value) {
  double found;
  if (kssac_gethdr_kssac(kssac, name, &found, (char *)nullptr) != 0) return false;
  if (std::isnan(found) || found == -12345.0) return false;
  value = found;
  return true;
}

bool known(KSSac *kssac, const char *name, std::int64_t &value) {
  std::int64_t found;
  if (kssac_gethdr_kssac(kssac, name, &found, (char *)nullptr) != 0) return false;
  if (found == -12345) return false;
  value = found;
  return true;
}

bool known(KSSac *kssac, const char *name, std::string &value) {
  char found[17];
  if (kssac_gethdr_kssac(kssac, name, found, (char *)nullptr) != 0) return false;
  if (found[0] == '\0' || std::strcmp(found, "-12345") == 0) return false;
  value = found;
  return true;
}

bool reference_time(KSSac *kssac, double &time) {
  constexpr std::int64_t kIsDay = 10;  // the beginning of the day
  std::int64_t value, equivalence = 0;
  known(kssac, "IZTYPE", equivalence);
  if (!known(kssac, "NZYEAR", value) || !known(kssac, "NZJDAY", value)) return false;
  for (const char *const of_day : {"NZHOUR", "NZMIN", "NZSEC", "NZMSEC"}) {
    if (equivalence != kIsDay && !known(kssac, of_day, value)) return false;
  }
  return kssac_getreftime_kssac(kssac, &time) == 0;
}

bool is_evenly_sampled(KSSac *kssac, const std::string &path) {
  std::int64_t even = 0;
  double delta = 0.0;
  if (kssac->image->data == nullptr || !known(kssac, "LEVEN", even) || even == 0 ||
      !known(kssac, "DELTA", delta) || !(delta > 0.0)) {
    complain(kssac->image->data == nullptr
                 ? path + " holds " + kssac_file_type_text(kssac) + ", not samples"
                 : path + " has no evenly spaced samples");
    return false;
  }
  return true;
}

std::string channel_name(KSSac *kssac) {
  std::string name;
  for (const char *const part : {"KNETWK", "KSTNM", "KHOLE", "KCMPNM"}) {
    std::string code;
    if (!known(kssac, part, code)) continue;
    if (!name.empty()) name += '.';
    name += code;
  }
  return name;
}

}  // namespace ksutil::tools
