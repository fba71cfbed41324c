#include "formats/exchange/sc3ml/sc3ml_format.h"

#include "formats/exchange/quakeml/bulletin_reader.h"
#include "formats/exchange/quakeml/quakeml_mappings.h"

namespace ksutil::exchange {
namespace {

bool is_sc3ml(const Beginning &beginning) { return beginning.root == "seiscomp"; }

std::unique_ptr<Reader> open_sc3ml(Input &input, std::string &) {
  return std::make_unique<BulletinReader>(input, kSc3mlDialect);
}

}  // namespace

const Format kSc3mlFormat{.word = "sc3ml",
                          .name = "sc3ml",
                          .recognise = is_sc3ml,
                          .open_reader = open_sc3ml,
                          .mappings = kQuakemlMappings,
                          .shows_its_end = true};

}  // namespace ksutil::exchange
