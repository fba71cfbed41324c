#include <algorithm>
#include <cstring>
#include <vector>

#include "events/client/internal/sort_order.h"
#include "events/evclient.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"

using ksutil::fail;

namespace {

/* Whether checkSortQuery evaluates the query on the record. */
bool is_asked(const EVEvent &event) {
  return event.origins.size() > 0 && event.pref_origin >= 0;
}

bool is_asked(const EVOrigin &) { return true; }

template <class Record>
int check_sort_query(EVClient &client, const Table<Record> *records,
                     const std::string &query) {
  constexpr const char *kWho = "EVClient::checkSortQuery";
  std::vector<EVQueryToken> tokens;
  if (client.parse_query(query, tokens) < 0) {
    return fail(kWho, "parse_query(%s) error", query.c_str());
  }
  if (records == nullptr) return 0;
  for (const Record &record : *records) {
    alignas(8) char value[EV_VALUE_SIZE];
    int type = 0;
    if (is_asked(record) && client.getValue(&record, tokens, &type, value) < 0) {
      return fail(kWho, "getValue(%s) error", query.c_str());
    }
  }
  return 0;
}

template <class Record>
std::vector<EVClient_sort_value> sort_values(EVClient &client,
                                             const Table<Record> &records,
                                             const std::vector<EVQueryToken> &tokens) {
  std::vector<EVClient_sort_value> values;
  values.reserve(static_cast<std::size_t>(records.size()));
  const int mark = elog_mark();
  for (const Record &record : records) {
    alignas(8) char buffer[EV_VALUE_SIZE];
    EVClient_sort_value value;
    int type = 0;
    value.status = client.getValue(&record, tokens, &type, buffer);
    /* A failure means that the record has no value: drop its message. */
    if (value.status < 0) elog_flush(0, mark);
    value.type = type;
    if (value.status == 0 && type == EV_TEXT) {
      std::memcpy(value.text, buffer, strnlen(buffer, sizeof value.text));
    } else if (value.status == 0) {
      std::memcpy(&value.i, buffer, sizeof value.i);
    }
    values.push_back(value);
  }
  return values;
}

template <class Record>
Table<int> sorted(EVClient &client, const Table<Record> *records,
                  const std::string &query, int reverse, int *status) {
  std::vector<EVQueryToken> tokens;
  const bool good = client.parse_query(query, tokens) >= 0;
  if (!good) fail("EVClient::sort", "parse_query() error");
  if (status != nullptr) *status = good ? 0 : -1;
  if (!good || records == nullptr) {
    Table<int> natural;
    const long n = records == nullptr ? 0 : records->size();
    for (int i = 0; i < n; i++) natural.push(i);
    return natural;
  }
  Table<int> order =
      ksutil::events::ascending_order(sort_values(client, *records, tokens));
  if (reverse != 0) std::reverse(order.begin(), order.end());
  return order;
}

}  // namespace

int EVClient::checkSortQuery(const Table<EVEvent> *events, std::string query) {
  return check_sort_query(*this, events, query);
}

int EVClient::checkSortQuery(const Table<EVOrigin> *origins, std::string query) {
  return check_sort_query(*this, origins, query);
}

Table<int> EVClient::sort(const Table<EVEvent> *events, std::string query, int reverse,
                          int *outcome) {
  return sorted(*this, events, query, reverse, outcome);
}

Table<int> EVClient::sort(const Table<EVOrigin> *origins, std::string query,
                          int reverse, int *outcome) {
  return sorted(*this, origins, query, reverse, outcome);
}

void EVClient::sort(EVEventsTab *tab, std::string query, int reverse) {
  if (tab == nullptr) return;
  Table<int> order = sort(tab->events, std::move(query), reverse, nullptr);
  setEventsTabs(tab, &order);
}

void EVClient::sort(EVOriginsTab *tab, std::string query, int reverse) {
  if (tab == nullptr) return;
  Table<int> order = sort(tab->origins, std::move(query), reverse, nullptr);
  setOriginsTabs(tab, &order);
}

void EVClient::sort(EVConstEventsTab *tab, std::string query, int reverse) {
  if (tab == nullptr) return;
  Table<int> order = sort(tab->events, std::move(query), reverse, nullptr);
  setEventsTabs(tab, &order);
}

void EVClient::sort(EVConstOriginsTab *tab, std::string query, int reverse) {
  if (tab == nullptr) return;
  Table<int> order = sort(tab->origins, std::move(query), reverse, nullptr);
  setOriginsTabs(tab, &order);
}
