#include <unistd.h>

#include <atomic>
#include <string>
#include <utility>

#include "events/command.h"
#include "events/evclient.h"
#include "events/server/internal/live_servers.h"
#include "events/server/internal/server_state.h"
#include "events/server/internal/threads.h"
#include "pipeline/pmtfifo.h"
#include "platform/elog/failure.h"

using ksutil::fail;
using ksutil::Failure;
using ksutil::events::ServerPin;
using ksutil::events::ServerState;

namespace {

std::atomic<int64_t> next_serial{1};

/* Registers the failure of the member with the name of the command. */
Failure refuse(const char *command, const char *reason) {
  return fail(("EVClient::" + std::string(command)).c_str(), "%s", reason);
}

Failure not_running(const char *command) {
  return refuse(command, "server is not running");
}

/* Whether a wait for the worker could last for ever: on the worker itself, and under
 * the events lock, which the worker may be waiting for. */
bool wait_refused(const ServerState &state, const char *command) {
  if (ksutil::events::on_worker_thread(state)) {
    refuse(command, "a callback cannot wait for the server's worker");
    return true;
  }
  if (state.published.lock.owned_by_this_thread()) {
    refuse(command, "the holder of the events lock cannot wait for a command");
    return true;
  }
  return false;
}

/* Under the events lock a push must not wait for room either. */
bool push_refused(const ServerState &state, const char *command) {
  if (!state.published.lock.owned_by_this_thread() ||
      pmtfifo_data_available(state.cmd_mtfifo) < ksutil::events::kQueueCapacity) {
    return false;
  }
  refuse(command, "the command queue is full");
  return true;
}

}  // namespace

int EVClient::request_refresh(const char *name, int wait) {
  {
    const ServerPin pin(attached());
    if (pin.state() == nullptr) return not_running(name);
    ServerState &state = *pin.state();
    if (wait != 0 ? wait_refused(state, name) : push_refused(state, name)) return -1;
    auto command = std::make_unique<EVCommand>(name);
    command->client = this;
    refresh_pending = 1;
    if (!state.clients.contains(this) ||
        ksutil::events::push_command(state, std::move(command)) != 0) {
      refresh_pending = 0;
      return not_running(name);
    }
  }
  if (wait == 0) return 0;
  while (refresh_pending == 1) usleep(1000);
  if (attached() == nullptr) return not_running(name);
  return 0;
}

int EVClient::refreshEvents(int wait) { return request_refresh("refreshEvents", wait); }

int EVClient::refreshEventsForce(int wait) {
  return request_refresh("refreshEventsForce", wait);
}

bool EVClient::execute(std::unique_ptr<EVCommand> command) {
  const std::string name = command->command;
  {
    const ServerPin pin(attached());
    if (pin.state() == nullptr) return not_running(name.c_str());
    ServerState &state = *pin.state();
    if (wait_refused(state, name.c_str())) return false;
    command->client = this;
    command->serial = next_serial++;
    const auto begin_waiting = [serial = command->serial](EVClient &client) {
      client.command_serial = serial;
      client.command_pending = 1;
    };
    if (!state.clients.while_registered(this, begin_waiting) ||
        ksutil::events::push_command(state, std::move(command)) != 0) {
      command_pending = 0;
      return not_running(name.c_str());
    }
  }
  while (command_pending == 1) usleep(100);
  if (attached() == nullptr) return not_running(name.c_str());
  return true;
}

Table<EVArrival> EVClient::getArrivals(std::string sta, std::string chan, double tstart,
                                       double tend) {
  auto command = std::make_unique<EVCommand>("getArrivals");
  command->sta = std::move(sta);
  command->chan = std::move(chan);
  command->tstart = tstart;
  command->tend = tend;
  arrivals.clear();
  execute(std::move(command));
  return arrivals;
}

Table<EVTableRecord> EVClient::getWfdiscs(std::string sta, std::string chan,
                                          double tstart, double tend, int mode) {
  auto command = std::make_unique<EVCommand>("getWfdiscs");
  command->sta = std::move(sta);
  command->chan = std::move(chan);
  command->tstart = tstart;
  command->tend = tend;
  command->mode = mode;
  records.clear();
  execute(std::move(command));
  return records;
}

Table<EVStaChan> EVClient::scanWfdisc(std::string sta, std::string chan,
                                      std::string not_sta, std::string not_chan,
                                      double tstart, double tend) {
  auto command = std::make_unique<EVCommand>("scanWfdisc");
  command->sta = std::move(sta);
  command->chan = std::move(chan);
  command->text3 = std::move(not_sta);
  command->text4 = std::move(not_chan);
  command->tstart = tstart;
  command->tend = tend;
  stachans.clear();
  execute(std::move(command));
  return stachans;
}

Table<EVTableRecord> EVClient::getRawDetections(std::string sta, std::string chan,
                                                double tstart, double tend) {
  auto command = std::make_unique<EVCommand>("getRawDetections");
  command->sta = std::move(sta);
  command->chan = std::move(chan);
  command->tstart = tstart;
  command->tend = tend;
  records.clear();
  execute(std::move(command));
  return records;
}

EVTableRecord EVClient::getSite(std::string sta, double time) {
  auto command = std::make_unique<EVCommand>("getSite");
  command->sta = std::move(sta);
  command->tstart = time;
  site = EVTableRecord();
  execute(std::move(command));
  return site;
}

Table<EVTableRecord> EVClient::dbmatches(std::string key_table, std::string key_record,
                                         std::string table, Tbl **kpattern,
                                         Tbl **tpattern, Hook **hook) {
  auto command = std::make_unique<EVCommand>("dbmatches");
  command->db1 = std::move(key_table);
  command->db2 = std::move(key_record);
  command->db3 = std::move(table);
  command->kpattern = kpattern;
  command->tpattern = tpattern;
  command->hook = hook;
  records.clear();
  execute(std::move(command));
  return records;
}

Table<EVTableRecord> EVClient::dbsubset(std::string table, std::string expression) {
  auto command = std::make_unique<EVCommand>("dbsubset");
  command->db1 = std::move(table);
  command->db2 = std::move(expression);
  records.clear();
  execute(std::move(command));
  return records;
}

long EVClient::dbputrecord(std::string table, long recno, long flags,
                           std::string record) {
  auto command = std::make_unique<EVCommand>("dbputrecord");
  command->db1 = std::move(table);
  command->db2 = std::move(record);
  command->num1 = recno;
  command->num2 = flags;
  status = -1;
  execute(std::move(command));
  return status;
}

long EVClient::dbnextid(std::string key) {
  auto command = std::make_unique<EVCommand>("dbnextid");
  command->db1 = std::move(key);
  nextid = -1;
  execute(std::move(command));
  return nextid;
}

int EVClient::dbseed2css(std::string net, std::string sta, std::string chan,
                         std::string loc, std::string &css_sta, std::string &css_chan) {
  auto command = std::make_unique<EVCommand>("dbseed2css");
  command->seed1 = std::move(net);
  command->seed2 = std::move(sta);
  command->seed3 = std::move(chan);
  command->seed4 = std::move(loc);
  out2.clear();
  out3.clear();
  status = -1;
  execute(std::move(command));
  css_sta = out2;
  css_chan = out3;
  return static_cast<int>(status);
}

int EVClient::dbcss2seed(std::string sta, std::string chan, std::string &net,
                         std::string &seed_sta, std::string &seed_chan,
                         std::string &loc) {
  auto command = std::make_unique<EVCommand>("dbcss2seed");
  command->sta = std::move(sta);
  command->chan = std::move(chan);
  for (std::string *text : {&out1, &out2, &out3, &out4}) text->clear();
  status = -1;
  execute(std::move(command));
  net = out1;
  seed_sta = out2;
  seed_chan = out3;
  loc = out4;
  return static_cast<int>(status);
}

int EVClient::checkDatabase() {
  return execute(std::make_unique<EVCommand>("checkDatabase")) ? 0 : -1;
}
