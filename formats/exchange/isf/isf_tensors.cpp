#include "formats/exchange/isf/isf_tensors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "formats/exchange/text/columns.h"

namespace ksutil::exchange {
namespace {

constexpr Range kScales{-10.0, 40.0};
constexpr Range kAngles{-360.0, 360.0};
constexpr double kNull = -999.0;

/* The last mechanism of an author that lacks a value; a new one when there is none. */
template <class Lacks>
MomentTensor &tensor_for(Origin &origin, const std::string &author, Lacks lacks) {
  const auto found = std::find_if(
      origin.tensors.rbegin(), origin.tensors.rend(),
      [&](const MomentTensor &t) { return t.author == author && lacks(t); });
  if (found != origin.tensors.rend()) return *found;
  origin.tensors.emplace_back().author = author;
  return origin.tensors.back();
}

IsfTensors::Took took(const Columns &columns, std::string &problem) {
  problem = columns.problem();
  return columns.good() ? IsfTensors::Took::kYes : IsfTensors::Took::kRefused;
}

double scaled(double value, double unit) {
  return value > kNull ? value * unit : kNull;
}

}  // namespace

IsfTensors::Took IsfTensors::take(std::string_view line, Origin &origin,
                                  std::string &problem) {
  without_place_ = nullptr;
  const std::string_view comment = line.substr(std::min<std::size_t>(line.size(), 1));
  if (comment.starts_with("(#MOMTENS")) {
    open_ = Open::kTensor;
    return Took::kYes;
  }
  if (comment.starts_with("(#FAULT_PLANE")) {
    open_ = Open::kPlanes;
    return Took::kYes;
  }
  if (comment.starts_with("(#PRINAX")) {
    open_ = Open::kAxes;
    return Took::kYes;
  }
  const bool more = comment.starts_with("(#  ") || comment.starts_with("(+");
  if (!more) open_ = Open::kNone;
  if (open_ == Open::kNone) return Took::kNo;
  switch (open_) {
    case Open::kTensor:
      return line.find("eM0") != line.npos ? Took::kYes
                                           : take_tensor(line, origin, problem);
    case Open::kTensorErrors:
      return take_tensor_errors(line, origin, problem);
    case Open::kPlanes:
      return take_plane(line, origin, problem);
    default:
      return take_axes(line, origin, problem);
  }
}

IsfTensors::Took IsfTensors::take_tensor(std::string_view line, Origin &origin,
                                         std::string &problem) {
  Columns columns(line);
  double scale = 0.0, moment = kNull, clvd = kNull;
  std::array<double, 6> values{kNull, kNull, kNull, kNull, kNull, kNull};
  std::int64_t body = -1, mantle = -1;
  columns.needed(12, 13, "moment scale");
  columns.real(12, 13, "moment scale", kScales, scale);
  columns.real(15, 19, "M0", kNotNegative, moment);
  columns.real(21, 25, "fCLVD", kAnyReal, clvd);
  for (std::size_t i = 0; i < values.size(); i++) {
    columns.real(27 + 7 * i, 32 + 7 * i, "moment tensor element", kAnyReal, values[i]);
  }
  columns.count(69, 72, "NST1", body);
  columns.count(74, 77, "NST2", mantle);
  open_ = columns.good() ? Open::kTensorErrors : Open::kNone;
  if (!columns.good()) return took(columns, problem);
  const double unit = std::pow(10.0, scale);
  MomentTensor &tensor = origin.tensors.emplace_back();
  tensor.author = record_text(columns.text(79, 87));
  /* MRR MTT MPP MRT MTP MPR become rr tt pp rt rp tp. */
  static constexpr std::array<std::size_t, 6> kOrder{0, 1, 2, 3, 5, 4};
  for (std::size_t i = 0; i < values.size(); i++) {
    tensor.elements[i] = scaled(values[kOrder[i]], unit);
  }
  tensor.moment = scaled(moment, unit);
  if (tensor.moment > 0.0) tensor.mw = (std::log10(tensor.moment) - 9.1) / 1.5;
  if (clvd > kNull) tensor.clvd = 100.0 * clvd;
  tensor.stations = std::max(body, mantle);
  return Took::kYes;
}

IsfTensors::Took IsfTensors::take_tensor_errors(std::string_view line, Origin &origin,
                                                std::string &problem) {
  Columns columns(line);
  std::int64_t body = -1, mantle = -1;
  columns.count(69, 72, "NCO1", body);
  columns.count(74, 77, "NCO2", mantle);
  open_ = Open::kNone;
  if (!columns.blank(15, 67)) without_place_ = "errors of moment tensors";
  if (!columns.good() || origin.tensors.empty()) return took(columns, problem);
  if (body >= 0 || mantle >= 0) {
    origin.tensors.back().components =
        std::max<std::int64_t>(body, 0) + std::max<std::int64_t>(mantle, 0);
  }
  return Took::kYes;
}

IsfTensors::Took IsfTensors::take_plane(std::string_view line, Origin &origin,
                                        std::string &problem) {
  Columns columns(line);
  std::array<double, 3> plane{kNull, kNull, kNull};
  std::int64_t stations = -1;
  columns.real(20, 25, "strike", kAngles, plane[0]);
  columns.real(27, 31, "dip", kAngles, plane[1]);
  columns.real(33, 39, "rake", kAngles, plane[2]);
  columns.count(45, 47, "NS", stations);
  if (!columns.blank(41, 43)) without_place_ = "number of polarities of a fault plane";
  if (!columns.good()) return took(columns, problem);
  if (plane[0] <= kNull) return Took::kYes;
  if (line.starts_with(" (+")) {
    if (!origin.tensors.empty()) origin.tensors.back().plane2 = plane;
    return Took::kYes;
  }
  MomentTensor &tensor =
      tensor_for(origin, record_text(columns.text(55, 63)),
                 [](const MomentTensor &t) { return t.plane1[0] <= kNull; });
  tensor.plane1 = plane;
  if (tensor.stations < 0) tensor.stations = stations;
  if (tensor.algorithm.empty()) tensor.algorithm = record_text(columns.text(16, 18));
  return Took::kYes;
}

IsfTensors::Took IsfTensors::take_axes(std::string_view line, Origin &origin,
                                       std::string &problem) {
  if (line.find("eT_val") != line.npos || line.find("eTv") != line.npos) {
    return Took::kYes;
  }
  if (line.starts_with(" (+")) {
    without_place_ = "errors of principal axes";
    return Took::kYes;
  }
  Columns columns(line);
  double scale = 0.0;
  std::array<double, 9> values{kNull, kNull, kNull, kNull, kNull,
                               kNull, kNull, kNull, kNull};
  columns.real(11, 12, "axis scale", kScales, scale);
  for (std::size_t axis = 0; axis < 3; axis++) {
    columns.real(14 + 20 * axis, 19 + 20 * axis, "axis value", kAnyReal,
                 values[3 * axis]);
    columns.real(21 + 20 * axis, 26 + 20 * axis, "axis azimuth", kAngles,
                 values[3 * axis + 2]);
    columns.real(28 + 20 * axis, 32 + 20 * axis, "axis plunge", kAngles,
                 values[3 * axis + 1]);
  }
  if (!columns.good()) return took(columns, problem);
  MomentTensor &tensor =
      tensor_for(origin, record_text(columns.text(74, 82)),
                 [](const MomentTensor &t) { return t.axes[1] <= kNull; });
  for (std::size_t axis = 0; axis < 3; axis++) {
    values[3 * axis] = scaled(values[3 * axis], std::pow(10.0, scale));
  }
  tensor.axes = values;
  return Took::kYes;
}

}  // namespace ksutil::exchange
