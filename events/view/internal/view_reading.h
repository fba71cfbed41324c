/* The frame of every reading of a view. */
#ifndef KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_READING_H
#define KSUTIL_EVENTS_VIEW_INTERNAL_VIEW_READING_H

#include <mutex>
#include <new>

#include "core/register.h"
#include "events/database/internal/row_result.h"
#include "events/reading/internal/tree_reader.h"
#include "events/view/internal/view_state.h"

namespace ksutil::events {

/* What a reading is called in messages, and what it reports when its tables cannot be
 * read. */
struct ReadingName {
  const char *function;
  const char *unbound = "cannot read the tables";
};

/* Reports "KSEventView::<function>: <text>.\n" and gives -1. */
int view_failure(const char *function, const char *text);

/* Runs `read` with tables bound by `bind`; what it gives, or -1. */
template <class Bind, class Read>
int with_tables(ViewState &state, ReadingName name, Bind bind, Read read) {
  try {
    const std::lock_guard lock(state.database_lock);
    if (state.db.database == dbINVALID) {
      return view_failure(name.function, "No database currently open");
    }
    TreeReader reader(state.reading_source());
    if (!bind(reader)) return view_failure(name.function, name.unbound);
    return read(reader);
  } catch (const std::bad_alloc &) {
    return view_failure(name.function, "malloc() error");
  }
}

/* The same for a record of the caller's, which is null where he found none. */
template <class Bind, class Read>
int with_record(ViewState &state, ReadingName name, const void *record, Bind bind,
                Read read) {
  if (record == nullptr) return view_failure(name.function, "no record is given");
  return with_tables(state, name, bind, read);
}

inline bool bind_list(TreeReader &reader) { return reader.bind_list(); }
inline bool bind_all(TreeReader &reader) {
  return reader.bind_list() && reader.bind_expansion(false);
}
inline bool bind_detections(TreeReader &reader) { return reader.bind_detections(); }
inline bool bind_sites(TreeReader &reader) { return reader.bind_sites(); }

}  // namespace ksutil::events
#endif
