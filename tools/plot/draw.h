/* draw: draws the parts of a panel, in the order of the functions below. */
#ifndef KSUTIL_TOOLS_PLOT_DRAW_H
#define KSUTIL_TOOLS_PLOT_DRAW_H

#include "tools/plot/canvas.h"
#include "tools/plot/layout.h"

namespace ksutil::plot {

inline constexpr Colour kInk{0.13, 0.13, 0.15, 1.0};
inline constexpr Colour kGreyInk{0.35, 0.35, 0.38, 1.0};
inline constexpr Colour kGrid{0.90, 0.90, 0.91, 1.0};
inline constexpr Colour kFrame{0.55, 0.55, 0.58, 1.0};

void draw_grid(Canvas &canvas, const PanelLayout &layout);
void draw_meshes(Canvas &canvas, const PanelLayout &layout);
/* The coast and the grid of a map; its bar of kilometres and the name of its projection;
 * its frame with labels.  Nothing where the panel is not a map. */
void draw_coast(Canvas &canvas, const PanelLayout &layout);
void draw_furniture(Canvas &canvas, const PanelLayout &layout);
void draw_map_frame(Canvas &canvas, const PanelLayout &layout);
void draw_lines(Canvas &canvas, const PanelLayout &layout);
void draw_points(Canvas &canvas, const PanelLayout &layout);
void draw_disks(Canvas &canvas, const PanelLayout &layout);
void draw_markers(Canvas &canvas, const PanelLayout &layout);
void draw_frame(Canvas &canvas, const PanelLayout &layout);  // with ticks and labels
void draw_legend(Canvas &canvas, const PanelLayout &layout);
void draw_keys(Canvas &canvas, const PanelLayout &layout);

/* The strokes of a line in the picture, one after each gap; a stroke of one position is a
 * point on its own. */
std::vector<std::vector<Position>> strokes(const Line &line, const AxisView &x,
                                           const AxisView &y);

/* An opaque pixel of a raster. */
std::uint32_t pixel(const Colour &colour);

/* The cells of a mesh over a frame, clear where the mesh has no value. */
Raster mesh_raster(const Mesh &mesh, const Rect &frame, const AxisView &x,
                   const AxisView &y);

}  // namespace ksutil::plot
#endif
