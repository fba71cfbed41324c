/* ElementValues: reads the values of elements of QuakeML and of the sc3ml dialect.
 *
 * The dialects differ in units and in a few names; everything else is the same. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_ELEMENT_VALUES_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_ELEMENT_VALUES_H

#include <cfloat>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/records.h"
#include "formats/exchange/text/xml_element.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

struct XmlDialect {
  double km = 1e-3;               // a unit of depths and their errors in km
  const char *magnitude = "mag";  // the value of a magnitude
  const char *amplitude = "genericAmplitude";
  const char *uncertainty = "originUncertainty";
  const char *takeoff = "takeoffAngle";
};
inline constexpr XmlDialect kQuakemlDialect{};
inline constexpr XmlDialect kSc3mlDialect{1.0, "magnitude", "amplitude", "uncertainty",
                                          "takeOffAngle"};

/* A date of XML: as the clock reads them, with "Z" or an offset from UTC ("+05:30"). */
bool parse_xml_time(std::string_view text, double &epoch);

/* What follows the authority of a resource identifier and says something: its last part,
 * with the one before when it is a number ("smi:a.b/methods/NLL/3": "NLL/3"). */
std::string last_part(std::string_view identifier);

/* A text in one line: blanks, line breaks and control characters that stand together become
 * one blank when one of them is not a blank. */
std::string one_line(std::string_view text);

class ElementValues {
 public:
  /* Of an element.  `problem` is set by the first value that cannot be understood and that
   * the event needs; `left_out` counts the others. */
  ElementValues(const XmlElement &element, std::string &problem,
                UnplacedCounts &left_out)
      : element_(element), problem_(problem), left_out_(left_out) {}

  /* A number at a path, times `unit`, when it is given.  One that is not within the bounds
   * stays null and is counted. */
  void real(std::string_view path, double &value, double unit = 1.0,
            double low = -DBL_MAX, double high = DBL_MAX) const;
  /* As real(), for a number beyond whose bounds the event is refused.  NaN, which some
   * programs write for a number that is not known, is none. */
  void needed(std::string_view path, double &value, double unit = 1.0,
              double low = -DBL_MAX, double high = DBL_MAX) const;
  /* As real(), in degrees: from 0 to 360, to which others are turned. */
  void azimuth(std::string_view path, double &value) const;
  void count(std::string_view path, std::int64_t &value) const;
  void time(std::string_view path, double &value) const;
  std::string text(std::string_view path) const {
    return one_line(element_.text_of(path));
  }

  /* creationInfo: the agency, else the author; and when it was made or, in the dialect,
   * changed, if that is later than `latest`. */
  std::string author() const;
  void created(double &latest) const;  // counts what is not a time
  /* evaluationStatus, else evaluationMode. */
  std::string status() const;
  void comments(std::vector<std::string> &texts) const;
  ChannelCode channel() const;  // waveformID
  /* An attribute of field_attributes.h, when it is given. */
  void field(const char *name, double &value) const;
  void field(const char *name, std::string &value) const;
  void field(const char *name, char &value) const;
  /* The covariance among them; false without one. */
  bool covariance(Covariance &covariance) const;
  std::string id() const { return element_.attribute("publicID"); }

 private:
  enum class Got { kNothing, kValue, kFault };
  Got read(std::string_view path, double &value, double unit, double low,
           double high) const;
  void refuse(std::string_view path, const std::string &text) const;

  const XmlElement &element_;
  std::string &problem_;
  UnplacedCounts &left_out_;
};

}  // namespace ksutil::exchange
#endif
