#include "formats/exchange/ndk/ndk_format.h"

#include "formats/exchange/ndk/ndk_reader.h"

namespace ksutil::exchange {
namespace {

bool is_ndk(const Beginning &beginning) {
  return is_ndk_hypocentre(beginning.first_line);
}

std::unique_ptr<Reader> open_ndk(Input &input, std::string &) {
  return std::make_unique<NdkReader>(input);
}

}  // namespace

const Format kNdkFormat{"ndk", "NDK moment tensors", is_ndk, open_ndk};

}  // namespace ksutil::exchange
