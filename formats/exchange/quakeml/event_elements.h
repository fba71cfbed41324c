/* EventElements: takes the elements of QuakeML events, and those of the sc3ml dialect, from
 * an XML reader into the parts of an event. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_EVENT_ELEMENTS_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_EVENT_ELEMENTS_H

#include <string>
#include <string_view>

#include "formats/exchange/quakeml/element_values.h"
#include "formats/exchange/quakeml/event_parts.h"
#include "formats/exchange/text/xml_reader.h"
#include "formats/exchange/unplaced.h"

namespace ksutil::exchange {

class EventElements {
 public:
  EventElements(XmlReader &reader, const XmlDialect &dialect, UnplacedCounts &left_out)
      : reader_(reader), dialect_(dialect), left_out_(left_out) {}

  /* After the beginning of an element "event": takes it with all that is in it.  False
   * when the text is faulty; a value that cannot be used sets the parts' problem. */
  bool take_event(EventParts &parts);

  /* After the beginning of another element: kTaken when it is a part of an event, kKept
   * when it is not. */
  XmlElement::Child take_part(EventParts &parts);

 private:
  bool take_origin(EventParts &parts);
  bool take_magnitude(EventParts &parts, const std::string &origin);
  bool take_element(EventParts &parts,
                    void (EventElements::*fill)(const XmlElement &, EventParts &));
  void fill_event(const XmlElement &element, EventParts &parts);
  void fill_pick(const XmlElement &element, EventParts &parts);
  void fill_amplitude(const XmlElement &element, EventParts &parts);
  void fill_station_magnitude(const XmlElement &element, EventParts &parts);
  void fill_mechanism(const XmlElement &element, EventParts &parts);
  void fill_origin(const XmlElement &element, OriginPart &part, EventParts &parts);
  void fill_errors(const XmlElement &element, Origin &origin, std::string &problem);
  void fill_covariance(const XmlElement &uncertainty, Origin &origin,
                       std::string &problem);
  void fill_arrival(const XmlElement &element, OriginPart &part, std::string &problem);
  void fill_tensor(const XmlElement &element, MechanismPart &part,
                   std::string &problem);
  /* Counts a record of the event; false, with its problem set, when there are too many. */
  bool count(EventParts &parts);
  /* Counts what of an element has no place. */
  void finish(const XmlElement &element);

  XmlReader &reader_;
  const XmlDialect &dialect_;
  UnplacedCounts &left_out_;
};

}  // namespace ksutil::exchange
#endif
