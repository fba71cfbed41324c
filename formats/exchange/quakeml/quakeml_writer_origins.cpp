/* quakeml_writer_origins: the part of QuakeMlWriter that writes origins and what is
 * associated with them. */
#include "formats/exchange/quakeml/field_attributes.h"
#include "formats/exchange/quakeml/quakeml_writer.h"
#include "formats/exchange/quakeml/quakeml_writer_values.h"

namespace ksutil::exchange {

using namespace quakeml;

namespace {

bool within(double value, double low, double high) {
  return value >= low && value <= high;
}

/* The depth in metres; "" for one that no origin can have. */
std::string depth_text(const Origin &origin) {
  return within(origin.depth, -100.0, 1000.0) ? scaled_text(origin.depth, kMetres) : "";
}

/* Whether there are errors, with their values, that a level of confidence speaks of. */
bool shows_errors(const Origin &origin) {
  return origin.rms >= 0.0 || origin.time_error >= 0.0 ||
         (origin.depth_error >= 0.0 && !depth_text(origin).empty()) ||
         origin.horizontal_error >= 0.0 || origin.major_axis >= 0.0 ||
         is_given(origin.covariance);
}

/* The ten numbers in the order of the fields of origerr; "" when none is given. */
std::string covariance_text(const Covariance &c) {
  if (!is_given(c)) return "";
  std::string text;
  for (const double value :
       {c.xx, c.yy, c.zz, c.tt, c.xy, c.xz, c.yz, c.tx, c.ty, c.tz}) {
    text += (text.empty() ? "" : " ") + number_text(value);
  }
  return text;
}

}  // namespace

void QuakeMlWriter::put_origin(const Event &event, std::size_t index) {
  const Origin &origin = event.origins[index];
  xml_.open("origin");
  xml_.attribute("publicID", origin_ids_[index]);
  const char *depth_type = origin.depth_type == 'f'   ? "from location"
                           : origin.depth_type == 'd' ? "constrained by depth phases"
                           : origin.depth_type == 'g' ? "operator assigned"
                           : origin.depth_type == 'r' ? "other"
                                                      : "";
  if (origin.depth_type != 0 &&
      std::string_view("fdg").find(origin.depth_type) == std::string_view::npos) {
    put_field(kDtypeField, std::string(1, origin.depth_type));
  }
  put_name_field(kAlgorithmField, origin.algorithm);
  if (origin.associated < 0 && !origin.associations.empty()) {
    put_field(kNassField, "-");
  }
  put_quantity("time", utc_text(origin.time), positive(origin.time_error));
  put_quantity("longitude", number_text(origin.lon));
  put_quantity("latitude", number_text(origin.lat));
  const std::string depth = depth_text(origin);
  put_quantity("depth", depth, positive(origin.depth_error, kMetres));
  left_out_.add_if(depth.empty() && origin.depth_error >= 0.0,
                   "errors without their values");
  xml_.given("depthType", depth_type);
  put_method("methodID", origin.algorithm);
  put_method("earthModelID", origin.earth_model);
  put_uncertainty(origin);
  put_quality(origin);
  put_status(origin.status);
  put_comments(origin.comments);
  put_creation(origin.author, 0.0);
  for (std::size_t i = 0; i < origin.associations.size(); i++) {
    put_association(origin.associations[i],
                    origin_ids_[index] + "/arrival/" + std::to_string(i + 1));
  }
  xml_.close();
}

void QuakeMlWriter::put_uncertainty(const Origin &origin) {
  const bool ellipse = origin.major_axis >= 0.0 &&
                       (origin.minor_axis >= 0.0 || origin.ellipse_strike >= 0.0);
  left_out_.add_if(origin.major_axis < 0.0 &&
                       (origin.minor_axis >= 0.0 || origin.ellipse_strike >= 0.0),
                   "ellipses without a major axis");
  const bool is_level = origin.confidence > 0.0 && origin.confidence <= 1.0;
  const bool leveled = is_level && shows_errors(origin);
  left_out_.add_if(is_level && !leveled, "levels of confidence without an error");
  const std::string covariance = covariance_text(origin.covariance);
  if (!ellipse && origin.horizontal_error < 0.0 && !leveled && covariance.empty()) {
    return;
  }
  xml_.open("originUncertainty");
  put_field(kCovarianceField, covariance);
  if (ellipse && origin.ellipse_computed) put_field(kEllipseField, "computed");
  xml_.given("horizontalUncertainty", positive(origin.horizontal_error, kMetres));
  if (ellipse) {
    xml_.given("minHorizontalUncertainty", positive(origin.minor_axis, kMetres));
    xml_.element("maxHorizontalUncertainty", positive(origin.major_axis, kMetres));
    xml_.given("azimuthMaxHorizontalUncertainty", positive(origin.ellipse_strike));
  }
  if (ellipse || origin.horizontal_error >= 0.0) {
    xml_.element("preferredDescription",
                 ellipse ? "uncertainty ellipse" : "horizontal uncertainty");
  }
  if (leveled)
    xml_.element("confidenceLevel", scaled_text(origin.confidence, kPercent));
  xml_.close();
}

void QuakeMlWriter::put_quality(const Origin &origin) {
  const bool any = origin.associated >= 0 || origin.phases >= 0 ||
                   origin.depth_phases >= 0 || origin.rms >= 0.0 || origin.gap >= 0.0 ||
                   origin.nearest >= 0.0;
  if (!any) return;
  xml_.open("quality");
  xml_.given("associatedPhaseCount", count_text(origin.associated));
  xml_.given("usedPhaseCount", count_text(origin.phases));
  xml_.given("depthPhaseCount", count_text(origin.depth_phases));
  xml_.given("standardError", positive(origin.rms));
  if (within(origin.gap, 0.0, 360.0)) {
    xml_.element("azimuthalGap", number_text(origin.gap));
  }
  xml_.given("minimumDistance", positive(origin.nearest));
  xml_.close();
}

void QuakeMlWriter::put_association(const Association &association,
                                    const std::string &id) {
  if (association.pick < 0) return left_out_.add("associations without arrivals");
  /* What was used in the location has a weight above 0. */
  const auto used = [](char letter) {
    return letter == 'd' ? "1" : letter == 'n' ? "0" : "";
  };
  const char implied = association.weight < 0.0   ? '\0'
                       : association.weight > 0.0 ? 'd'
                                                  : 'n';
  const auto letter_field = [&](const char *field, char letter, bool is_implied) {
    if (letter != 0 && !is_implied) put_field(field, std::string(1, letter));
  };
  const auto is_flag = [](char letter) { return letter == 'd' || letter == 'n'; };
  xml_.open("arrival");
  xml_.attribute("publicID", id);
  put_field(kBeliefField, positive(association.belief));
  put_field(kSeazField, real(association.seaz));
  put_field(kEmaresField, real(association.emergence_residual));
  letter_field(kTimedefField, association.time_used, association.time_used == implied);
  letter_field(kAzdefField, association.azimuth_used,
               is_flag(association.azimuth_used));
  letter_field(kSlodefField, association.slowness_used,
               is_flag(association.slowness_used));
  put_name_field(kVmodelField, association.earth_model);
  xml_.element("pickID", pick_ids_[static_cast<std::size_t>(association.pick)]);
  xml_.element("phase", association.phase);
  xml_.given("azimuth", real(association.esaz));
  xml_.given("distance", positive(association.delta));
  xml_.given("timeResidual", real(association.time_residual));
  xml_.given("horizontalSlownessResidual", real(association.slowness_residual));
  xml_.given("backazimuthResidual", real(association.azimuth_residual));
  xml_.given("timeWeight", positive(association.weight));
  xml_.given("horizontalSlownessWeight", used(association.slowness_used));
  xml_.given("backazimuthWeight", used(association.azimuth_used));
  put_method("earthModelID", association.earth_model);
  xml_.close();
}

}  // namespace ksutil::exchange
