/* IsfTensors: the formatted comments of an origin that give its mechanism: (#MOMTENS),
 * (#FAULT_PLANE) and (#PRINAX).
 *
 * The system is up, south, east; moments are in N m times ten to the power of `sc`.  Planes
 * and axes join the last tensor of the origin that has the same author and lacks them;
 * else they make a mechanism of their own. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_ISF_TENSORS_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_ISF_TENSORS_H

#include <string>
#include <string_view>

#include "formats/exchange/records.h"

namespace ksutil::exchange {

class IsfTensors {
 public:
  /* Forgets what comment is open. */
  void close() { open_ = Open::kNone; }

  enum class Took { kYes, kNo, kRefused };
  /* Takes a comment line, from the blank before its parenthesis on.  kNo: it is another comment.
   * kRefused: for the reason in `problem`. */
  Took take(std::string_view line, Origin &origin, std::string &problem);

  /* The value of the last line that a record has no place for; null: none. */
  const char *without_place() const { return without_place_; }

 private:
  enum class Open { kNone, kTensor, kTensorErrors, kPlanes, kAxes };
  Took take_tensor(std::string_view line, Origin &origin, std::string &problem);
  Took take_tensor_errors(std::string_view line, Origin &origin, std::string &problem);
  Took take_plane(std::string_view line, Origin &origin, std::string &problem);
  Took take_axes(std::string_view line, Origin &origin, std::string &problem);

  Open open_ = Open::kNone;
  const char *without_place_ = nullptr;
};

}  // namespace ksutil::exchange
#endif
