#include "formats/exchange/quakeml/quakeml_format.h"

#include "formats/exchange/quakeml/bulletin_reader.h"
#include "formats/exchange/quakeml/quakeml_mappings.h"
#include "formats/exchange/quakeml/quakeml_writer.h"

namespace ksutil::exchange {
namespace {

bool is_quakeml(const Beginning &beginning) {
  return beginning.root == "quakeml" || beginning.root == "eventparameters";
}

std::unique_ptr<Reader> open_quakeml(Input &input, std::string &) {
  return std::make_unique<BulletinReader>(input, kQuakemlDialect);
}

std::unique_ptr<Writer> open_quakeml_writer(TextSink &sink) {
  return std::make_unique<QuakeMlWriter>(sink);
}

}  // namespace

const Format kQuakemlFormat{.word = "quakeml",
                            .name = "QuakeML 1.2",
                            .recognise = is_quakeml,
                            .open_reader = open_quakeml,
                            .open_writer = open_quakeml_writer,
                            .mappings = kQuakemlMappings,
                            .shows_its_end = true};

}  // namespace ksutil::exchange
