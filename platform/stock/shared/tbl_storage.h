/* tbl_storage: the interface behind a Tbl: elements of one size, in memory or
 * elsewhere.
 *
 * The list functions use only this interface.  A list kept in a file behaves like any
 * other list: write a TblStorage for the file and pass it to tbl_with_storage. */
#ifndef KSUTIL_PLATFORM_STOCK_SHARED_TBL_STORAGE_H
#define KSUTIL_PLATFORM_STOCK_SHARED_TBL_STORAGE_H

#include <cstddef>
#include <memory>

#include "platform/stock/memory.h"
#include "platform/stock/tbl.h"

namespace ksutil {

class TblStorage : public SeamAllocated {
 public:
  virtual ~TblStorage() = default;
  virtual std::size_t element_size() const = 0;
  virtual long count() const = 0;

  /* The address of element i, 0 <= i < count(), valid until the next call; null when
   * the element cannot be read. */
  virtual void *at(long i) = 0;

  /* Copies the element to index i >= 0, filling a gap with zero bytes.  False leaves
   * the elements as they were.  `element` may lie inside this storage. */
  virtual bool store(long i, const void *element) = 0;

  /* Removes element i, 0 <= i < count(), moving the later ones down. */
  virtual bool remove(long i) = 0;
};

/* A list of inline elements over the storage, which it closes when it is freed; null
 * when memory is short or the storage is null. */
Tbl *tbl_with_storage(std::unique_ptr<TblStorage> storage);

/* The storage of a list; null for a null list. */
TblStorage *tbl_storage(Tbl *tbl);

}  // namespace ksutil
#endif
