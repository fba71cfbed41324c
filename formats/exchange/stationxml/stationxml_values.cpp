#include "formats/exchange/stationxml/stationxml_values.h"

#include <cctype>
#include <cmath>

#include "platform/stock/text.h"

namespace ksutil::exchange {

double own_number(const XmlElement &element) {
  double value = 0.0;
  if (parse_real(element.text, value) && std::isfinite(value)) return value;
  throw ValueFault{element.line, element.name + " '" + element.text.substr(0, 40) +
                                     "' is not a number"};
}

double number_of(const XmlElement &element, std::string_view path, double missing) {
  const XmlElement *found = element.find(path);
  return found == nullptr ? missing : own_number(*found);
}

double needed_number(const XmlElement &element, std::string_view path) {
  const XmlElement *found = element.find(path);
  if (found != nullptr) return own_number(*found);
  throw ValueFault{element.line, element.name + " has no " + std::string(path)};
}

std::string unit_of(const XmlElement &element, std::string_view path) {
  const XmlElement *found = element.find(path);
  if (found == nullptr) return "";
  found->find("Description");  // says the name again in words
  std::string name(trimmed(found->text_of("Name")));
  for (char &c : name)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

}  // namespace ksutil::exchange
