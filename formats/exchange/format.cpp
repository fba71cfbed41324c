#include <algorithm>
#include <array>
#include <cctype>

#include "formats/exchange/fdsn_station/fdsn_station_formats.h"
#include "formats/exchange/format.h"
#include "formats/exchange/geojson/geojson_format.h"
#include "formats/exchange/gse/gse_format.h"
#include "formats/exchange/isf/isf_format.h"
#include "formats/exchange/json/json_format.h"
#include "formats/exchange/kml/kml_format.h"
#include "formats/exchange/ndk/ndk_format.h"
#include "formats/exchange/nonlinloc/nonlinloc_format.h"
#include "formats/exchange/nordic/nordic_format.h"
#include "formats/exchange/pha/pha_format.h"
#include "formats/exchange/quakeml/quakeml_format.h"
#include "formats/exchange/sc3ml/sc3ml_format.h"
#include "formats/exchange/stationxml/stationxml_format.h"
#include "formats/exchange/table/table_formats.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

/* More exact recognitions stand first: a table is whatever names known columns. */
constexpr std::array<const Format *, 18> kFormats{&kGeojsonFormat,
                                                  &kQuakemlFormat,
                                                  &kSc3mlFormat,
                                                  &kStationXmlFormat,
                                                  &kFdsnNetworkFormat,
                                                  &kFdsnStationFormat,
                                                  &kFdsnChannelFormat,
                                                  &kNdkFormat,
                                                  &kIsfFormat,
                                                  &kGseFormat,
                                                  &kNordicFormat,
                                                  &kNonLinLocFormat,
                                                  &kNonLinLocObservationFormat,
                                                  &kPhaFormat,
                                                  &kFdsnTextFormat,
                                                  &kCsvFormat,
                                                  &kJsonLinesFormat,
                                                  &kKmlFormat};

struct Signature {
  std::string_view bytes, name, hint;
};

/* Binary files, by the bytes at their beginning. */
constexpr std::array<Signature, 9> kSignatures{{
    {"\x1f\x8b", "a gzip archive", "zcat FILE | ksdb import - DATABASE"},
    {"BZh", "a bzip2 archive", "bzcat FILE | ksdb import - DATABASE"},
    {"\xfd"
     "7zXZ",
     "an xz archive", "xzcat FILE | ksdb import - DATABASE"},
    {"\x28\xb5\x2f\xfd", "a zstd archive", "zstdcat FILE | ksdb import - DATABASE"},
    {"PK\x03\x04", "a zip archive or a spreadsheet", "export the sheet as CSV"},
    {"SQLite format 3", "an SQLite database", ""},
    {"%PDF", "a PDF document", ""},
    {"\x89PNG", "a picture", ""},
    {"\x7f"
     "ELF",
     "a program", ""},
}};

/* XML files that are not of a format, by the name of their root element, without its
 * namespace prefix. */
constexpr std::array<Signature, 4> kRoots{{
    {"kml", "KML, which has no place for what a catalogue needs", ""},
    {"html", "an HTML page", "the address may need other parameters"},
    {"rss", "a news feed", ""},
    {"feed", "a news feed", ""},
}};

bool starts_with_word(std::string_view text, std::string_view word) {
  return lowered(text.substr(0, word.size())) == lowered(word);
}

/* The name of the root element of an XML text, in lower case, without its prefix. */
std::string root_element(std::string_view head) {
  for (std::size_t at = head.find('<'); at != head.npos; at = head.find('<', at + 1)) {
    const char next = at + 1 < head.size() ? head[at + 1] : '\0';
    if (next == '?') continue;
    if (next == '!') {
      if (starts_with_word(head.substr(at), "<!doctype html")) return "html";
      if (head.substr(at).starts_with("<!--")) {
        at = head.find("-->", at);
        if (at == head.npos) break;
      }
      continue;
    }
    const std::size_t end = head.find_first_of(" \t\r\n/>", at);
    std::string_view name = head.substr(at + 1, std::min(end, head.size()) - at - 1);
    const std::size_t colon = name.find(':');
    if (colon != name.npos) name.remove_prefix(colon + 1);
    return lowered(name.substr(0, 40));
  }
  return "";
}

bool is_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isdigit(c) != 0;
  });
}

bool is_binary(std::string_view head) {
  const std::string_view begin = head.substr(0, 4096);
  return std::any_of(begin.begin(), begin.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < ' ' && c != '\n' && c != '\r' && c != '\t' && c != '\f';
  });
}

bool is_miniseed(std::string_view head) {
  return head.size() > 48 && is_digits(head.substr(0, 6)) &&
         (head[6] == 'D' || head[6] == 'R' || head[6] == 'Q' || head[6] == 'M') &&
         (head[7] == ' ' || head[7] == '\0');
}

Recognised other(std::string_view name, std::string_view hint = "") {
  return {nullptr, false, std::string(name), std::string(hint)};
}

/* What an input is that no format recognises. */
Recognised name_other(const Beginning &beginning) {
  const std::string_view line = beginning.first_line;
  if (line.front() == '<') {
    for (const Signature &known : kRoots) {
      if (beginning.root == known.bytes) return other(known.name, known.hint);
    }
    return other(
        beginning.root.empty() ? "XML" : "XML with the root element " + beginning.root);
  }
  if (line.front() == '{' || line.front() == '[') {
    return other(beginning.text.find("\"FeatureCollection\"") != beginning.text.npos
                     ? "GeoJSON"
                     : "JSON");
  }
  if (line.front() == '#' && line.find('|') != line.npos) {
    return other("FDSN text that is not about events");
  }
  return other("text without known column names",
               "a catalogue begins with a line like time,latitude,longitude,id");
}

}  // namespace

std::string_view first_text_line(std::string_view head) {
  const std::size_t begin = head.find_first_not_of(" \t\r\n");
  if (begin == head.npos) return {};
  head.remove_prefix(begin);
  return head.substr(0, head.find_first_of("\r\n"));
}

std::span<const Format *const> formats() { return kFormats; }

const Format *format_of_word(std::string_view word) {
  const auto found = std::find_if(kFormats.begin(), kFormats.end(),
                                  [&](const Format *f) { return f->word == word; });
  return found == kFormats.end() ? nullptr : *found;
}

Recognised recognise(std::string_view head) {
  for (const Signature &signature : kSignatures) {
    if (head.starts_with(signature.bytes)) return other(signature.name, signature.hint);
  }
  if (is_miniseed(head)) return other("a miniSEED file of waveforms");
  Beginning beginning{head, first_text_line(head), ""};
  if (beginning.first_line.starts_with('<')) beginning.root = root_element(head);
  for (const Format *format : kFormats) {
    if (format->recognise != nullptr && !beginning.first_line.empty() &&
        format->recognise(beginning)) {
      return {format, false, format->name, ""};
    }
  }
  if (is_binary(head)) return other("a binary file");
  if (beginning.first_line.empty()) return {nullptr, true, "an empty file", ""};
  return name_other(beginning);
}

namespace {

/* Why an input is not read as what the caller asks for. */
std::string refusal(const Input &input, const Recognised &kind, const char *wanted) {
  if (kind.empty) return input.name() + " is empty";
  if (kind.format != nullptr) {
    return input.name() + " is " + kind.format->name + ", which does not hold " +
           wanted;
  }
  std::string problem = input.name() + " is " + kind.name + ", which is not read";
  if (!kind.hint.empty()) problem += " (" + kind.hint + ")";
  return problem;
}

}  // namespace

std::unique_ptr<Reader> open_reader(Input &input, const Recognised &kind,
                                    std::string &problem) {
  if (kind.format != nullptr && kind.format->open_reader != nullptr) {
    return kind.format->open_reader(input, problem);
  }
  problem = refusal(input, kind, "events");
  return nullptr;
}

std::unique_ptr<StationReader> open_station_reader(Input &input, const Recognised &kind,
                                                   std::string &problem) {
  if (kind.format != nullptr && kind.format->open_station_reader != nullptr) {
    return kind.format->open_station_reader(input, problem);
  }
  problem = refusal(input, kind, "stations");
  return nullptr;
}

}  // namespace ksutil::exchange
