#include "events/tabs.h"

#include <algorithm>

#include "events/evclient.h"

namespace {

template <class Tab>
void set_tabs(Tab *tab, long count, const Table<int> *order) {
  if (tab == nullptr) return;
  if (order == nullptr) {
    tab->index.clear();
    for (int i = 0; i < count; i++) tab->index.push(i);
  } else if (order != &tab->index) {
    tab->index = *order;
  }
  const long n = tab->index.size();
  Table<int> rows;
  for (long i = 0; i < n; i++) rows.push(-1);
  for (int row = 0; row < n; row++) {
    if (int *const shown = rows.ptr(*tab->index.ptr(row))) *shown = row;
  }
  tab->rows = std::move(rows);
}

int entry(const Table<int> &mapping, int at) {
  const int *const found = mapping.ptr(at);
  return found == nullptr ? -1 : *found;
}

template <class Record, class Id>
int index_of(const Table<Record> *records, Id Record::*id, long wanted) {
  if (records == nullptr) return -1;
  const auto found =
      std::find_if(records->begin(), records->end(),
                   [&](const Record &record) { return record.*id == wanted; });
  return found == records->end() ? -1 : static_cast<int>(found - records->begin());
}

}  // namespace

void EVClient::setEventsTabs(EVEventsTab *tab, Table<int> *order) {
  set_tabs(tab, tab == nullptr || tab->events == nullptr ? 0 : tab->events->size(),
           order);
}

void EVClient::setOriginsTabs(EVOriginsTab *tab, Table<int> *order) {
  set_tabs(tab, tab == nullptr || tab->origins == nullptr ? 0 : tab->origins->size(),
           order);
}

int EVClient::getRow(EVEventsTab *tab, int index) {
  return tab == nullptr ? -1 : entry(tab->rows, index);
}

int EVClient::getRow(EVOriginsTab *tab, int index) {
  return tab == nullptr ? -1 : entry(tab->rows, index);
}

int EVClient::getIndex(EVEventsTab *tab, int row) {
  return tab == nullptr ? -1 : entry(tab->index, row);
}

int EVClient::getIndex(EVOriginsTab *tab, int row) {
  return tab == nullptr ? -1 : entry(tab->index, row);
}

int EVClient::findEvidIndex(EVEventsTab *tab, long evid) {
  return tab == nullptr ? -1 : index_of(tab->events, &EVEvent::evid, evid);
}

int EVClient::findEvidRow(EVEventsTab *tab, long evid) {
  return getRow(tab, findEvidIndex(tab, evid));
}

int EVClient::findOridIndex(EVOriginsTab *tab, long orid) {
  return tab == nullptr ? -1 : index_of(tab->origins, &EVOrigin::orid, orid);
}

int EVClient::findOridRow(EVOriginsTab *tab, long orid) {
  return getRow(tab, findOridIndex(tab, orid));
}
