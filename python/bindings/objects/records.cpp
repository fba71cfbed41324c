#include "bindings/objects/records.h"

#include <array>

namespace ksutil::python {
namespace {

/* Never destroyed: records may be freed after the static objects have gone. */
std::array<std::mutex, kFamilyCount> &family_locks() {
  static auto *const locks = new std::array<std::mutex, kFamilyCount>;
  return *locks;
}

}  // namespace

std::mutex &lock_of(Family family) {
  return family_locks()[static_cast<std::size_t>(family)];
}

}  // namespace ksutil::python
