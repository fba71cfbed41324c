/* quakeml_writer_mechanisms: the part of QuakeMlWriter that writes focal mechanisms. */
#include <algorithm>
#include <array>

#include "formats/exchange/quakeml/field_attributes.h"
#include "formats/exchange/quakeml/quakeml_writer.h"
#include "formats/exchange/quakeml/quakeml_writer_values.h"

namespace ksutil::exchange {

using namespace quakeml;

namespace {

bool has_planes(const std::array<double, 3> &plane) {
  return std::all_of(plane.begin(), plane.end(),
                     [](double angle) { return angle != kNone; });
}

}  // namespace

void QuakeMlWriter::put_centroid(const MomentTensor &tensor, const std::string &id) {
  xml_.open("origin");
  xml_.attribute("publicID", id);
  put_field(kCentroidField, "1");
  put_quantity("time", utc_text(tensor.time));
  put_quantity("longitude", number_text(tensor.lon));
  put_quantity("latitude", number_text(tensor.lat));
  put_quantity("depth",
               tensor.depth == kNone ? "" : scaled_text(tensor.depth, kMetres));
  xml_.element("type", "centroid");
  put_creation(tensor.author, 0.0);
  xml_.close();
}

void QuakeMlWriter::put_mechanism(const Event &event, std::size_t origin_index,
                                  const MomentTensor &tensor, const std::string &id) {
  std::string derived = origin_ids_[origin_index];
  const auto is_centroid = [&](const Origin &origin) {
    return origin.time == tensor.time && origin.lat == tensor.lat &&
           origin.lon == tensor.lon && origin.depth == tensor.depth;
  };
  if (has_centroid(tensor)) {
    const auto known =
        std::find_if(event.origins.begin(), event.origins.end(), is_centroid);
    if (known != event.origins.end()) {
      derived = origin_ids_[static_cast<std::size_t>(known - event.origins.begin())];
    } else {
      derived = id + "/centroid";
      put_centroid(tensor, derived);
    }
  }
  const bool placed = tensor.lat != kNone && tensor.lon != kNone;
  left_out_.add_if(!has_centroid(tensor) && placed, "centroids without a time");
  left_out_.add_if(!placed && (tensor.time != kNoTime || tensor.lat != kNone ||
                               tensor.lon != kNone || tensor.depth != kNone),
                   "centroids without a place");
  const bool tensor_given = is_given(tensor);
  xml_.open("focalMechanism");
  xml_.attribute("publicID", mechanism_id(tensor, id));
  const std::vector<Magnitude> &magnitudes = event.origins[origin_index].magnitudes;
  const bool same_mw =
      tensor_given && tensor.magnitude >= 0 &&
      magnitudes[static_cast<std::size_t>(tensor.magnitude)].value == tensor.mw;
  const bool other_mw = tensor_given && tensor.magnitude >= 0 && tensor.mw == kNone;
  if (!same_mw) put_field(kMwField, other_mw ? "-" : real(tensor.mw));
  if (tensor_given && !has_centroid(tensor)) put_field(kCtimeField, "-");
  put_name_field(kMtAlgorithmField, tensor.algorithm);
  xml_.element("triggeringOriginID", origin_ids_[origin_index]);
  put_planes(tensor);
  put_axes(tensor);
  put_method("methodID", tensor.algorithm);
  put_status(tensor.status);
  put_comments(tensor.comments);
  put_creation(tensor.author, 0.0);
  if (tensor_given) put_moment_tensor(origin_index, tensor, id, derived);
  xml_.close();
}

void QuakeMlWriter::put_moment_tensor(std::size_t origin_index,
                                      const MomentTensor &tensor, const std::string &id,
                                      const std::string &derived) {
  static constexpr std::array<const char *, 6> kElements{"Mrr", "Mtt", "Mpp",
                                                         "Mrt", "Mrp", "Mtp"};
  xml_.open("momentTensor");
  xml_.attribute("publicID", id);
  xml_.element("derivedOriginID", derived);
  if (tensor.magnitude >= 0) {
    xml_.element(
        "momentMagnitudeID",
        magnitude_ids_[origin_index][static_cast<std::size_t>(tensor.magnitude)]);
  }
  put_quantity("scalarMoment", real(tensor.moment));
  if (has_tensor(tensor)) {
    xml_.open("tensor");
    for (std::size_t i = 0; i < kElements.size(); i++) {
      put_quantity(kElements[i], number_text(tensor.elements[i]));
    }
    xml_.close();
  }
  const auto part = [](double percent) {
    return percent == kNone ? "" : scaled_text(percent, 1.0 / kPercent);
  };
  xml_.given("varianceReduction", real(tensor.variance_reduction));
  xml_.given("doubleCouple", part(tensor.double_couple));
  xml_.given("clvd", part(tensor.clvd));
  xml_.given("iso", part(tensor.isotropic));
  if (tensor.stations >= 0 || tensor.components >= 0) {
    xml_.open("dataUsed");
    xml_.element("waveType", "unknown");
    xml_.given("stationCount", count_text(tensor.stations));
    xml_.given("componentCount", count_text(tensor.components));
    xml_.close();
  }
  xml_.close();
}

void QuakeMlWriter::put_planes(const MomentTensor &tensor) {
  if (!has_planes(tensor.plane1) && !has_planes(tensor.plane2)) return;
  xml_.open("nodalPlanes");
  const auto put = [&](const char *name, const std::array<double, 3> &plane) {
    if (!has_planes(plane)) return;
    xml_.open(name);
    put_quantity("strike", number_text(plane[0]));
    put_quantity("dip", number_text(plane[1]));
    put_quantity("rake", number_text(plane[2]));
    xml_.close();
  };
  put("nodalPlane1", tensor.plane1);
  put("nodalPlane2", tensor.plane2);
  xml_.close();
}

void QuakeMlWriter::put_axes(const MomentTensor &tensor) {
  const auto given = [&](std::size_t from) {
    return tensor.axes[from + 1] != kNone && tensor.axes[from + 2] != kNone;
  };
  if (!given(0) || !given(6)) return;
  const auto put = [&](const char *name, std::size_t from) {
    if (!given(from)) return;
    xml_.open(name);
    put_quantity("azimuth", number_text(tensor.axes[from + 2]));
    put_quantity("plunge", number_text(tensor.axes[from + 1]));
    put_quantity("length", real(tensor.axes[from]));
    xml_.close();
  };
  xml_.open("principalAxes");
  put("tAxis", 0);
  put("pAxis", 6);
  put("nAxis", 3);
  xml_.close();
}

}  // namespace ksutil::exchange
