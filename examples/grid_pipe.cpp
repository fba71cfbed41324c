/* Sends grids through a pipe, from a program that computes to one that shows.
 *
 * `make` writes FRAMES grids to standard output, one a packet: the intensity around a
 * source that moves by one degree to the east and half a degree to the north each step.
 * `show` reads packets from standard input until they end, and prints for each its
 * time, the node with the greatest value, and the value at a point X, Y between the nodes.
 * Packets have one byte order, so the two programs may run on different machines.
 *
 * Usage: grid_pipe make FRAMES | grid_pipe show X Y */
#include <ksutil.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

struct Free {
  void operator()(KSGrid *grid) const { ksgrid_free_ksgrid(grid); }
  void operator()(float *values) const { std::free(values); }
};
using GridPtr = std::unique_ptr<KSGrid, Free>;

int make_grids(std::int64_t frames) {
  constexpr int kNodes = 21;
  constexpr double kWidth = 2.0;  // degrees, of the bell around the source
  std::vector<float> x(kNodes), y(kNodes), frame(kNodes * kNodes);
  for (int i = 0; i < kNodes; i++) {
    x[static_cast<std::size_t>(i)] = static_cast<float>(10 + i);
    y[static_cast<std::size_t>(i)] = static_cast<float>(40 + i);
  }
  const GridPtr grid(ksgrid_create("lon", kNodes, x.data(), "degrees", nullptr, kNodes,
                                   y.data(), "degrees", nullptr, "intensity", nullptr,
                                   "moving", nullptr));
  if (grid == nullptr) return 1;
  for (std::int64_t step = 0; step < frames; step++) {
    const double east = 12.0 + static_cast<double>(step),
                 north = 42.0 + 0.5 * static_cast<double>(step);
    std::size_t at = 0;
    for (const float lat : y) {
      for (const float lon : x) {
        const double distance = std::hypot(lon - east, lat - north) / kWidth;
        frame[at++] = static_cast<float>(std::exp(-distance * distance));
      }
    }
    if (ksgrid_put_ksgrid(grid.get(), 1, frame.data(), static_cast<double>(step),
                          1.0) != 0 ||
        ksgrid_write_fd_ksgrid(grid.get(), STDOUT_FILENO) != 0) {
      ks_complain(0, "cannot write grid %ld.\n", static_cast<long>(step));
      return 1;
    }
  }
  return 0;
}

/* Prints one grid; false when it cannot be evaluated. */
bool show_grid(const KSGrid &grid, float x, float y) {
  if (grid.ndata == 0) return false;
  int greatest = 0;
  for (int i = 1; i < grid.nx * grid.ny; i++) {
    if (grid.data[i] > grid.data[greatest]) greatest = i;
  }
  float *made = nullptr;
  int size = 0;
  if (ksgrid_eval_ksgrid(&grid, 0, 1, &x, &y, "bilinear", "none", &made, &size) != 0) {
    return false;
  }
  const std::unique_ptr<float, Free> value(made);
  std::printf("%.0f s: greatest %.3f at %g %g; at the point ", grid.time,
              static_cast<double>(grid.data[greatest]),
              static_cast<double>(grid.x[greatest % grid.nx]),
              static_cast<double>(grid.y[greatest / grid.nx]));
  if (*value == grid.gapval) {
    std::puts("nothing");
  } else {
    std::printf("%.3f\n", static_cast<double>(*value));
  }
  std::fflush(stdout);
  return true;
}

int show_grids(float x, float y) {
  /* One record takes all packets; what it held is freed by the next one. */
  const GridPtr grid(static_cast<KSGrid *>(std::calloc(1, sizeof(KSGrid))));
  if (grid == nullptr) return 1;
  int bytes = 0;
  while ((bytes = ksgrid_read_fd(STDIN_FILENO, grid.get())) > 0) {
    if (!show_grid(*grid, x, y)) break;
  }
  if (bytes == 0) return 0;
  ks_complain(0, "a packet is damaged.\n");
  return 1;
}

}  // namespace

int main(int argc, char **argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has gone is an error, not the end
  std::int64_t frames = 0;
  double x = 0.0, y = 0.0;
  if (argc == 3 && std::strcmp(argv[1], "make") == 0 &&
      ksutil::parse_integer(argv[2], frames) && frames >= 1) {
    return make_grids(frames);
  }
  if (argc == 4 && std::strcmp(argv[1], "show") == 0 &&
      ksutil::parse_real(argv[2], x) && ksutil::parse_real(argv[3], y)) {
    return show_grids(static_cast<float>(x), static_cast<float>(y));
  }
  std::fputs("usage: grid_pipe make FRAMES | grid_pipe show X Y\n", stderr);
  return 2;
}
