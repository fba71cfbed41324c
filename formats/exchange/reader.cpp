#include "formats/exchange/reader.h"

#include "formats/exchange/ndk_reader.h"
#include "formats/exchange/table_reader.h"

namespace ksutil::exchange {

std::unique_ptr<Reader> open_reader(Input &input, const Recognised &kind,
                                    std::string &problem) {
  switch (kind.kind) {
    case Kind::kCsv:
    case Kind::kFdsnText: {
      const bool fdsn = kind.kind == Kind::kFdsnText;
      const char delimiter = kind.delimiter != 0 ? kind.delimiter
                             : fdsn              ? '|'
                                                 : delimiter_of(input.head());
      auto reader = std::make_unique<TableReader>(input, delimiter, !fdsn);
      if (!reader->begin(problem)) return nullptr;
      return reader;
    }
    case Kind::kNdk:
      return std::make_unique<NdkReader>(input);
    case Kind::kEmpty:
      problem = input.name() + " is empty";
      return nullptr;
    default:
      break;
  }
  problem = input.name() + " is " + kind.name + ", which is not read";
  if (!kind.hint.empty()) problem += " (" + kind.hint + ")";
  return nullptr;
}

}  // namespace ksutil::exchange
