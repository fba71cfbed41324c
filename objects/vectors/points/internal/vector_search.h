/* Where an x value lies among the points of a vector. */
#ifndef KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_SEARCH_H
#define KSUTIL_OBJECTS_VECTORS_POINTS_INTERNAL_VECTOR_SEARCH_H

#include "platform/stock/memory.h"

struct KSVectorPoint;

namespace ksutil {

/* Finds, among n >= 1 points, the one whose x is the first not below a given x: counted
 * upward from the first point, or downward from the last one when the last x is below the
 * first.  The rule holds for x values in any order, NaN among them (never reached).
 *
 * After a second question about unchanged points the largest x met so far in the direction
 * of the count is laid out contiguously.  These bounds never fall, so the first bound
 * not below x, which a binary search finds, belongs to the point that counting would find.
 * Programs may write into the points without telling: what the bounds say is believed only
 * when the points on both sides agree, else the points are counted.  Without memory for the
 * bounds they are counted always. */
class VectorSearch {
 public:
  /* The index; n upward, -1 downward when every x is below the given one. */
  int find(const KSVectorPoint *points, int n, bool descending, double x);

  /* The points have changed. */
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
