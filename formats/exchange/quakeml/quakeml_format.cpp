#include "formats/exchange/quakeml/quakeml_format.h"

#include "formats/exchange/quakeml/bulletin_reader.h"
#include "formats/exchange/quakeml/quakeml_mappings.h"

namespace ksutil::exchange {
namespace {

bool is_quakeml(const Beginning &beginning) {
  return beginning.root == "quakeml" || beginning.root == "eventparameters";
}

std::unique_ptr<Reader> open_quakeml(Input &input, std::string &) {
  return std::make_unique<BulletinReader>(input, kQuakemlDialect);
}

}  // namespace

const Format kQuakemlFormat{"quakeml",    "QuakeML 1.2", is_quakeml,
                            open_quakeml, nullptr,       kQuakemlMappings};

}  // namespace ksutil::exchange
