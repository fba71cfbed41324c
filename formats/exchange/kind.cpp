#include "formats/exchange/kind.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "formats/exchange/ndk_reader.h"
#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

struct Signature {
  std::string_view bytes, name, hint;
};

/* Files that are no text: the bytes at their beginning. */
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

/* XML files by the name of their root element, without its namespace prefix. */
constexpr std::array<Signature, 7> kRoots{{
    {"quakeml", "QuakeML", ""},
    {"eventparameters", "QuakeML event parameters", ""},
    {"fdsnstationxml", "StationXML", ""},
    {"kml", "KML", ""},
    {"html", "an HTML page", "the address may need other parameters"},
    {"rss", "a news feed", ""},
    {"feed", "a news feed", ""},
}};

/* Bulletins by the beginning of their first line. */
constexpr std::array<Signature, 7> kBulletins{{
    {"BEGIN IMS", "an IMS 1.0 bulletin", ""},
    {"BEGIN GSE2", "a GSE2.0 bulletin", ""},
    {"DATA_TYPE BULLETIN", "an IMS 1.0 bulletin (ISF)", ""},
    {"DATA_TYPE EVENT", "an IMS 1.0 bulletin (ISF)", ""},
    {"DATA_TYPE", "an IMS 1.0 message", ""},
    {"NLLOC ", "a hypocentre-phase file of a location program", ""},
    {"PUBLIC_ID ", "a hypocentre-phase file of a location program", ""},
}};

constexpr std::array<std::string_view, 4> kColumns{"time", "latitude", "longitude",
                                                   "lat"};

std::string_view first_line(std::string_view head) {
  const std::size_t begin = head.find_first_not_of(" \t\r\n");
  if (begin == head.npos) return {};
  head.remove_prefix(begin);
  return head.substr(0, head.find_first_of("\r\n"));
}

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

/* A line of 80 columns that ends in the line type 1, with year, month and day before. */
bool is_nordic(std::string_view head) {
  std::string_view line = head.substr(0, head.find('\n'));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line.size() == 80 && line[79] == '1' && line[0] == ' ' &&
         is_digits(line.substr(1, 4));
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

/* Whether the words of a line between delimiters name columns of a catalogue. */
bool names_columns(std::string_view line, char delimiter) {
  const std::string text = lowered(line);
  for (std::size_t from = 0; from <= text.size();) {
    const std::size_t end = std::min(text.find(delimiter, from), text.size());
    std::string_view cell = trimmed(std::string_view(text).substr(from, end - from));
    while (!cell.empty() && (cell.front() == '"' || cell.front() == '#')) {
      cell.remove_prefix(1);
    }
    while (!cell.empty() && cell.back() == '"') cell.remove_suffix(1);
    cell = trimmed(cell);
    if (std::find(kColumns.begin(), kColumns.end(), cell) != kColumns.end())
      return true;
    from = end + 1;
  }
  return false;
}

Recognised other(std::string_view name, std::string_view hint = "") {
  return {Kind::kOther, std::string(name), std::string(hint), 0};
}

}  // namespace

char delimiter_of(std::string_view head) {
  const std::string_view line = first_line(head);
  char best = ',';
  for (const char delimiter : {',', ';', '\t', '|'}) {
    if (names_columns(line, delimiter) &&
        std::count(line.begin(), line.end(), delimiter) >
            std::count(line.begin(), line.end(), best)) {
      best = delimiter;
    }
  }
  return best;
}

Recognised recognise(std::string_view head) {
  for (const Signature &signature : kSignatures) {
    if (head.starts_with(signature.bytes)) return other(signature.name, signature.hint);
  }
  if (is_miniseed(head)) return other("a miniSEED file of waveforms");
  const std::string_view line = first_line(head);
  const char delimiter = delimiter_of(head);
  const bool table = !is_binary(line) && names_columns(line, delimiter);
  if (!table && is_binary(head)) return other("a binary file");
  if (line.empty()) return {Kind::kEmpty, "an empty file", "", 0};
  if (line.front() == '<') {
    const std::string root = root_element(head);
    for (const Signature &known : kRoots) {
      if (root == known.bytes) return other(known.name, known.hint);
    }
    return other(root.empty() ? "XML" : "XML with the root element " + root);
  }
  if (line.front() == '{' || line.front() == '[') {
    return other(head.find("\"FeatureCollection\"") != head.npos ? "GeoJSON" : "JSON");
  }
  for (const Signature &bulletin : kBulletins) {
    if (starts_with_word(line, bulletin.bytes)) return other(bulletin.name);
  }
  if (starts_with_word(line, "Event ") && head.find("OrigID") != head.npos) {
    return other("an IMS 1.0 bulletin (ISF)");
  }
  if (is_ndk_hypocentre(line)) return {Kind::kNdk, "NDK moment tensors", "", 0};
  if (line.front() == '#' && line.find('|') != line.npos) {
    if (lowered(line).find("eventid") != std::string::npos) {
      return {Kind::kFdsnText, "FDSN event text", "", '|'};
    }
    return other("FDSN text that is not about events");
  }
  if (is_nordic(head)) return other("a Nordic bulletin");
  if (table) {
    return {Kind::kCsv, "a table with column names", "", delimiter};
  }
  return other("text without known column names",
               "a catalogue begins with a line like time,latitude,longitude,id");
}

std::vector<std::string> format_words() { return {"csv", "fdsn", "ndk"}; }

Kind kind_of_word(std::string_view word) {
  if (word == "csv") return Kind::kCsv;
  if (word == "fdsn") return Kind::kFdsnText;
  if (word == "ndk") return Kind::kNdk;
  return Kind::kOther;
}

}  // namespace ksutil::exchange
