/* EVCommand: one request to an event server's worker. */
#ifndef KSUTIL_EVENTS_COMMAND_H
#define KSUTIL_EVENTS_COMMAND_H

#include <cstdint>
#include <string>
#include <utility>

#include "platform/stock/hook.h"
#include "platform/stock/tbl.h"

class EVClient;

/* A request by name, with the arguments of all commands; each command uses some of
 * them.  Times are epoch seconds.  The worker deletes the command after it has run. */
struct EVCommand {
  explicit EVCommand(std::string name) : command(std::move(name)) {}

  std::string command;
  std::string sta, chan;     // also the texts of dbcss2seed
  std::string text3, text4;  // scanWfdisc: station and channel to leave out
  std::string seed1, seed2, seed3, seed4;  // dbseed2css: net, sta, chan, loc
  double tstart = 0.0, tend = 0.0;         // getSite: tstart alone
  int32_t mode = 0;                        // getWfdiscs
  std::string db1, db2, db3;               // dbmatches, dbsubset, dbputrecord, dbnextid
  int64_t num1 = 0, num2 = 0;              // dbputrecord: record number and flags
  Tbl **kpattern = nullptr;                // dbmatches, in/out; the caller's
  Tbl **tpattern = nullptr;
  Hook **hook = nullptr;
  EVClient *client = nullptr;  // receives the result; may be null
  int64_t serial = 0;          // number of the command; the client waits for one number
};

#endif
