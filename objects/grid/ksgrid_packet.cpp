#include <climits>
#include <cstring>

#include "objects/grid/internal/grid_storage.h"
#include "objects/ksgrid.h"
#include "platform/elog/failure.h"
#include "platform/stock/bytes.h"

using namespace ksutil;
using namespace ksutil::grids;

namespace {

constexpr std::int64_t kParams = std::size(KSGrid{}.params);
constexpr std::int64_t kHeaderBytes = 3 * 4 + (2 + kParams) * 8;

std::int64_t value_bytes(std::int64_t nx, std::int64_t ny, std::int64_t nframes) {
  return 4 * (nx + ny + nx * ny * nframes);
}

std::int64_t packet_bytes(const KSGrid &grid) {
  std::int64_t bytes = kHeaderBytes + value_bytes(grid.nx, grid.ny, grid.nframes);
  for (const auto text : kTexts) {
    bytes += 1;
    if (grid.*text != nullptr) bytes += static_cast<std::int64_t>(strlen(grid.*text));
  }
  return bytes;
}

/* Writes numbers and texts one after another. */
class Packer {
 public:
  explicit Packer(char *to) : to_(to) {}

  void integers(const std::int32_t *from, long n) { convert(hi2mi, from, n, 4); }
  void reals(const double *from, long n) { convert(hd2md, from, n, 8); }
  void floats(const float *from, long n) { convert(hf2mf, from, n, 4); }
  void text(const char *from) {
    const std::size_t length = from == nullptr ? 0 : strlen(from);
    if (length > 0) std::memcpy(to_, from, length);
    to_[length] = '\0';
    to_ += length + 1;
  }

 private:
  void convert(void (*swap)(const void *, void *, long), const void *from, long n,
               long size) {
    swap(from, to_, n);
    to_ += n * size;
  }

  char *to_;
};

/* Reads numbers and texts in the same order.  The caller has checked that the packet is
 * long enough. */
class Unpacker {
 public:
  explicit Unpacker(const char *from) : from_(from) {}

  void integers(std::int32_t *to, long n) { convert(mi2hi, to, n, 4); }
  void reals(double *to, long n) { convert(md2hd, to, n, 8); }
  bool floats(float *&to, long n) {
    to = static_cast<float *>(ks_malloc(float_bytes(n)));
    if (to == nullptr) return false;
    convert(mf2hf, to, n, 4);
    return true;
  }
  bool text(char *&to) {
    const char *const from = from_;
    from_ += strlen(from) + 1;
    return *from == '\0' || copy_text(from, to);
  }

 private:
  void convert(void (*swap)(const void *, void *, long), void *to, long n, long size) {
    swap(from_, to, n);
    from_ += n * size;
  }

  const char *from_;
};

/* Reads the counts; false when they are impossible, or when the arrays and texts that
 * they announce do not fill the packet exactly. */
bool read_counts(const char *packet, std::int64_t nbytes, KSGrid &grid) {
  if (packet == nullptr || nbytes < kHeaderBytes) return false;
  std::int32_t counts[3];
  Unpacker(packet).integers(counts, 3);
  const auto [nx, ny, nframes] = counts;
  /* Check nx * ny by itself: a packet without frames is short, however large nx * ny
   * is. */
  if (nx < 1 || ny < 1 || nframes < 0 || nx > INT_MAX / ny) return false;
  if (nframes > nbytes / (nx * ny)) return false;
  std::int64_t at = kHeaderBytes + value_bytes(nx, ny, nframes);
  for (std::size_t i = 0; i < kTexts.size(); ++i) {
    if (at >= nbytes) return false;
    const void *const end =
        std::memchr(packet + at, '\0', static_cast<std::size_t>(nbytes - at));
    if (end == nullptr) return false;
    at = static_cast<const char *>(end) - packet + 1;
  }
  grid.nx = nx;
  grid.ny = ny;
  grid.nframes = nframes;
  grid.ndata = nx * ny * nframes;
  return at == nbytes;
}

/* Reads everything after the counts; false when memory is short. */
bool read_contents(const char *packet, KSGrid &grid) {
  Unpacker from(packet + 3 * 4);
  from.reals(&grid.time, 1);
  from.reals(&grid.dt, 1);
  from.reals(grid.params, kParams);
  if (!from.floats(grid.x, grid.nx) || !from.floats(grid.y, grid.ny)) return false;
  if (grid.ndata > 0 && !from.floats(grid.data, grid.ndata)) return false;
  for (const auto text : kTexts) {
    if (!from.text(grid.*text)) return false;
  }
  return true;
}

}  // namespace

int ksgrid_stuff_ksgrid(const KSGrid *grid, char **packet, int *nbytes,
                        int *allocated) {
  if (grid == nullptr || frame_size(*grid) == 0) {
    return fail("ksgrid_stuff_ksgrid", "Not a grid");
  }
  const std::int64_t bytes = packet_bytes(*grid);
  if (bytes > INT_MAX) {
    return fail("ksgrid_stuff_ksgrid", "Grid too large for a packet");
  }
  if (*packet == nullptr || *allocated < bytes) {
    void *const room = ks_realloc(*packet, static_cast<std::size_t>(bytes));
    if (room == nullptr) {
      return fail_errno("ksgrid_stuff_ksgrid", "%s(packet,%ld) error",
                        *packet == nullptr ? "malloc" : "realloc",
                        static_cast<long>(bytes));
    }
    *packet = static_cast<char *>(room);
    *allocated = static_cast<int>(bytes);
  }
  Packer to(*packet);
  to.integers(&grid->nx, 1);
  to.integers(&grid->ny, 1);
  to.integers(&grid->nframes, 1);
  to.reals(&grid->time, 1);
  to.reals(&grid->dt, 1);
  to.reals(grid->params, kParams);
  to.floats(grid->x, grid->nx);
  to.floats(grid->y, grid->ny);
  to.floats(grid->data, grid->ndata);
  for (const auto text : kTexts) to.text(grid->*text);
  *nbytes = static_cast<int>(bytes);
  return 0;
}

int ksgrid_unstuff(const char *packet, int nbytes, KSGrid *grid) {
  if (grid == nullptr) return fail("ksgrid_unstuff", "No grid");
  KSGrid counts = {};
  if (!read_counts(packet, nbytes, counts)) {
    return fail("ksgrid_unstuff", "Illegal packet");
  }
  GridPtr filled = new_record();
  if (filled != nullptr) {
    filled->nx = counts.nx;
    filled->ny = counts.ny;
    filled->nframes = counts.nframes;
    filled->ndata = counts.ndata;
  }
  if (filled == nullptr || !read_contents(packet, *filled)) {
    return fail_errno("ksgrid_unstuff", "malloc() error");
  }
  if (frame_size(*grid) > 0) {
    filled->gapval = grid->gapval;
    filled->order = grid->order;
  }
  std::swap(*grid, *filled);
  return 0;
}
