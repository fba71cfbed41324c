/* field_attributes: attributes of a namespace of our own, which the schema of QuakeML lets
 * pass: for the fields of a database that QuakeML has no element for.
 *
 * Their local names are those of tables and fields.  Other programs skip them. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_FIELD_ATTRIBUTES_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_FIELD_ATTRIBUTES_H

#include <algorithm>
#include <array>
#include <string_view>

namespace ksutil::exchange {

inline constexpr const char *kFieldSpace = "urn:ksutil:fields";

inline constexpr const char *kEtypeField = "origin.etype";  // of event
/* Of event: its ids beyond the identifier, with blanks between them. */
inline constexpr const char *kFurtherIdsField = "publicid.textid";
inline constexpr const char *kDtypeField = "origin.dtype";  // of origin
/* Of origin and of magnitude: "-" when the row has no count, no type. */
inline constexpr const char *kNassField = "origin.nass";
inline constexpr const char *kMagtypeField = "netmag.magtype";
inline constexpr const char *kAlgorithmField = "origin.algorithm";
/* Of originUncertainty: sxx, syy, szz, stt, sxy, sxz, syz, stx, sty, stz. */
inline constexpr const char *kCovarianceField = "origerr.covariance";
/* Of originUncertainty: "computed" when the ellipse comes from the covariance. */
inline constexpr const char *kEllipseField = "origerr.ellipse";
/* Of arrival: the fields of assoc. */
inline constexpr const char *kBeliefField = "assoc.belief";
inline constexpr const char *kSeazField = "assoc.seaz";
inline constexpr const char *kEmaresField = "assoc.emares";
inline constexpr const char *kTimedefField = "assoc.timedef";
inline constexpr const char *kAzdefField = "assoc.azdef";
inline constexpr const char *kSlodefField = "assoc.slodef";
inline constexpr const char *kVmodelField = "assoc.vmodel";
/* Of pick: the fields of arrival; period and ratio when there is no amplitude. */
inline constexpr const char *kEmaField = "arrival.ema";
inline constexpr const char *kRectField = "arrival.rect";
inline constexpr const char *kPerField = "arrival.per";
inline constexpr const char *kSnrField = "arrival.snr";
/* Of stationMagnitude: its phase, the id of a pick without an amplitude, and whether it
 * counts where no contribution says so. */
inline constexpr const char *kMagdefField = "stamag.magdef";
inline constexpr const char *kStamagPhaseField = "stamag.phase";
inline constexpr const char *kStamagPickField = "stamag.arid";
/* Of focalMechanism: the moment magnitude, "-" when the row has none beside a magid. */
inline constexpr const char *kMwField = "mt.mw";
/* "-" when the tensor has no centroid. */
inline constexpr const char *kCtimeField = "mt.ctime";
inline constexpr const char *kMtAlgorithmField = "mt.algorithm";
/* Of origin: "1" when it is the centroid of a tensor alone, and no row of origin. */
inline constexpr const char *kCentroidField = "mt.centroid";

inline bool is_field_attribute(std::string_view name) {
  constexpr std::array<std::string_view, 26> kFields{
      kEtypeField,      kDtypeField,   kAlgorithmField,   kCovarianceField,
      kBeliefField,     kSeazField,    kEmaresField,      kTimedefField,
      kAzdefField,      kSlodefField,  kVmodelField,      kEmaField,
      kRectField,       kPerField,     kSnrField,         kStamagPhaseField,
      kStamagPickField, kMwField,      kMtAlgorithmField, kCentroidField,
      kNassField,       kMagtypeField, kFurtherIdsField,  kEllipseField,
      kMagdefField,     kCtimeField};
  return std::find(kFields.begin(), kFields.end(), name) != kFields.end();
}

}  // namespace ksutil::exchange
#endif
