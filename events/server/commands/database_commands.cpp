#include "events/server/commands/internal/database_commands.h"

#include <cctype>
#include <memory>
#include <string_view>
#include <vector>

#include "events/server/commands/internal/table_scan.h"
#include "events/server/internal/server_state.h"
#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/db/columns.h"
#include "platform/db/row_filter.h"
#include "platform/elog/elog.h"
#include "platform/elog/failure.h"
#include "platform/stock/owners.h"

namespace ksutil::events {
namespace {

constexpr int64_t kStampLoadDate = 1;  // a flag of dbputrecord

Table<EVTableRecord> records_of(TableScan &scan, Tbl *found) {
  const std::vector<long> numbers = to_numbers(found);
  Table<EVTableRecord> records;
  records.reserve(static_cast<long>(numbers.size()));
  const bool complete = scan.each(numbers, [&](long record, std::string_view row) {
    records.push({record, std::string(row)});
  });
  if (!complete) records.clear();
  return records;
}

/* Whether every reader can read the text as a row of the table; if not, registers a
 * message. */
bool acceptable(const char *who, const db::Relation &layout, std::string_view row) {
  const std::string_view line = row.substr(0, row.find('\n'));
  if (line.size() != static_cast<std::size_t>(layout.width) ||
      row.size() > line.size() + 1) {
    fail(who, "%zu bytes are not a record of %s, which is one line of %d", row.size(),
         layout.name.c_str(), layout.width);
    return false;
  }
  for (const char c : line) {
    if (std::iscntrl(static_cast<unsigned char>(c)) == 0) continue;
    fail(who, "the record of %s has a control character", layout.name.c_str());
    return false;
  }
  for (const db::Field &field : layout.fields) {
    if (db::is_readable(layout, field, line)) continue;
    fail(who, "field %s of the record of %s cannot be read", field.name.c_str(),
         layout.name.c_str());
    return false;
  }
  return true;
}

Table<EVTableRecord> subset_of(TableScan &scan, const Command &command,
                               const std::string &expression) {
  const db::RowFilter filter(scan.rows()->layout(), expression);
  if (!filter.good()) {
    fail(command.who(), "Can't compile '%s': %s at position %zu", expression.c_str(),
         filter.error().message.c_str(), filter.error().position);
    return {};
  }
  Table<EVTableRecord> records;
  long failures = 0;
  const bool complete = scan.each([&](long record, std::string_view row) {
    const int accepted = filter.accepts(row);
    if (accepted > 0) records.push({record, std::string(row)});
    if (accepted < 0) failures++;
  });
  if (!complete) return {};
  if (failures > 0) {
    fail(command.who(), "'%s' has no value for %ld records of %s", expression.c_str(),
         failures, scan.rows()->layout().name.c_str());
  }
  return records;
}

}  // namespace

Table<EVTableRecord> exec_dbmatches(ServerState &state, const std::string &key_table,
                                    const std::string &key_record,
                                    const std::string &table, Tbl **kpattern,
                                    Tbl **tpattern, Hook **hook) {
  Command command(state, "EVServer::execDbmatches");
  if (!command.open()) return {};
  if (kpattern == nullptr || tpattern == nullptr || hook == nullptr) {
    fail(command.who(), "no place for patterns or hook");
    return {};
  }
  Dbptr key = command.table(key_table);
  if (key.table == dbINVALID) return {};
  const Dbptr target = command.table(table);
  if (target.table == dbINVALID) return {};
  key.record = dbSCRATCH;
  TblPtr found;
  Table<EVTableRecord> records;
  /* The rows are those among which the match has found them: a later look at the table may
   * have others in their places. */
  const auto match = [&]() -> std::shared_ptr<const db::Snapshot> {
    Tbl *numbers = nullptr;
    records.clear();
    if (!command.open() || !db::set_scratch(key, key_record) ||
        dbmatches(key, target, kpattern, tpattern, hook, &numbers) < 0) {
      fail(command.who(), "cannot match %s with %s", key_table.c_str(), table.c_str());
      return nullptr;
    }
    found.reset(numbers);
    return db::matched_rows(*hook);
  };
  db::read_settled(match, [&](const std::shared_ptr<const db::Snapshot> &rows) {
    TableScan scan(command, target, rows);
    records = records_of(scan, found.get());
  });
  return records;
}

Table<EVTableRecord> exec_dbsubset(ServerState &state, const std::string &table,
                                   const std::string &expression) {
  Command command(state, "EVServer::execDbsubset");
  return scan_table(command, table, [&](TableScan &scan) {
    return subset_of(scan, command, expression);
  });
}

int64_t exec_dbputrecord(ServerState &state, const std::string &table, int64_t recno,
                         int64_t flags, const std::string &record,
                         const std::function<bool()> &wanted) {
  Command command(state, "EVServer::dbputrecord");
  return command.write(wanted, [&]() -> int64_t {
    Dbptr target = command.table(table);
    if (target.table == dbINVALID) return -1;
    if (recno < -1 || (flags & ~kStampLoadDate) != 0) {
      fail(command.who(), "record number %lld and flags %lld are not allowed",
           static_cast<long long>(recno), static_cast<long long>(flags));
      return -1;
    }
    const std::shared_ptr<const db::Snapshot> rows = db::table_snapshot(target);
    if (rows == nullptr || !acceptable(command.who(), rows->layout(), record)) {
      return -1;
    }
    std::string row = record;
    const db::Field *const lddate = rows->layout().find("lddate");
    if ((flags & kStampLoadDate) != 0 && lddate != nullptr &&
        !db::write_real(*lddate, std_now(), row)) {
      fail(command.who(), "cannot write lddate of %s", table.c_str());
      return -1;
    }
    /* dbadd and dbput check the length again, against the file as it is then. */
    target.record = recno;
    const long written = recno == -1                       ? dbadd(target, row.c_str())
                         : dbput(target, row.c_str()) == 0 ? recno
                                                           : -1;
    if (written < 0) {
      fail(command.who(), "cannot write the record of %s", table.c_str());
    }
    return written;
  });
}

int64_t exec_dbnextid(ServerState &state, const std::string &key,
                      const std::function<bool()> &wanted) {
  Command command(state, "EVServer::execDbnextid");
  return command.write(wanted, [&] {
    const long id = dbnextid(state.database.handle(), key.c_str());
    if (id < 0) {
      fail(command.who(), "no id of '%s'", key.c_str());
    }
    return static_cast<int64_t>(id);
  });
}

}  // namespace ksutil::events
