/* Format: what an exchange format is called, how it is recognised, and what reads and
 * writes it.  Each format has a folder of its own, which defines its Format; the list of
 * all is in format.cpp. */
#ifndef KSUTIL_FORMATS_EXCHANGE_FORMAT_H
#define KSUTIL_FORMATS_EXCHANGE_FORMAT_H

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/reader.h"
#include "formats/exchange/stations/stations.h"
#include "formats/exchange/text/input.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

/* The beginning of an input, in the forms by which formats are recognised. */
struct Beginning {
  std::string_view text;        // the first few thousand bytes at least
  std::string_view first_line;  // that is not blank, from its first character on
  std::string root;  // name of the root element of XML, in lower case, without prefix
};

/* The first line that is not blank, from its first character on. */
std::string_view first_text_line(std::string_view text);

/* One line of the table of what goes where: a value of the format, and the field or fields
 * of the database ("origin.time") or the line of remark that holds it. */
struct Mapping {
  const char *value;
  const char *place;
};

struct Format {
  const char *word;  // that --format takes: "quakeml"
  const char *name;  // "QuakeML 1.2"
  /* Whether an input is of this format; null: only --format chooses it. */
  bool (*recognise)(const Beginning &beginning) = nullptr;
  /* Null: not read.  The input must outlive the reader.  A null result comes with
   * `problem` set: the input lacks what the format must have. */
  std::unique_ptr<Reader> (*open_reader)(Input &input, std::string &problem) = nullptr;
  /* Null: not written.  The sink must outlive the writer. */
  std::unique_ptr<Writer> (*open_writer)(TextSink &sink) = nullptr;
  std::span<const Mapping> mappings = {};
  /* Whether each line holds one event, so that what was read is counted in lines. */
  bool line_per_event = false;
  /* Whether the text has an end of its own, without which its reader fails: a text that is
   * cut off is never taken for a whole one. */
  bool shows_its_end = false;
  /* The same for formats of stations, which have no reader or writer of events. */
  std::unique_ptr<StationReader> (*open_station_reader)(Input &input,
                                                        std::string &problem) = nullptr;
  std::unique_ptr<StationWriter> (*open_station_writer)(TextSink &sink) = nullptr;
};

/* All formats, in the order in which inputs are tried. */
std::span<const Format *const> formats();
/* The format of a word of --format; null for another word. */
const Format *format_of_word(std::string_view word);

/* The result of recognising an input. */
struct Recognised {
  const Format *format = nullptr;  // null: not one of ours
  bool empty = false;
  std::string name;  // "QuakeML 1.2", "a gzip archive", ...
  std::string hint;  // what can be done about it; may be empty
};
Recognised recognise(std::string_view head);

/* The reader of an input, by what was recognised; null, with `problem` set, when nothing
 * reads it or the reader refuses. */
std::unique_ptr<Reader> open_reader(Input &input, const Recognised &kind,
                                    std::string &problem);
/* The same for stations; open_reader refuses them, and this refuses events. */
std::unique_ptr<StationReader> open_station_reader(Input &input, const Recognised &kind,
                                                   std::string &problem);

}  // namespace ksutil::exchange
#endif
