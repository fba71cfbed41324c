/* Grid packets, bare and in their framing: what is accepted packs to the same bytes. */
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
  }
  const FileHandle file = open_file(file_of(input), 0);
  while (ksgrid_read_fd(file.get(), framed.get()) > 0) {
  }
}

}  // namespace ksutil::fuzz
