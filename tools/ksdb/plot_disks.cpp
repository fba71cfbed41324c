#include "tools/ksdb/plot_disks.h"

#include <algorithm>
#include <array>
#include <vector>

#include "tools/common/cli.h"
#include "tools/plot/beachball.h"

namespace ksutil::tools {
namespace {

constexpr std::size_t kMostDisks = 4000;
constexpr double kUsualSize = 24.0;

}  // namespace

double disk_size(double size) { return 5.0 + 2.7 * size; }

bool replace_by_disks(Dbptr view, const std::vector<double> &sizes, double opacity,
                      plot::Panel &panel, long &left_out) {
  const std::vector<plot::Point> points = std::move(panel.points.back().points);
  panel.points.pop_back();
  left_out = 0;
  for (std::size_t i = 0; i < points.size(); i++) {
    view.record = static_cast<long>(i);
    std::array<double, 6> tensor;
    plot::Disk disk;
    if (!plot::row_mechanism(view, tensor.data()) ||
        !plot::beachball(tensor.data(), {}, disk)) {
      left_out++;
      continue;
    }
    if (panel.disks.size() == kMostDisks) {
      complain("more than " + std::to_string(kMostDisks) +
               " mechanisms are too many for a picture; --where chooses some");
      return false;
    }
    disk.x = points[i].x;
    disk.y = points[i].y;
    disk.size = sizes.empty() ? kUsualSize : disk_size(sizes[i]);
    disk.fill = points[i].style.colour;
    disk.opacity = opacity;
    panel.disks.push_back(std::move(disk));
  }
  std::stable_sort(panel.disks.begin(), panel.disks.end(),
                   [](const auto &a, const auto &b) { return a.size > b.size; });
  if (!panel.disks.empty()) return true;
  complain("no row has a mechanism; join the table mt, as mt+origin");
  return false;
}

}  // namespace ksutil::tools
