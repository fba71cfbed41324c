/* Bulletins in text: the first byte chooses the format, so that its reader also meets what
 * would not be recognised.  What is read is written as ISF and read again.
 * Words: formats/exchange/gse formats/exchange/isf formats/exchange/nordic
 * formats/exchange/nonlinloc formats/exchange/pha */
#include <array>
#include <string>

#include "formats/exchange/format.h"
#include "tests/fuzz/subject.h"
#include "tests/support/kept_text.h"

namespace {

using namespace ksutil;

void read_with(const exchange::Format &format, std::string_view bytes,
               exchange::Writer *writer) {
  std::string problem;
  const auto input = exchange::Input::open(fuzz::file_of(bytes), problem);
  fuzz::require(input != nullptr, "a file can be opened");
  const auto reader = format.open_reader(*input, problem);
  fuzz::require(reader != nullptr || !problem.empty(), "a refusal has a reason");
  if (reader == nullptr) return;
  exchange::Event event;
  for (;;) {
    const exchange::Reader::Got got = reader->next(event);
    if (got == exchange::Reader::Got::kRefused) {
      fuzz::require(!reader->problem().empty(), "a refused line has a reason");
      continue;
    }
    if (got != exchange::Reader::Got::kRecord) return;
    fuzz::require(!event.id.empty() && event.preferred < event.origins.size(),
                  "a record has an id and an origin");
    for (const exchange::Origin &origin : event.origins) {
      for (const exchange::Association &association : origin.associations) {
        fuzz::require(static_cast<std::size_t>(association.pick) < event.picks.size(),
                      "a phase has a pick");
      }
    }
    if (writer != nullptr) writer->put(event);
  }
}

}  // namespace

void ksutil::fuzz::read_input(std::string_view bytes) {
  static constexpr std::array<const char *, 5> kWords{"isf", "gse", "nordic",
                                                      "nonlinloc", "pha"};
  if (bytes.empty()) return;
  const auto choice = static_cast<unsigned char>(bytes[0]) % kWords.size();
  const exchange::Format &isf = *exchange::format_of_word("isf");
  test::KeptText kept;
  const auto writer = isf.open_writer(kept);
  writer->begin();
  read_with(*exchange::format_of_word(kWords[choice]), bytes.substr(1), writer.get());
  writer->end();
  read_with(isf, kept.text, nullptr);
}
