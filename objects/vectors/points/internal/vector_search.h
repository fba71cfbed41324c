/* vector_search: finds where an x value lies among the points of a vector. */
#ifndef KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_SEARCH_H
#define KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_SEARCH_H

#include "platform/stock/memory.h"

struct KSVectorPoint;

namespace ksutil {

/* Finds, among n >= 1 points, the one whose x is the first not below a given x: counted
 * upward from the first point, or downward from the last one when the last x is below the
 * first.  The rule holds for x values in any order, NaN among them (never reached).
 *
 * The second search of unchanged points lays out an array of bounds: the largest x met so
 * far in the direction of the count.  Bounds never fall, so a binary search finds the first
 * bound not below x, and it belongs to the point that counting would find.
 * Programs may write into the points: a result is used only if the point found and the one
 * before it confirm it, else the points are counted.  This misses an x value out of order
 * elsewhere, hence forget().  Without memory for the bounds the points are always counted. */
class VectorSearch {
 public:
  /* The index; n upward, -1 downward when every x is below the given one. */
  int find(const KSVectorPoint *points, int n, bool descending, double x);

  /* Discards the bounds: the points may have changed. */
  void forget() { known_ = asked_ = 0; }

 private:
  bool lay_out(const KSVectorPoint *points, int n, bool descending);
  int rank(double x);

  MallocPtr<double> bounds_;  // [known_], never falling
  int room_ = 0;
  int known_ = 0;  // points that the bounds stand for; 0: none
  int asked_ = 0;  // points of the last question since a change; 0: none
  int last_ = 0;   // rank found last
  bool descending_ = false;
};

}  // namespace ksutil
#endif
