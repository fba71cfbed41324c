/* dataset: the channels of a database with their waveforms (ksdsseis) for Python. */
#include <ksutil/platform/db/db.h>
#include <ksutil/waveforms/ksdsseis.h>
#include <pybind11/stl.h>
#include "platform/stock/owners.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/fork_gate.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/gaps.h"
#include "bindings/objects/records.h"
#include "bindings/objects/series.h"
#include "bindings/waveforms/response.h"

namespace ksutil::python {
namespace {

/* A data set with a database handle of its own; one thread at a time. */
class DataSet {
 public:
  DataSet(const py::object &database, const std::optional<std::string> &sta,
          const std::optional<std::string> &chan, std::optional<double> start,
          std::optional<double> end)
      : path_(database_path(database)) {
    if (start.has_value() != end.has_value()) {
      throw py::value_error("start and end go together");
    }
    const Failure failure;
    const bool opened = released([&] {
      const ForkGate gate;
      if (dbopen_noshare(path_.c_str(), "r", &db_) != 0) {
        db_ = dbinvalid();
        return false;
      }
      set_ = ksdsseis_open(db_, sta ? sta->c_str() : nullptr,
                           chan ? chan->c_str() : nullptr, start.value_or(0.0),
                           end.value_or(0.0));
      if (set_ == nullptr) return false;
      const int count = ksdsseis_count(set_);
      for (int i = 0; i < count; ++i) channels_.push_back(*ksdsseis_describe(set_, i));
      unusable_ = ksdsseis_unusable(set_);
      return true;
    });
    if (!opened) {
      free();
      failure.raise();
    }
  }
  ~DataSet() { close_locked(); }
  DataSet(const DataSet &) = delete;
  DataSet &operator=(const DataSet &) = delete;

  void close() { close_locked(); }

  const std::string &path() const { return path_; }
  const std::vector<ksdsseis_channel> &channels() const { return channels_; }
  long unusable() const { return unusable_; }
  std::mutex &lock() { return lock_; }

  /* The open data set; Error when it is closed.  Under the lock. */
  ksdsseis *get() const {
    if (set_ == nullptr) throw Error("the data set is closed");
    return set_;
  }
  Dbptr database() const { return db_; }
  bool closed() {
    return locked(lock_, [this] { return set_ == nullptr; });
  }

  /* Calls a function on the open data set; Error when it gives a negative number. */
  template <class Call>
  int call(const Call &function) {
    const Failure failure;
    return failure.check(locked(lock_, [&] { return function(get()); }));
  }

 private:
  void free() {
    ksdsseis_close(set_);
    set_ = nullptr;
    if (db_.database != dbINVALID) dbclose(db_);
    db_ = dbinvalid();
  }
  void close_locked() {
    finish_locked(lock_, [this] { free(); });
  }

  std::mutex lock_;
  std::string path_;
  Dbptr db_ = dbinvalid();
  ksdsseis *set_ = nullptr;
  std::vector<ksdsseis_channel> channels_;
  long unusable_ = 0;
};

/* The description of a channel, which outlives the data set. */
struct Channel {
  ksdsseis_channel facts;
  int index;
};

/* A stretch of samples as a row of wfdisc has it. */
struct Stretch {
  std::shared_ptr<Segment> segment;
};

SeriesCodes codes_of(const ksdsseis_channel &channel) {
  const bool named = channel.seedsta[0] != '\0';
  return {channel.net, named ? channel.seedsta : channel.sta, channel.loc,
          named ? channel.seedchan : channel.chan};
}

/* A channel by its number, by (sta, chan), "STA.CHAN", or the codes of a Channel. */
int index_of(const DataSet &set, const py::object &which) {
  if (PyIndex_Check(which.ptr()) != 0) {
    return index_below(which, set.channels().size(), "there is no such channel");
  }
  std::string sta, chan;
  if (py::isinstance<Channel>(which)) {
    const auto &channel = which.cast<const Channel &>();
    sta = channel.facts.sta;
    chan = channel.facts.chan;
  } else if (py::isinstance<py::str>(which)) {
    const auto text = which.cast<std::string>();
    const std::size_t dot = text.rfind('.');
    sta = text.substr(0, dot);
    chan = dot == std::string::npos ? "" : text.substr(dot + 1);
  } else if (py::isinstance<py::tuple>(which) && py::len(which) == 2) {
    const auto pair = which.cast<py::tuple>();
    sta = value_as<std::string>(pair[0], "sta");
    chan = value_as<std::string>(pair[1], "chan");
  } else {
    throw py::type_error("a channel is a number, 'STA.CHAN' or (sta, chan)");
  }
  for (std::size_t i = 0; i < set.channels().size(); ++i) {
    const ksdsseis_channel &each = set.channels()[i];
    if (sta == each.sta && chan == each.chan) return static_cast<int>(i);
  }
  throw py::key_error("there is no channel " + sta + "." + chan);
}

const ksdsseis_channel &facts_of(const DataSet &set, int index) {
  return set.channels()[static_cast<std::size_t>(index)];
}

Series read(DataSet &self, const py::object &which) {
  const int index = index_of(self, which);
  return make_series([&](char *tag) { return ksdsseis_read(self.get(), index, tag); },
                     codes_of(facts_of(self, index)), &self.lock());
}

void deconvolve(DataSet &self, int index, const Series &series,
                const std::string &motion,
                const std::optional<std::array<double, 4>> &corners,
                double water_level) {
  derivative_of(motion);
  self.call([&](ksdsseis *set) {
    const std::lock_guard<std::mutex> family(lock_of(Family::kSeries));
    return ksdsseis_deconvolve(set, index, series.tag(), motion.c_str(),
                               corners ? corners->data() : nullptr, water_level);
  });
}

Series ground_motion(DataSet &self, const py::object &which, const std::string &motion,
                     const std::optional<std::array<double, 4>> &corners,
                     double water_level) {
  Series series = read(self, which);
  deconvolve(self, index_of(self, which), series, motion, corners, water_level);
  return series;
}

py::list segments(DataSet &self, const py::object &which) {
  const int index = index_of(self, which);
  std::vector<Segment> found;
  self.call([&](ksdsseis *set) { return ksdsseis_read_segments(set, index, found); });
  py::list list;
  for (Segment &each : found) {
    list.append(Stretch{std::make_shared<Segment>(std::move(each))});
  }
  return list;
}

py::object samples_of(const Stretch &self) {
  return std::visit(
      [&](auto samples) -> py::object {
        using Value = typename decltype(samples)::value_type;
        const auto array = array_over_record(
            self.segment, samples.data(), {static_cast<py::ssize_t>(samples.size())});
        if constexpr (std::is_same_v<Value, float>) return without_gaps(array);
        return array;
      },
      self.segment->samples);
}

py::tuple response_curve(DataSet &self, const py::object &which,
                         const std::string &motion, double low, double high, int n) {
  derivative_of(motion);
  const int index = index_of(self, which);
  SeriesRecord record;
  std::vector<double> columns[3];
  self.call([&](ksdsseis *set) {
    const std::lock_guard<std::mutex> family(lock_of(Family::kSeries));
    const ksvector2 *const vector =
        ksdsseis_response(set, index, motion.c_str(), low, high, n, record.tag);
    if (vector == nullptr) return -1;
    for (int i = 0; i < vector->npts; ++i) {
      const double *const row =
          vector->data + static_cast<std::ptrdiff_t>(i) * (vector->nyalloc + 1);
      for (int k = 0; k < 3; ++k) columns[k].push_back(row[k]);
    }
    return 0;
  });
  return py::make_tuple(array_of(std::move(columns[0])),
                        array_of(std::move(columns[1])),
                        array_of(std::move(columns[2])));
}

py::tuple rotate(DataSet &self, const std::vector<py::object> &channels, double seaz,
                 const std::optional<std::vector<const Series *>> &series) {
  if (channels.size() != 3 || (series && series->size() != 3)) {
    throw py::value_error("three components are needed");
  }
  std::vector<Series> read_here;
  std::array<int, 3> indices{};
  std::array<const char *, 3> tags{};
  read_here.reserve(3);
  for (std::size_t i = 0; i < 3; ++i) {
    indices[i] = index_of(self, channels[i]);
    if (series && (*series)[i] == nullptr)
      throw py::type_error("series must be Series");
    if (!series) read_here.push_back(read(self, channels[i]));
    tags[i] = series ? (*series)[i]->tag() : read_here[i].tag();
  }
  std::array<std::shared_ptr<SeriesRecord>, 3> made;
  for (auto &each : made) each = std::make_shared<SeriesRecord>();
  self.call([&](ksdsseis *set) {
    const std::lock_guard<std::mutex> family(lock_of(Family::kSeries));
    char new_tags[3][KS_TAG_SIZE] = {"", "", ""};
    if (ksdsseis_rotate_zrt(set, indices.data(), tags.data(), seaz, new_tags) != 0) {
      return -1;
    }
    for (std::size_t i = 0; i < 3; ++i) {
      std::copy_n(new_tags[i], KS_TAG_SIZE, made[i]->tag);
      made[i]->vector = ksvector2_get_vector(made[i]->tag);
    }
    return 0;
  });
  py::tuple result(3);
  for (std::size_t i = 0; i < 3; ++i) {
    SeriesCodes codes = codes_of(facts_of(self, indices[0]));
    if (codes.chan.size() >= 3) codes.chan[2] = "ZRT"[i];
    result[i] = Series(made[i], codes);
  }
  return result;
}

/* Calls a writer of files for one channel or all; the paths written. */
template <class Write>
py::list write_files(DataSet &self, const py::object &which, const py::object &folder,
                     const Write &write) {
  const int index = which.is_none() ? -1 : index_of(self, which);
  const std::string dir = path_of(folder);
  Tbl *paths = nullptr;
  const Failure failure;
  const int written = locked(
      self.lock(), [&] { return write(self.get(), index, dir.c_str(), &paths); });
  const TblOfTexts owned(paths);
  if (written < 0) failure.raise();
  py::list list;
  for (long i = 0; i < counttbl(paths); ++i) {
    list.append(py::str(static_cast<const char *>(gettbl(paths, i))));
  }
  return list;
}

py::list write_sac(DataSet &self, const py::object &folder, const py::object &which,
                   std::optional<std::int64_t> orid, bool replace) {
  return write_files(
      self, which, folder, [&](ksdsseis *set, int index, const char *dir, Tbl **paths) {
        Dbptr origin = dbinvalid();
        if (orid) {
          const std::string condition = "orid == " + std::to_string(*orid);
          origin = dbsubset(dblookup(self.database(), "", "origin", "", ""),
                            condition.c_str());
          long count = 0;
          if (origin.table == dbINVALID) return -1;
          if (dbquery(origin, dbq_record_count, &count) != 0 || count < 1) {
            throw Error("there is no origin with " + condition);
          }
          origin.record = 0;
        }
        return ksdsseis_write_sac(set, index, dir, origin, replace ? 1 : 0, paths);
      });
}

py::list write_miniseed(DataSet &self, const py::object &folder,
                        const py::object &which, bool replace) {
  return write_files(self, which, folder,
                     [&](ksdsseis *set, int index, const char *dir, Tbl **paths) {
                       return ksdsseis_write_miniseed(set, index, dir, dbinvalid(),
                                                      replace ? 1 : 0, paths);
                     });
}

py::str show_channel(const Channel &self) {
  char text[160];
  std::snprintf(text, sizeof text, "<ksutil.Channel %s.%s, %ld samples at %.12g Hz>",
                self.facts.sta, self.facts.chan, self.facts.nsamp, self.facts.samprate);
  return decoded(text);
}

py::str show(DataSet &self) {
  return decoded("<ksutil.DataSet " + self.path() + ", " +
                 std::to_string(self.channels().size()) + " channels" +
                 (self.closed() ? ", closed>" : ">"));
}

void bind_channel(py::module_ &m) {
  py::class_<Channel> type(m, "Channel",
                           "A channel of a DataSet: its metadata; None where unknown.");
  const auto text = [&type](const char *name, auto member, const char *what) {
    type.def_property_readonly(
        name,
        [member](const Channel &self) { return text_or_none(self.facts.*member); },
        what);
  };
  const auto real = [&type](const char *name, double ksdsseis_channel::*member,
                            double null, const char *what) {
    type.def_property_readonly(
        name,
        [member, null](const Channel &self) {
          return real_or_none(self.facts.*member, null);
        },
        what);
  };
  using Facts = ksdsseis_channel;
  text("sta", &Facts::sta, "Station code of the database.");
  text("chan", &Facts::chan, "Channel code of the database.");
  text("net", &Facts::net, "Network code.");
  text("seedsta", &Facts::seedsta, "Station code of the network.");
  text("seedchan", &Facts::seedchan, "Channel code of the network.");
  text("loc", &Facts::loc, "Location code.");
  text("segtype", &Facts::segtype, "'D', 'V' or 'A': the unit of calib.");
  text("instype", &Facts::instype, "Instrument type.");
  text("band", &Facts::band, "Frequency band of the instrument.");
  text("rsptype", &Facts::rsptype, "Type of the response.");
  text("response", &Facts::response, "Path of the response file.");
  text("missing", &Facts::missing_text, "What was missing, in words.");
  real("lat", &Facts::lat, -999.0, "Latitude, degrees.");
  real("lon", &Facts::lon, -999.0, "Longitude, degrees.");
  real("elev", &Facts::elev, -999.0, "Elevation, km above sea level.");
  real("dnorth", &Facts::dnorth, -1e99, "km north of the reference station.");
  real("deast", &Facts::deast, -1e99, "km east of the reference station.");
  real("edepth", &Facts::edepth, -1.0, "Depth below the surface, km.");
  real("hang", &Facts::hang, -1.0, "Degrees clockwise from north.");
  real("vang", &Facts::vang, -1.0, "Degrees from upward.");
  real("samprate", &Facts::samprate, -1.0, "Samples per second (Hz).");
  real("calib", &Facts::calib, 0.0, "nm, nm/s or nm/s^2 per count.");
  real("calper", &Facts::calper, -1.0, "Period at which calib holds, s.");
  real("calratio", &Facts::calratio, -1e99, "Calibration over calib.");
  real("tshift", &Facts::tshift, -1e99, "True time minus recorded time, s.");
  real("time", &Facts::time, -1e99, "Time of the first sample, epoch seconds.");
  real("endtime", &Facts::endtime, -1e99, "Time of the last sample, epoch seconds.");
  type.def_property_readonly(
      "nsegments", [](const Channel &self) { return self.facts.nsegments; },
      "Rows of wfdisc in the window.");
  type.def_property_readonly(
      "nsamp", [](const Channel &self) { return self.facts.nsamp; },
      "Samples in the window; those of overlaps count each.");
  type.def_property_readonly(
      "index", [](const Channel &self) { return self.index; },
      "Number of the channel in its data set.");
  type.def("__repr__", show_channel);
}

void bind_segment(py::module_ &m) {
  py::class_<Stretch> type(m, "Segment",
                           "Samples of one row of wfdisc, as the file has them.");
  type.def_property_readonly("samples", samples_of,
                             R"(Samples [n] int32 or float32, read-only, without a copy.

A masked array when there are gaps.  Counts without calib.)");
  type.def_property_readonly(
      "sta", [](const Stretch &self) { return decoded(self.segment->sta); },
      "Station code.");
  type.def_property_readonly(
      "chan", [](const Stretch &self) { return decoded(self.segment->chan); },
      "Channel code.");
  type.def_property_readonly(
      "time", [](const Stretch &self) { return self.segment->time; },
      "Time of the first sample, epoch seconds.");
  type.def_property_readonly(
      "endtime", [](const Stretch &self) { return self.segment->endtime(); },
      "Time of the last sample, epoch seconds.");
  type.def_property_readonly(
      "samprate", [](const Stretch &self) { return self.segment->samprate; },
      "Samples per second (Hz).");
  type.def_property_readonly(
      "calib",
      [](const Stretch &self) { return real_or_none(self.segment->calib, 0.0); },
      "nm, nm/s or nm/s^2 per count; None unknown.");
  type.def("__len__", [](const Stretch &self) { return self.segment->size(); });
  type.def("__repr__", [](const Stretch &self) {
    return decoded("<ksutil.Segment " + self.segment->sta + "." + self.segment->chan +
                   ", " + std::to_string(self.segment->size()) + " samples>");
  });
}

}  // namespace

void bind_dataset(py::module_ &m) {
  bind_channel(m);
  bind_segment(m);
  py::class_<DataSet> type(
      m, "DataSet",
      R"(The channels of a database that have waveforms in a window.

DataSet(database, *, sta=None, chan=None, start=None, end=None)

database    a Database or the path of one
sta, chan   regular expressions that match whole codes; None: all
start, end  epoch seconds, both included; None: all

Channels are numbers, "STA.CHAN", (sta, chan) or a Channel.  A context manager: leaving it
closes the data set; series and arrays that were read stay.)");
  type.def(py::init<const py::object &, const std::optional<std::string> &,
                    const std::optional<std::string> &, std::optional<double>,
                    std::optional<double>>(),
           py::arg("database"), py::kw_only(), py::arg("sta") = py::none(),
           py::arg("chan") = py::none(), py::arg("start") = py::none(),
           py::arg("end") = py::none());
  type.def("__len__", [](const DataSet &self) { return self.channels().size(); });
  type.def("__repr__", show);
  type.def("__enter__", [](py::object self) { return self; });
  type.def("__exit__", [](DataSet &self, const py::object &, const py::object &,
                          const py::object &) { self.close(); });
  type.def("close", &DataSet::close, "Closes the data set; may be called again.");
  type.def_property_readonly("closed", &DataSet::closed, "Whether it was closed.");
  type.def_property_readonly("path", &DataSet::path, "Path of the database.");
  type.def_property_readonly("unusable", &DataSet::unusable,
                             "Rows of wfdisc that matched and cannot be used.");
  type.def(
      "__getitem__",
      [](const DataSet &self, const py::object &which) {
        const int index = index_of(self, which);
        return Channel{facts_of(self, index), index};
      },
      py::arg("channel"), "The description of a channel.");
  type.def_property_readonly(
      "channels",
      [](const DataSet &self) {
        py::list list;
        for (std::size_t i = 0; i < self.channels().size(); ++i) {
          list.append(Channel{self.channels()[i], static_cast<int>(i)});
        }
        return list;
      },
      "The channels, in the order of station and channel code.");
  type.def("read", read, py::arg("channel") = 0,
           R"(The samples of a channel as a Series: counts, without calib.

What no row has is a gap; of rows that overlap those with the later lddate count.)");
  type.def("segments", segments, py::arg("channel") = 0,
           "The samples of a channel as the rows have them: a list of Segment.");
  type.def(
      "response",
      [](DataSet &self, const py::object &which) {
        const int index = index_of(self, which);
        Response response;
        self.call(
            [&](ksdsseis *set) { return ksdsseis_get_response(set, index, response); });
        return response;
      },
      py::arg("channel") = 0,
      R"(The response file of a channel, as it stands.

A plain CSS3.0 file does not tell its unit and scale, which ground() then takes as
displacement in nm; response_curve() takes them from the channel.)");
  type.def("response_curve", response_curve, py::arg("channel") = 0, py::kw_only(),
           py::arg("motion") = "V", py::arg("low") = 0.001, py::arg("high") = 100.0,
           py::arg("n") = 400,
           R"((frequencies in Hz, amplitudes, phases in degrees), arrays [n] each.

motion     "D", "V" or "A": amplitudes in counts for a m, m/s or m/s^2
low, high  Hz, at equal steps of the logarithm)");
  type.def("ground_motion", ground_motion, py::arg("channel") = 0, py::kw_only(),
           py::arg("motion") = "V", py::arg("corners") = py::none(),
           py::arg("water_level") = 0.0,
           R"(The samples of a channel as ground motion: m, m/s or m/s^2.

corners      four ascending frequencies (Hz) of a pre-filter, or None
water_level  dB below the largest response in the pass band; 0: none)");
  type.def(
      "deconvolve",
      [](DataSet &self, const Series &series, const py::object &which,
         const std::string &motion, const std::optional<std::array<double, 4>> &corners,
         double water_level) {
        deconvolve(self, index_of(self, which), series, motion, corners, water_level);
      },
      py::arg("series"), py::arg("channel"), py::kw_only(), py::arg("motion") = "V",
      py::arg("corners") = py::none(), py::arg("water_level") = 0.0,
      "Turns counts of a channel in a series into ground motion, in place.");
  type.def("rotate", rotate, py::arg("channels"), py::arg("seaz"), py::kw_only(),
           py::arg("series") = py::none(),
           R"(Three components as (Z, R, T): up, radial and transverse.

seaz    azimuth of the event at the station, degrees
series  of the three channels; None: their samples are read)");
  type.def("write_sac", write_sac, py::arg("folder"), py::kw_only(),
           py::arg("channel") = py::none(), py::arg("orid") = py::none(),
           py::arg("replace") = false,
           R"(Writes SAC files, one for each stretch without gaps; the list of paths.

channel  None: all
orid     of an origin, whose place and time go into the headers)");
  type.def("write_miniseed", write_miniseed, py::arg("folder"), py::kw_only(),
           py::arg("channel") = py::none(), py::arg("replace") = false,
           "Writes a miniSEED file for each channel; the list of paths.");
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "dataset_figure", self, args, kwargs);
      },
      "A Figure of the traces; see ksutil.figures.dataset_figure.");
  type.def(
      "to_obspy",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.bridges", "dataset_to_obspy", self, args, kwargs);
      },
      "An obspy Stream of all channels.");
}

}  // namespace ksutil::python
