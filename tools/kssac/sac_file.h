/* sac_file: reads and writes SAC files for the subcommands. */
#ifndef KSUTIL_TOOLS_KSSAC_SAC_FILE_H
#define KSUTIL_TOOLS_KSSAC_SAC_FILE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/kssac.h"

namespace ksutil::tools {

struct FreeKssac {
  void operator()(KSSac *kssac) const { kssac_free_kssac(kssac); }
};
using KssacPtr = std::unique_ptr<KSSac, FreeKssac>;

/* Reads a file of either byte order; null with messages. */
KssacPtr read_sac(const std::string &path);

/* Whether a file is of header version 6 in the other byte order. */
bool is_swapped(const std::string &path);

/* Single header variables, by names that exist; nothing for a null. */
bool known(KSSac *kssac, const char *name, double &value);
bool known(KSSac *kssac, const char *name, std::int64_t &value);
bool known(KSSac *kssac, const char *name, std::string &value);

/* The reference time; false when the header has none, or not all of it. */
bool reference_time(KSSac *kssac, double &time);

/* Whether the file has evenly spaced samples; else a complaint. */
bool is_evenly_sampled(KSSac *kssac, const std::string &path);

/* NET.STA.LOC.CHAN, of the parts that are known; empty for none. */
std::string channel_name(KSSac *kssac);

}  // namespace ksutil::tools
#endif
