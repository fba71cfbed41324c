#include "events/tabs.h"

#include <algorithm>

#include "events/evclient.h"

namespace {

const Table<EVEvent> *shown(const EVEventsTab &tab) { return tab.events; }
const Table<EVEvent> *shown(const EVConstEventsTab &tab) { return tab.events; }
const Table<EVOrigin> *shown(const EVOriginsTab &tab) { return tab.origins; }
const Table<EVOrigin> *shown(const EVConstOriginsTab &tab) { return tab.origins; }

template <class Tab>
void set_tabs(Tab *tab, const Table<int> *order) {
  if (tab == nullptr) return;
  if (order == nullptr) {
    const long count = shown(*tab) == nullptr ? 0 : shown(*tab)->size();
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

template <class Tab>
int row_of(const Tab *tab, int index) {
  return tab == nullptr ? -1 : entry(tab->rows, index);
}

template <class Tab>
int index_at(const Tab *tab, int row) {
  return tab == nullptr ? -1 : entry(tab->index, row);
}

template <class Tab, class Record>
int index_with(const Tab *tab, int64_t Record::*id, long wanted) {
  const Table<Record> *const records = tab == nullptr ? nullptr : shown(*tab);
  if (records == nullptr) return -1;
  const auto found =
      std::find_if(records->begin(), records->end(),
                   [&](const Record &record) { return record.*id == wanted; });
  return found == records->end() ? -1 : static_cast<int>(found - records->begin());
}

}  // namespace

void EVClient::setEventsTabs(EVEventsTab *tab, Table<int> *order) {
  set_tabs(tab, order);
}
void EVClient::setEventsTabs(EVConstEventsTab *tab, Table<int> *order) {
  set_tabs(tab, order);
}
void EVClient::setOriginsTabs(EVOriginsTab *tab, Table<int> *order) {
  set_tabs(tab, order);
}
void EVClient::setOriginsTabs(EVConstOriginsTab *tab, Table<int> *order) {
  set_tabs(tab, order);
}

int EVClient::getRow(EVEventsTab *tab, int index) { return row_of(tab, index); }
int EVClient::getRow(EVConstEventsTab *tab, int index) { return row_of(tab, index); }
int EVClient::getRow(EVOriginsTab *tab, int index) { return row_of(tab, index); }
int EVClient::getRow(EVConstOriginsTab *tab, int index) { return row_of(tab, index); }

int EVClient::getIndex(EVEventsTab *tab, int row) { return index_at(tab, row); }
int EVClient::getIndex(EVConstEventsTab *tab, int row) { return index_at(tab, row); }
int EVClient::getIndex(EVOriginsTab *tab, int row) { return index_at(tab, row); }
int EVClient::getIndex(EVConstOriginsTab *tab, int row) { return index_at(tab, row); }

int EVClient::findEvidIndex(EVEventsTab *tab, long evid) {
  return index_with(tab, &EVEvent::evid, evid);
}
int EVClient::findEvidRow(EVEventsTab *tab, long evid) {
  return row_of(tab, index_with(tab, &EVEvent::evid, evid));
}

int EVClient::findEvidIndex(EVConstEventsTab *tab, long evid) {
  return index_with(tab, &EVEvent::evid, evid);
}
int EVClient::findEvidRow(EVConstEventsTab *tab, long evid) {
  return row_of(tab, index_with(tab, &EVEvent::evid, evid));
}

int EVClient::findOridIndex(EVOriginsTab *tab, long orid) {
  return index_with(tab, &EVOrigin::orid, orid);
}
int EVClient::findOridRow(EVOriginsTab *tab, long orid) {
  return row_of(tab, index_with(tab, &EVOrigin::orid, orid));
}

int EVClient::findOridIndex(EVConstOriginsTab *tab, long orid) {
  return index_with(tab, &EVOrigin::orid, orid);
}
int EVClient::findOridRow(EVConstOriginsTab *tab, long orid) {
  return row_of(tab, index_with(tab, &EVOrigin::orid, orid));
}
