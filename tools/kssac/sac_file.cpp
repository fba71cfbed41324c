#include "tools/kssac/sac_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "platform/elog/elog.h"
#include "platform/stock/files.h"
#include "tools/common/cli.h"

namespace ksutil::tools {
namespace {

/* The mode of the file that is to be replaced, or of a new one. */
mode_t mode_for(const std::string &path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) return status.st_mode & 07777;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

/* The file behind symbolic links, or the path itself for a new file. */
std::string resolved(const std::string &path) {
  char *const real = ::realpath(path.c_str(), nullptr);
  const std::string result = real == nullptr ? path : real;
  std::free(real);
  return result;
}

}  // namespace

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

bool write_safely(const std::string &path,
                  const std::function<bool(const std::string &)> &write) {
  const std::string target = resolved(path);
  std::string made = target + ".XXXXXX";
  {
    const FileHandle file(::mkostemp(made.data(), O_CLOEXEC));
    if (!file || ::fchmod(file.get(), mode_for(target)) != 0) {
      elog_log(1, "cannot make a file beside %s.\n", target.c_str());
      if (file) ::unlink(made.c_str());
      return false;
    }
  }
  bool good = write(made);
  if (good) {
    const FileHandle file = open_file(made, O_RDONLY);
    good = file && sync_file(file.get()) == 0 &&
           ::rename(made.c_str(), target.c_str()) == 0;
    if (!good) elog_log(1, "cannot replace %s.\n", target.c_str());
  }
  if (!good) ::unlink(made.c_str());
  return good;
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
