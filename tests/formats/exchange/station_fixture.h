/* Stations for tests: a StationXML text whose parts can be changed, and its import. */
#ifndef KSUTIL_TESTS_FORMATS_EXCHANGE_STATION_FIXTURE_H
#define KSUTIL_TESTS_FORMATS_EXCHANGE_STATION_FIXTURE_H

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "formats/exchange/format.h"
#include "formats/exchange/stations/station_import.h"
#include "platform/db/columns.h"
#include "platform/db/db.h"
#include "platform/elog/elog.h"
#include "tests/tools/scratch.h"

namespace ksutil::exchange {

/* `text` with the first `from` replaced by `to`, which must be there. */
inline std::string replaced(std::string text, const std::string &from,
                            const std::string &to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, text.npos) << from;
  return at == text.npos ? text : text.replace(at, from.size(), to);
}

/* A channel with a seismometer of velocity and a digitizer with a symmetric filter. */
inline std::string channel_xml(const std::string &start, const std::string &end,
                               const std::string &gain = "1500") {
  return "<Channel code=\"HHZ\" locationCode=\"10\" startDate=\"" + start + "\"" +
         (end.empty() ? "" : " endDate=\"" + end + "\"") + R"(>
<Latitude>47.5</Latitude><Longitude>12.25</Longitude><Elevation>860</Elevation>
<Depth>2.5</Depth><Azimuth>0</Azimuth><Dip>-90</Dip><SampleRate>100</SampleRate>
<Sensor><Type>Broadband, 120 s</Type><Model>BB-120</Model></Sensor>
<Response>
<InstrumentSensitivity><Value>6.0E8</Value><Frequency>0.5</Frequency>
<InputUnits><Name>m/s</Name><Description>velocity</Description></InputUnits>
<OutputUnits><Name>counts</Name></OutputUnits></InstrumentSensitivity>
<Stage number="1"><PolesZeros>
<InputUnits><Name>m/s</Name></InputUnits><OutputUnits><Name>V</Name></OutputUnits>
<PzTransferFunctionType>LAPLACE (RADIANS/SECOND)</PzTransferFunctionType>
<NormalizationFactor>1.0</NormalizationFactor>
<NormalizationFrequency>0.5</NormalizationFrequency>
<Zero number="0"><Real>0</Real><Imaginary>0</Imaginary></Zero>
<Zero number="1"><Real>0</Real><Imaginary>0</Imaginary></Zero>
<Pole number="0"><Real>-0.037</Real><Imaginary>0.037</Imaginary></Pole>
<Pole number="1"><Real>-0.037</Real><Imaginary>-0.037</Imaginary></Pole>
</PolesZeros><StageGain><Value>)" +
         gain + R"(</Value><Frequency>0.5</Frequency></StageGain></Stage>
<Stage number="2"><FIR>
<InputUnits><Name>V</Name></InputUnits><OutputUnits><Name>counts</Name></OutputUnits>
<Symmetry>ODD</Symmetry>
<NumeratorCoefficient i="1">0.25</NumeratorCoefficient>
<NumeratorCoefficient i="2">0.5</NumeratorCoefficient></FIR>
<Decimation><InputSampleRate>200</InputSampleRate><Factor>2</Factor><Offset>0</Offset>
<Delay>0.005</Delay><Correction>0.005</Correction></Decimation>
<StageGain><Value>400000</Value><Frequency>0</Frequency></StageGain></Stage>
</Response></Channel>)";
}

inline std::string station_xml(const std::string &channels,
                               const std::string &network = "XX") {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<FDSNStationXML xmlns="http://www.fdsn.org/xml/station/1" schemaVersion="1.1">
<Source>test</Source><Created>2020-01-01T00:00:00</Created>
<Network code=")" +
         network + R"("><Description>Test network</Description>
<Comment><Value>A first comment</Value></Comment>
<Station code="RJOB" startDate="2010-03-04T00:00:00">
<Latitude>47.5</Latitude><Longitude>12.25</Longitude><Elevation>860</Elevation>
<Site><Name>Jochberg</Name></Site>
)" + channels +
         "</Station></Network></FDSNStationXML>\n";
}

/* What a reader gives of a text. */
struct StationsRead {
  bool good = false;
  std::vector<StationItem> items;
  std::vector<std::string> refused;  // "line: reason"
  std::string problem;
  std::vector<std::string> without_place;
};

inline StationsRead read_stations(const std::string &text) {
  const tools::ScratchFolder folder;
  StationsRead result;
  const auto input = Input::open(folder.write("stations", text), result.problem);
  if (input == nullptr) return result;
  const auto reader =
      open_station_reader(*input, recognise(input->head()), result.problem);
  if (reader == nullptr) return result;
  for (StationItem item; !result.good;) {
    switch (reader->next(item)) {
      case StationReader::Got::kRecord:
        result.items.push_back(item);
        break;
      case StationReader::Got::kRefused:
        result.refused.push_back(std::to_string(reader->line()) + ": " +
                                 reader->problem());
        break;
      case StationReader::Got::kFailed:
        result.problem = reader->problem();
        return result;
      case StationReader::Got::kEnd:
        result.good = true;
    }
  }
  for (const Unplaced &left : reader->without_place()) {
    result.without_place.push_back(left.name);
  }
  return result;
}

/* The items of one kind. */
inline std::vector<StationItem> of_kind(const StationsRead &read,
                                        StationItem::Kind kind) {
  std::vector<StationItem> items;
  for (const StationItem &item : read.items) {
    if (item.kind == kind) items.push_back(item);
  }
  return items;
}

/* A database in a folder of its own. */
class StationDatabase {
 public:
  explicit StationDatabase(const char *schema = "css3.0") {
    EXPECT_EQ(dbcreate(name_.c_str(), schema), 0);
  }
  ~StationDatabase() { elog_clear_register(0); }

  const std::string &name() const { return name_; }
  std::string path(const std::string &file) const { return folder_ / file; }
  const tools::ScratchFolder &folder() const { return folder_; }

  struct Result {
    StationsImported imported = StationsImported::kFailed;
    StationImportCounts counts;
    std::vector<std::string> refused;
  };
  Result import(const std::string &text,
                const StationImportOptions &options = {}) const {
    Result result;
    StationGathering gathering;
    const StationsRead read = read_stations(text);
    EXPECT_TRUE(read.good) << read.problem;
    for (const StationItem &item : read.items) EXPECT_TRUE(gathering.add(item, 1));
    const auto store = db::open_store(name_, "r+", 1 << 26);
    EXPECT_NE(store, nullptr);
    const auto refused = [&](std::int64_t, const std::string &reason) {
      result.refused.push_back(reason);
    };
    result.imported =
        import_stations(*store, gathering, options, refused, result.counts);
    return result;
  }

  /* The values of a field in all rows of a table, without blanks. */
  std::vector<std::string> column(const char *table, const char *field) const {
    std::vector<std::string> values;
    const auto store = db::open_store(name_, "r", 1 << 26);
    const auto rows = store->table(table)->snapshot();
    const db::Field *found = rows->layout().find(field);
    for (long i = 0; i < rows->count(); i++) {
      std::string text(rows->row(i).substr(static_cast<std::size_t>(found->offset),
                                           static_cast<std::size_t>(found->width)));
      text.erase(0, text.find_first_not_of(' '));
      text.erase(text.find_last_not_of(' ') + 1);
      values.push_back(text);
    }
    return values;
  }
  /* All rows of the station tables without their load dates; seedcode, whose rows have no
   * ids, in the order of the codes. */
  std::string rows() const {
    std::string all;
    std::set<std::string> codes;
    for (const char *table : {"network", "remark", "affiliation", "seedcode", "site",
                              "sitechan", "sensor", "instrument"}) {
      const auto store = db::open_store(name_, "r", 1 << 26);
      const auto rows = store->table(table)->snapshot();
      const db::Field *date = rows->layout().find("lddate");
      for (long i = 0; i < rows->count(); i++) {
        const std::string text = std::string(table) + ": " +
                                 std::string(rows->row(i).substr(
                                     0, static_cast<std::size_t>(date->offset))) +
                                 "\n";
        if (std::string_view(table) == "seedcode") {
          codes.insert(text);
        } else {
          all += text;
        }
      }
    }
    for (const std::string &text : codes) all += text;
    return all;
  }

 private:
  const tools::ScratchFolder folder_;
  const std::string name_ = folder_ / "db";
};

}  // namespace ksutil::exchange
#endif
