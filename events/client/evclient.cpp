#include "events/evclient.h"

#include <atomic>
#include <string>

#include "core/register.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"

namespace {

/* Calls a function on a client's server; without one the result is `none`. */
template <class Result, class Function>
Result ask(EVServer *server, Result none, const Function &function) {
  if (server == nullptr) return none;
  return function(*server);
}

}  // namespace

EVClient::EVClient(EVServer *server_in) {
  const ksutil::events::ServerPin pin(server_in);
  if (pin.state() == nullptr || pin.state()->database.vars().mark != kEVServerMark) {
    ks_die(0,
           "EVClient::EVClient: input EVServer pointer does not point to a EVServer "
           "object.\n");
  }
  server = server_in;
  pin.state()->clients.add(this);
  std::string schema;
  {
    const auto hold = pin.state()->database.hold();
    schema = pin.state()->database.schema_name();
  }
  scratch = dbtmp(schema.c_str());
}

EVClient::~EVClient() {
  if (scratch.database != dbINVALID) dbclose(scratch);
}

/* The server; null after its end, which may come on another thread. */
EVServer *EVClient::attached() { return std::atomic_ref(server).load(); }

void EVClient::responseCallback(EVResponse) {}

void EVClient::checkDatabaseCallback(Array<std::string, int>) {}

void EVClient::grabEventsLock() {
  if (EVServer *const current = attached()) current->grabEventsLock();
}

void EVClient::releaseEventsLock() {
  if (EVServer *const current = attached()) current->releaseEventsLock();
}

Table<EVEvent> EVClient::getEvents() {
  return ask(attached(), Table<EVEvent>(), [](EVServer &s) { return s.getEvents(); });
}

Table<EVDetection> EVClient::getDetections() {
  return ask(attached(), Table<EVDetection>(),
             [](EVServer &s) { return s.getDetections(); });
}

std::shared_ptr<const Table<EVEvent>> EVClient::eventsList() {
  EVServer *const current = attached();
  if (current == nullptr) return std::make_shared<Table<EVEvent>>();
  return current->eventsList();
}

std::shared_ptr<const Table<EVDetection>> EVClient::detectionsList() {
  EVServer *const current = attached();
  if (current == nullptr) return std::make_shared<Table<EVDetection>>();
  return current->detectionsList();
}

int EVClient::eventsNumber() {
  return ask(attached(), 0, [](EVServer &s) { return s.eventsNumber(); });
}

int EVClient::detectionsNumber() {
  return ask(attached(), 0, [](EVServer &s) { return s.detectionsNumber(); });
}

int EVClient::expandedNumber() {
  return ask(attached(), 0, [](EVServer &s) { return s.expandedNumber(); });
}

long EVClient::getEventsSize() {
  return ask(attached(), 0L, [](EVServer &s) { return s.getEventsSize(); });
}

long EVClient::getDetectionsSize() {
  return ask(attached(), 0L, [](EVServer &s) { return s.getDetectionsSize(); });
}

long EVClient::getExpandedSize() {
  return ask(attached(), 0L, [](EVServer &s) { return s.getExpandedSize(); });
}

int EVClient::getEvent(int index, EVEvent &event) {
  return ask(attached(), -1, [&](EVServer &s) { return s.getEvent(index, event); });
}

int EVClient::getEvent(long evid, EVEvent &event) {
  return ask(attached(), -1, [&](EVServer &s) { return s.getEvid(evid, event); });
}

long EVClient::getLastModifiedEvid() {
  return ask(attached(), -1L, [](EVServer &s) { return s.getLastModifiedEvid(); });
}

long EVClient::getMostRecentEvid() {
  return ask(attached(), -1L, [](EVServer &s) { return s.getMostRecentEvid(); });
}

int EVClient::getLastModifiedEvent(EVEvent &event) {
  return ask(attached(), 0, [&](EVServer &s) { return s.getLastModifiedEvent(event); });
}

int EVClient::getMostRecentEvent(EVEvent &event) {
  return ask(attached(), 0, [&](EVServer &s) { return s.getMostRecentEvent(event); });
}

int EVClient::containsExpandedEvent(long evid) {
  return ask(attached(), 0, [&](EVServer &s) { return s.containsExpandedEvent(evid); });
}

int EVClient::getExpandedEvent(long evid, EVEvent &event) {
  return ask(attached(), -1,
             [&](EVServer &s) { return s.getExpandedEvent(this, evid, event); });
}

void EVClient::printDifferences(const Table<EVEvent> *events) {
  if (EVServer *const current = attached()) {
    current->printDifferences(events);
  }
}
