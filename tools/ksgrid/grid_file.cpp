#include "tools/ksgrid/grid_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <new>

#include "platform/elog/elog.h"
#include "platform/stock/memory.h"
#include "tools/common/cli.h"

namespace ksutil::tools {

Grid::Grid() : grid_(static_cast<KSGrid *>(ks_calloc(1, sizeof(KSGrid)))) {
  if (grid_ == nullptr) throw std::bad_alloc();
}

bool GridFile::open(const std::string &path) {
  if (path == "-") {
    fd_ = STDIN_FILENO;
    return true;
  }
  file_ = open_file(path, O_RDONLY);
  fd_ = file_.get();
  if (!file_) complain(path + ": " + std::strerror(errno));
  return static_cast<bool>(file_);
}

Next GridFile::next(Grid &grid) {
  const int got = ksgrid_read_fd(fd_, grid.get());
  return got > 0 ? Next::kGrid : got == 0 ? Next::kEnd : Next::kDamaged;
}

void complain_of_grids(const std::string &path) {
  elog_clear_register(0);  // it names only the call that failed
  complain(path + ": not a file of grids, or damaged");
}

bool read_grid(const std::string &path, int index, Grid &grid) {
  GridFile file;
  if (!file.open(path)) return false;
  for (int i = 0; i <= index; i++) {
    const Next next = file.next(grid);
    if (next == Next::kGrid) continue;
    if (next == Next::kEnd) {
      complain(path + ": holds " + std::to_string(i) + " grids, none of number " +
               std::to_string(index));
    } else {
      complain_of_grids(path);
    }
    return false;
  }
  return true;
}

bool find_frame(const KSGrid &grid, int number, int &frame) {
  frame = number < 0 ? number + grid.nframes : number;
  if (frame >= 0 && frame < grid.nframes) return true;
  complain("no frame " + std::to_string(number) + ": the grid has " +
           std::to_string(grid.nframes));
  return false;
}

std::string number_text(float value) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof text, value).ptr};
}

}  // namespace ksutil::tools
