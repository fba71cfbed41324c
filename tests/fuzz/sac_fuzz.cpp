/* SAC files: header and samples of whatever is accepted can be had. */
#include <cstdlib>

#include "formats/kssac.h"
#include "platform/stock/memory.h"
#include "tests/fuzz/subject.h"

void ksutil::fuzz::read_input(std::string_view input) {
  KSSac *const sac = kssac_read_from_file_kssac(file_of(input), "fuzz", nullptr);
  if (sac == nullptr) return;
  Tbl *header = nullptr;
  require(kssac_header_2_tbl(sac, &header) == 0 && kssac_tbl_2_header(header, sac) == 0,
          "a header goes to a table and back");
  kssac_free_header_tbl(header);
  long nsamp = 0;
  double time = 0, samprate = 0;
  float *samples = nullptr;
  if (kssac_getdata_kssac(sac, &nsamp, &time, &samprate, &samples, nullptr) == 0) {
    require(nsamp < 1 || samples != nullptr, "samples come with their number");
  }
  const MallocPtr<float> owned(samples);
  kssac_free_kssac(sac);
}
