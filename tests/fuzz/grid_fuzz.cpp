/* Grid packets, bare and in their framing: what is accepted packs to the same bytes, and
 * can be evaluated, ordered and trimmed. */
#include <cstdlib>
#include <cstring>

#include "objects/ksgrid.h"
#include "platform/stock/files.h"
#include "platform/stock/memory.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {

struct GridDeleter {
  void operator()(KSGrid *grid) const { ksgrid_free_ksgrid(grid); }
};
using GridPtr = std::unique_ptr<KSGrid, GridDeleter>;

GridPtr empty_grid() {
  return GridPtr(static_cast<KSGrid *>(std::calloc(1, sizeof(KSGrid))));
}

/* Values at points in the middle of the mesh, on its edges and far off. */
void use(KSGrid *grid) {
  float xmin = 0, xmax = 0, ymin = 0, ymax = 0;
  ksgrid_maxmin_ksgrid(grid, -1, &xmin, &xmax, &ymin, &ymax, nullptr, nullptr);
  const float x[] = {0.0F, xmin, xmax, xmin / 2 + xmax / 2, 1e30F};
  const float y[] = {0.0F, ymin, ymax, ymin / 2 + ymax / 2, -1e30F};
  constexpr int kPoints = 5;
  float *values = nullptr;
  int count = 0;
  for (const char *mode : {"block", "bilinear"}) {
    for (const int frame : {0, grid->nframes - 1, grid->nframes}) {
      const bool there = frame >= 0 && frame < grid->nframes;
      const int result =
          ksgrid_eval_ksgrid(grid, frame, kPoints, x, y, mode, "none", &values, &count);
      require(result == 0 ? there && count >= kPoints : true,
              "values come for frames that are there");
      ksgrid_eval_d2slow_ksgrid(grid, nullptr, 10.0, frame, kPoints, x, y, mode, "none",
                                &values, &count);
    }
  }
  const MallocPtr<float> owned(values);
  ksgrid_order(grid);
  ksgrid_d2slow_ksgrid(grid, "ak135", 33.0, KSGRID_X);
  ksgrid_trim_ksgrid(grid, 1);
  require(grid->nframes <= 1, "a grid is trimmed");
}

void read_input(std::string_view input) {
  const GridPtr bare = empty_grid(), framed = empty_grid();
  const int size = static_cast<int>(input.size());
  if (ksgrid_unstuff(input.data(), size, bare.get()) == 0) {
    char *packed = nullptr;
    int bytes = 0, allocated = 0;
    require(ksgrid_stuff_ksgrid(bare.get(), &packed, &bytes, &allocated) == 0 &&
                bytes == size,
            "a grid packs into a packet of the same size");
    const MallocPtr<char> owned(packed);
    use(bare.get());
  }
  const FileHandle file = open_file(file_of(input), 0);
  while (ksgrid_read_fd(file.get(), framed.get()) > 0) {
  }
}

}  // namespace ksutil::fuzz
