/* Interpolation in a vector that has been looked up. */
#ifndef KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_EVAL_H
#define KSUTIL_OBJECTS_VECTORS_SHARED_INTERNAL_VECTOR_EVAL_H

struct KSVector;

namespace ksutil {

/* Writes the values at x into y[ny]; the vector has points. */
void evaluate(const KSVector &vector, double x, double *y);

}  // namespace ksutil
#endif
