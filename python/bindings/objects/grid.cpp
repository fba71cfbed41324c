/* grid: grids of frames (ksgrid) as objects of Python. */
#include <ksutil/objects/ksgrid.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "bindings/bindings.h"
#include "bindings/interpreter/arguments.h"
#include "bindings/interpreter/arrays.h"
#include "bindings/interpreter/calls.h"
#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/file_wait.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/records.h"

namespace ksutil::python {
namespace {

struct GridRecord {
  explicit GridRecord(KSGrid *made) : grid(made) {}
  ~GridRecord() {
    finish_locked(lock_of(Family::kGrids), [this] { ksgrid_free_ksgrid(grid); });
  }
  GridRecord(const GridRecord &) = delete;
  GridRecord &operator=(const GridRecord &) = delete;

  std::mutex lock;  // guards what `grid` holds
  KSGrid *const grid;
  std::string tag;  // "" until it is asked for
};

class Grid {
 public:
  explicit Grid(KSGrid *grid) : record_(std::make_shared<GridRecord>(grid)) {}

  const std::shared_ptr<GridRecord> &record() const { return record_; }
  KSGrid &get() const { return *record_->grid; }

  /* Calls a function on the grid; Error when it fails. */
  template <class Call>
  int call(const Call &function) const {
    const Failure failure;
    return failure.check(locked(record_->lock, function));
  }

  /* The same for one that moves the memory of frames or axes. */
  template <class Call>
  int move(const char *what, const Call &function) const {
    return call([&] {
      refuse_with_arrays(record_, what);
      return function();
    });
  }

  /* An array over memory of the grid. */
  py::array_t<float> array(float *KSGrid::*data, bool frames) const {
    const float *start = nullptr;
    std::vector<py::ssize_t> shape;
    const auto share = locked(record_->lock, [&] {
      start = get().*data;
      if (frames) {
        shape = {get().nframes, get().ny, get().nx};
      } else {
        shape = {data == &KSGrid::x ? get().nx : get().ny};
      }
      return record_;
    });
    return array_over_record(share, start, std::move(shape));
  }

 private:
  std::shared_ptr<GridRecord> record_;
};

const char *text_or_null(const std::string &text) {
  return text.empty() ? nullptr : text.c_str();
}
std::string_view text_of(const char *text) { return text == nullptr ? "" : text; }

/* Frames as [nframes, ny, nx]; one of [ny, nx] is a single frame.  Masked values and NaN
 * become gaps. */
Floats frames_of(const Grid &self, const py::object &frames, const char *name) {
  const KSGrid &grid = self.get();
  Floats values = floats(frames, name, -1, grid.gapval);
  const py::ssize_t n = values.ndim();
  if ((n != 2 && n != 3) || values.shape(n - 2) != grid.ny ||
      values.shape(n - 1) != grid.nx) {
    throw py::value_error(std::string(name) + " must have the shape [..., " +
                          std::to_string(grid.ny) + ", " + std::to_string(grid.nx) +
                          "]");
  }
  return values;
}

void put(const Grid &self, const py::object &frames, double time, double dt,
         int decimation) {
  const Floats values = frames_of(self, frames, "frames");
  const py::ssize_t count = values.ndim() == 3 ? values.shape(0) : 1;
  if (count_of(values, "frames") < 0 || !std::isfinite(time) || !std::isfinite(dt)) {
    throw py::value_error("time and dt must be finite");
  }
  const float *const data = values.data();
  self.move("put", [&] {
    const int n = static_cast<int>(count);
    return decimation > 1 ? ksgrid_putanddecimate_ksgrid(&self.get(), n, data,
                                                         decimation, time, dt)
                          : ksgrid_put_ksgrid(&self.get(), n, data, time, dt);
  });
}

Grid make(const py::object &x_values, const py::object &y_values,
          const py::object &frames, double time, double dt, const std::string &name,
          const std::string &xname, std::optional<float> gap, bool ordered) {
  refuse_nul(name, "the name");
  refuse_nul(xname, "the name of the x axis");
  const Floats x = floats(x_values, "x", 1, 0.0F), y = floats(y_values, "y", 1, 0.0F);
  const int nx = count_of(x, "x"), ny = count_of(y, "y");
  const float *const xs = x.data(), *const ys = y.data();
  const Failure failure;
  KSGrid *const grid = released([&] {
    return ksgrid_create(text_or_null(xname), nx, xs, nullptr, nullptr, ny, ys, nullptr,
                         nullptr, nullptr, nullptr, text_or_null(name), nullptr);
  });
  if (grid == nullptr) failure.raise();
  Grid self(grid);
  if (gap) grid->gapval = *gap;
  if (!ordered) ksgrid_set_order_ksgrid(grid, 0);
  if (!frames.is_none()) put(self, frames, time, dt, 0);
  return self;
}

py::array_t<float> evaluate(const Grid &self, const py::object &x_values,
                            const py::object &y_values, int frame,
                            const std::string &interpolation,
                            const std::optional<double> &depth,
                            const std::optional<std::string> &model) {
  /* Coordinates of any shapes that go together. */
  const py::tuple both = py::module_::import("numpy").attr("broadcast_arrays")(
      floats(x_values, "x", -1, std::nanf("")),
      floats(y_values, "y", -1, std::nanf("")));
  const Floats x = floats(both[0], "x", -1, 0.0F), y = floats(both[1], "y", -1, 0.0F);
  const int n = count_of(x, "x");
  const float *const xs = x.data(), *const ys = y.data();
  py::array_t<float> values(std::vector<py::ssize_t>(x.shape(), x.shape() + x.ndim()));
  float *const to = values.mutable_data();
  self.call([&] {
    float *out = nullptr;
    int size = 0;
    const KSGrid &grid = self.get();
    const int result =
        depth ? ksgrid_eval_d2slow_ksgrid(&grid, model ? model->c_str() : nullptr,
                                          *depth, frame, n, xs, ys,
                                          interpolation.c_str(), "none", &out, &size)
              : ksgrid_eval_ksgrid(&grid, frame, n, xs, ys, interpolation.c_str(),
                                   "none", &out, &size);
    for (int i = 0; result == 0 && i < n; ++i) {
      to[i] = out[i] == grid.gapval || std::isnan(xs[i]) || std::isnan(ys[i])
                  ? std::nanf("")
                  : out[i];
    }
    std::free(out);
    return result;
  });
  return values;
}

py::tuple extremes(const Grid &self, std::optional<int> frame) {
  if (frame && (*frame < 0 || *frame >= self.get().nframes)) {
    throw py::index_error("there is no such frame");
  }
  float low = 0.0F, high = 0.0F;
  self.call([&] {
    return ksgrid_maxmin_ksgrid(&self.get(), frame.value_or(-1), nullptr, nullptr,
                                nullptr, nullptr, &low, &high);
  });
  return py::make_tuple(low, high);
}

py::object values_of(const Grid &self) {
  const py::array_t<float> data = self.array(&KSGrid::data, true);
  std::vector<std::uint8_t> mask(static_cast<std::size_t>(data.size()));
  bool any = false;
  const float *const from = data.data();
  const float gap = self.get().gapval;
  released([&] {
    for (std::size_t i = 0; i < mask.size(); ++i) {
      mask[i] = from[i] == gap || std::isnan(from[i]) ? 1 : 0;
      any = any || mask[i] != 0;
    }
  });
  if (!any) return data;
  const py::array bits =
      py::array(array_of(std::move(mask)).attr("view")("bool"))
          .reshape(std::vector<py::ssize_t>(data.shape(), data.shape() + data.ndim()));
  return py::module_::import("numpy.ma")
      .attr("MaskedArray")(data, py::arg("mask") = bits, py::arg("copy") = false);
}

py::bytes to_packet(const Grid &self) {
  char *packet = nullptr;
  int nbytes = 0, allocated = 0;
  self.call(
      [&] { return ksgrid_stuff_ksgrid(&self.get(), &packet, &nbytes, &allocated); });
  const std::unique_ptr<char, void (*)(void *)> owned(packet, std::free);
  return py::bytes(packet, static_cast<std::size_t>(nbytes));
}

Grid from_bytes(std::string_view packet) {
  const Failure failure;
  auto *const grid = static_cast<KSGrid *>(std::calloc(1, sizeof(KSGrid)));
  if (grid == nullptr) throw std::bad_alloc();
  Grid self(grid);
  if (packet.size() > INT32_MAX) throw py::value_error("the packet is too long");
  failure.check(released([&] {
    return ksgrid_unstuff(packet.data(), static_cast<int>(packet.size()), grid);
  }));
  return self;
}

Grid from_packet(const py::bytes &packet) {
  return from_bytes(std::string_view(packet));
}

/* What ksgrid_write_fd writes, in pieces, so that Ctrl-C ends the wait for a reader. */
void write_to(const Grid &self, const py::object &file) {
  const std::string packet(to_packet(self));
  const auto size = static_cast<std::int32_t>(packet.size());
  std::string bytes(reinterpret_cast<const char *>(&size), sizeof size);
  bytes += packet;
  write_all(descriptor_of(file), bytes);
}

py::object read_from(const py::object &file) {
  const int fd = descriptor_of(file);
  std::string head = read_all(fd, sizeof(std::int32_t));
  if (head.empty()) return py::none();
  std::int32_t size = 0;
  if (head.size() != sizeof size) throw Error("the stream ends within a packet");
  std::memcpy(&size, head.data(), sizeof size);
  if (size < 0) throw Error("the stream has no packet of a grid here");
  const std::string packet = read_all(fd, static_cast<std::size_t>(size));
  if (packet.size() != static_cast<std::size_t>(size)) {
    throw Error("the stream ends within a packet");
  }
  return py::cast(from_bytes(packet));
}

std::string tag_of(const Grid &self) {
  const Failure failure;
  const int result = locked(lock_of(Family::kGrids), [&] {
    if (!self.record()->tag.empty()) return 0;
    char tag[KS_TAG_SIZE] = "";
    const int registered = ksgrid_register_grid(&self.get(), tag);
    self.record()->tag = tag;
    return registered;
  });
  failure.check(result);
  return self.record()->tag;
}

Grid copy(const Grid &self) {
  const Failure failure;
  char tag[KS_TAG_SIZE] = "";
  KSGrid *const grid = locked(self.record()->lock, [&] {
    const std::lock_guard<std::mutex> family(lock_of(Family::kGrids));
    return ksgrid_copy_ksgrid(&self.get(), self.get().name, tag);
  });
  if (grid == nullptr) failure.raise();
  Grid made(grid);
  made.record()->tag = tag;
  return made;
}

void to_slowness(const Grid &self, double depth, const std::string &axes,
                 const std::optional<std::string> &model) {
  const int which = axes == "x"    ? KSGRID_X
                    : axes == "y"  ? KSGRID_Y
                    : axes == "xy" ? KSGRID_X + KSGRID_Y
                                   : 0;
  if (which == 0) throw py::value_error("axes must be 'x', 'y' or 'xy'");
  self.move("to_slowness", [&] {
    return ksgrid_d2slow_ksgrid(&self.get(), model ? model->c_str() : nullptr, depth,
                                which);
  });
}

py::str show(const Grid &self) {
  const KSGrid &grid = self.get();
  char text[140];
  std::snprintf(text, sizeof text, "<ksutil.Grid %.40s%s%d frames of %d x %d>",
                grid.name == nullptr ? "" : grid.name,
                text_of(grid.name).empty() ? "" : ", ", grid.nframes, grid.nx, grid.ny);
  return decoded(text);
}

}  // namespace

void bind_grid(py::module_ &m) {
  py::class_<Grid> type(m, "Grid",
                        R"(Frames of single-precision values over a rectilinear mesh.

Grid(x, y, frames=None, *, time=0.0, dt=1.0, name="", xname="", gap=None, ordered=True)

x, y     coordinates [nx] and [ny], ascending or descending
frames   [nframes, ny, nx], or [ny, nx] for one; masked values become gaps
time     of the first frame, epoch seconds
dt       seconds between frames
gap      value of nodes without a value; None: that of the library
ordered  axes are put in ascending order whenever frames are stored

While an array over frames or axes is alive, what would move them is refused.)");
  type.def(py::init(&make), py::arg("x"), py::arg("y"), py::arg("frames") = py::none(),
           py::kw_only(), py::arg("time") = 0.0, py::arg("dt") = 1.0,
           py::arg("name") = "", py::arg("xname") = "", py::arg("gap") = py::none(),
           py::arg("ordered") = true);
  type.def("__len__", [](const Grid &self) { return self.get().nframes; });
  type.def("__repr__", show);
  const auto value = [&type](const char *name, auto member, const char *what) {
    type.def_property_readonly(
        name, [member](const Grid &self) { return self.get().*member; }, what);
  };
  type.def_property_readonly(
      "x", [](const Grid &self) { return self.array(&KSGrid::x, false); },
      "Coordinates [nx] float32, read-only, without a copy.");
  type.def_property_readonly(
      "y", [](const Grid &self) { return self.array(&KSGrid::y, false); },
      "Coordinates [ny] float32, read-only, without a copy.");
  type.def_property_readonly(
      "data", [](const Grid &self) { return self.array(&KSGrid::data, true); },
      "Values [nframes, ny, nx] float32 with gaps as they are, read-only, without a "
      "copy.");
  type.def_property_readonly(
      "values", values_of,
      "Values [nframes, ny, nx] float32, read-only, without a copy; masked where nodes "
      "have none.");
  value("time", &KSGrid::time, "Time of the first frame, epoch seconds.");
  value("dt", &KSGrid::dt, "Seconds between frames.");
  value("gap", &KSGrid::gapval, "The value of nodes without a value.");
  type.def_property_readonly(
      "name", [](const Grid &self) { return decoded(text_of(self.get().name)); },
      "Its name.");
  type.def_property_readonly(
      "xname", [](const Grid &self) { return decoded(text_of(self.get().xname)); },
      "Name of the x axis.");
  type.def_property(
      "params",
      [](const Grid &self) {
        return array_of(std::vector<double>(self.get().params, self.get().params + 20));
      },
      [](const Grid &self, const py::object &params) {
        const Doubles values = doubles(params, "params", 1, 0.0);
        if (values.size() != 20) throw py::value_error("params must have 20 values");
        std::copy_n(values.data(), 20, self.get().params);
      },
      "20 numbers of the application, as a copy; assign to change them.");
  type.def_property_readonly(
      "tag", tag_of, "Tag of the grid in the library, made when it is asked for.");
  type.def("put", put, py::arg("frames"), py::kw_only(), py::arg("time") = 0.0,
           py::arg("dt") = 1.0, py::arg("decimation") = 0,
           R"(Replaces all frames: [nframes, ny, nx] or [ny, nx].

decimation  above 1: keeps the greatest values of as many frames each, at least 0)");
  type.def(
      "append",
      [](const Grid &self, const py::object &frame) {
        const Floats values = frames_of(self, frame, "frame");
        if (values.ndim() != 2) throw py::value_error("frame must have two dimensions");
        const float *const data = values.data();
        self.move("append",
                  [&] { return ksgrid_append_sample_ksgrid(&self.get(), data); });
      },
      py::arg("frame"), "Adds a frame [ny, nx] after the last of at least one.");
  type.def(
      "trim",
      [](const Grid &self, int keep) {
        self.move("trim", [&] { return ksgrid_trim_ksgrid(&self.get(), keep); });
      },
      py::arg("keep"), "Drops the oldest frames, so that at most `keep` remain.");
  type.def(
      "evaluate",
      [](const Grid &self, const py::object &x, const py::object &y, int frame,
         const std::string &interpolation) {
        return evaluate(self, x, y, frame, interpolation, std::nullopt, std::nullopt);
      },
      py::arg("x"), py::arg("y"), py::kw_only(), py::arg("frame") = 0,
      py::arg("interpolation") = "bilinear",
      R"(Values float32 of one frame at points; x and y are broadcast.

interpolation  "bilinear" or "block", the nearest node
NaN off the mesh and beside nodes without a value.)");
  type.def(
      "evaluate_slowness",
      [](const Grid &self, const py::object &x, const py::object &y, double depth,
         int frame, const std::string &interpolation,
         const std::optional<std::string> &model) {
        return evaluate(self, x, y, frame, interpolation, depth, model);
      },
      py::arg("x"), py::arg("y"), py::arg("depth"), py::kw_only(), py::arg("frame") = 0,
      py::arg("interpolation") = "bilinear", py::arg("model") = py::none(),
      R"(Values of a grid over slowness at points x degrees east and y degrees north.

depth  of the source, km
model  "iasp91", the default, or "ak135")");
  type.def(
      "to_slowness", to_slowness, py::arg("depth"), py::kw_only(),
      py::arg("axes") = "xy", py::arg("model") = py::none(),
      "Converts axes from distances in degrees to slownesses in s/degree, in place.");
  type.def("extremes", extremes, py::kw_only(), py::arg("frame") = py::none(),
           "(least, greatest) value of one frame or of all.");
  type.def("copy", copy, "A copy with its own frames.");
  type.def("__copy__", copy);
  type.def("__deepcopy__",
           [](const Grid &self, const py::dict &) { return copy(self); });
  type.def("to_packet", to_packet, "The grid as the bytes of a packet.");
  type.def_static("from_packet", from_packet, py::arg("packet"),
                  "The grid of a packet.");
  type.def(
      "write", write_to, py::arg("file"),
      "Writes a packet with its length before it to a descriptor, a pipe, a socket "
      "or an open binary file.");
  type.def_static("read", read_from, py::arg("file"),
                  "Reads what write() wrote; None at the end of the stream.");
  type.def(
      "figure",
      [](py::object self, const py::args &args, const py::kwargs &kwargs) {
        return call_python("ksutil.figures", "grid_figure", self, args, kwargs);
      },
      "A Figure of one frame; see ksutil.figures.grid_figure.");
}

}  // namespace ksutil::python
