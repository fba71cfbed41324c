/* isf_values: fixed values of bulletins, which their reader and their writer share. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_ISF_VALUES_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_ISF_VALUES_H

namespace ksutil::exchange::isf {

inline constexpr double kConfidence = 0.9;  // of all errors and ellipses
inline constexpr double kDay = 86400.0;     // s
inline constexpr double kNone = -999.0;     // the null of real numbers in records

}  // namespace ksutil::exchange::isf
#endif
