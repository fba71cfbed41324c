/* grid_file: reads files of grids: packets one after another, as ksgrid_write_fd writes
 * them. */
#ifndef KSUTIL_TOOLS_KSGRID_GRID_FILE_H
#define KSUTIL_TOOLS_KSGRID_GRID_FILE_H

#include <string>

#include "objects/ksgrid.h"
#include "platform/stock/files.h"

namespace ksutil::tools {

/* A grid that is freed at the end of its scope. */
class Grid {
 public:
  Grid();
  explicit Grid(KSGrid *grid) : grid_(grid) {}
  ~Grid() { ksgrid_free_ksgrid(grid_); }
  Grid(const Grid &) = delete;
  Grid &operator=(const Grid &) = delete;

  KSGrid *get() const { return grid_; }
  KSGrid *operator->() const { return grid_; }
  const KSGrid &operator*() const { return *grid_; }

 private:
  KSGrid *grid_;
};

enum class Next { kGrid, kEnd, kDamaged };

/* Reads the grids of a file, or of standard input for "-", in turn. */
class GridFile {
 public:
  /* False with a complaint. */
  bool open(const std::string &path);
  /* A grid replaces what `grid` held; failures leave messages in the register. */
  Next next(Grid &grid);

 private:
  FileHandle file_;
  int fd_ = -1;
};

/* Reports that a file is damaged or not one of grids. */
void complain_of_grids(const std::string &path);

/* Reads the index-th grid of a file; false with complaints. */
bool read_grid(const std::string &path, int index, Grid &grid);

/* The frame that a number of the command line names; false with a complaint. */
bool find_frame(const KSGrid &grid, int number, int &frame);

/* The shortest text that reads back as the same number. */
std::string number_text(float value);

/* A text of a grid, "" for null. */
inline std::string text_of(const char *text) { return text == nullptr ? "" : text; }

}  // namespace ksutil::tools
#endif
