/* to_db: kssac to-db. */
#include <bit>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/clock/clock.h"
#include "platform/db/access.h"
#include "platform/elog/elog.h"
#include "platform/trace/waveform.h"
#include "tools/common/open_database.h"
#include "tools/common/options.h"
#include "tools/common/progress.h"
#include "tools/kssac/channel_codes.h"
#include "tools/kssac/commands.h"
#include "tools/kssac/header_event.h"
#include "tools/kssac/row_lookup.h"
#include "tools/kssac/sac_file.h"

namespace ksutil::tools {
namespace {

namespace fs = std::filesystem;

struct ToDbOptions {
  std::vector<std::string> files;  // and the database at the end
  std::string create;
  bool picks = false, origin = false, quiet = false;
};

/* The data type of the samples of a file. */
const char *datatype_of(const std::string &file) {
  return (std::endian::native == std::endian::little) != is_swapped(file) ? "f4" : "t4";
}

/* The folder of a file as wfdisc names it: relative to the folder of the table when the
 * file is below it, else absolute. */
std::string folder_of(const std::string &file, Dbptr wfdisc) {
  const char *table_folder = "";
  dbquery(wfdisc, dbq_dir_name, &table_folder);
  const fs::path folder = fs::canonical(file).parent_path();
  const fs::path base =
      fs::weakly_canonical(*table_folder == '\0' ? "." : table_folder);
  const fs::path relative = folder.lexically_relative(base);
  if (relative.empty() || *relative.begin() == "..") return folder.string();
  return relative.string();
}

/* Enters files into one database. */
class Entry {
 public:
  Entry(Dbptr db, const ToDbOptions &options)
      : db_(db), codes_(db), event_(db, options.picks, options.origin) {}

  /* False with messages. */
  bool add(const std::string &file) {
    const KssacPtr kssac = read_sac(file);
    if (kssac == nullptr || !is_evenly_sampled(kssac.get(), file) ||
        !names_time(kssac.get(), file) || !event_.check(kssac.get(), file)) {
      return false;
    }
    const Dbptr key = scratch("wfdisc");
    std::string chan;
    const std::string folder = folder_of(file, table("wfdisc"));
    const std::string name = fs::canonical(file).filename().string();
    if (!fits("dfile", name, file) || !fits("dir", folder, file)) return false;
    if (key.table == dbINVALID ||
        kssac_getevent_kssac(kssac.get(), key, dbinvalid()) != 0 ||
        !codes_.enter(kssac.get(), chan) ||
        dbputv(key, "chan", chan.c_str(), "dir", folder.c_str(), "dfile", name.c_str(),
               "foff", long{KSSAC_HEADER_SIZE}, "datatype", datatype_of(file), "wfid",
               -1L, "calib", calib_of(kssac.get()), "lddate", std_now(),
               (char *)nullptr) != 0) {
      return false;
    }
    Dbptr known = table("wfdisc");
    const long before = waveforms_.find(key, known);
    if (before > 0) complain(file + " is in the database already");
    if (before != 0) return before > 0 && event_.enter(kssac.get(), known);
    return add_site(kssac.get(), key) && add_network(kssac.get(), key) &&
           add_channel(kssac.get(), key, chan) && add_waveform(key) &&
           event_.enter(kssac.get(), key);
  }

 private:
  Dbptr table(const char *name) const { return dblookup(db_, "", name, "", ""); }

  /* The scratch record of a table, nulled; dbINVALID with messages. */
  Dbptr scratch(const char *name) const {
    Dbptr row = table(name);
    row.record = dbNULL;
    if (row.table == dbINVALID || dbget(row, nullptr) != 0) return dbinvalid();
    row.record = dbSCRATCH;
    return row;
  }

  /* Whether a text can stand in a field of wfdisc; a complaint in the name of the file if
   * not. */
  bool fits(const char *name, const std::string &text, const std::string &file) const {
    db::TableStore *const wfdisc = db::table_store(table("wfdisc"));
    const db::Field *const field =
        wfdisc == nullptr ? nullptr : wfdisc->layout().find(name);
    if (field == nullptr) return false;
    const std::string fault = waveform_name_fault(*field, text);
    if (!fault.empty()) complain(file + ": " + text + " " + fault);
    return fault.empty();
  }

  static bool names_time(KSSac *kssac, const std::string &file) {
    std::string text;
    double begin, reference;
    if (known(kssac, "KSTNM", text) && known(kssac, "KCMPNM", text) &&
        reference_time(kssac, reference) && known(kssac, "B", begin)) {
      return true;
    }
    complain(file + " lacks KSTNM, KCMPNM, B or the reference time");
    return false;
  }

  /* Samples of known kind are in nm, nm/s or nm/s/s; for others the factor is
   * unknown. */
  static double calib_of(KSSac *kssac) {
    std::int64_t idep = 0;
    known(kssac, "IDEP", idep);
    return idep >= 6 && idep <= 8 ? 1.0 : 0.0;
  }

  static long day_of(Dbptr key) {
    double time = 0.0;
    dbgetv(key, "time", &time, (char *)nullptr);
    return yearday(time);
  }

  /* A station without coordinates has a row too, since its channels refer to it; the
   * first file that has coordinates fills them in. */
  bool add_site(KSSac *kssac, Dbptr key) {
    Dbptr row = table("site");
    const long count = sites_.find(key, row);
    if (count != 0) return count > 0 && complete_site(kssac, row);
    row = scratch("site");
    std::string sta;
    known(kssac, "KSTNM", sta);
    return row.table != dbINVALID &&
           kssac_getevent_kssac(kssac, row, dbinvalid()) == 0 &&
           dbputv(row, "ondate", day_of(key), "statype", "ss", "refsta", sta.c_str(),
                  "lddate", std_now(), (char *)nullptr) == 0 &&
           dbadd(row, nullptr) >= 0;
  }

  static bool complete_site(KSSac *kssac, Dbptr row) {
    constexpr double kNull = -999.0;
    double lat = kNull, lon = kNull;
    if (!known(kssac, "STLA", lat) || !known(kssac, "STLO", lon)) return true;
    if (dbgetv(row, "lat", &lat, "lon", &lon, (char *)nullptr) != 0) return false;
    return lat != kNull || lon != kNull ||
           (kssac_getevent_kssac(kssac, row, dbinvalid()) == 0 &&
            dbputv(row, "lddate", std_now(), (char *)nullptr) == 0);
  }

  bool add_network(KSSac *kssac, Dbptr key) {
    std::string net;
    Dbptr row = table("affiliation");
    const long count = affiliations_.find(key, row);
    if (count != 0 || !known(kssac, "KNETWK", net)) return count >= 0;
    row = scratch("affiliation");
    return row.table != dbINVALID &&
           kssac_getevent_kssac(kssac, row, dbinvalid()) == 0 &&
           dbputv(row, "lddate", std_now(), (char *)nullptr) == 0 &&
           name_network(row, net) && dbadd(row, nullptr) >= 0;
  }

  /* A database without the table network gets none from waveforms. */
  bool name_network(Dbptr affiliation, const std::string &net) {
    const int mark = elog_mark();
    Dbptr row = table("network");
    elog_flush(0, mark);  // other schemas may lack it
    long rows = 0;
    if (row.table == dbINVALID) return true;
    dbquery(row, dbq_record_count, &rows);
    if (rows == 0) return true;
    const long count = networks_.find(affiliation, row);
    if (count != 0) return count > 0;
    row = scratch("network");
    return row.table != dbINVALID &&
           dbputv(row, "net", net.c_str(), "lddate", std_now(), (char *)nullptr) == 0 &&
           dbadd(row, nullptr) >= 0;
  }

  /* Adds the channel when it is new, and sets chanid in the row of the waveform. */
  bool add_channel(KSSac *kssac, Dbptr key, const std::string &chan) {
    Dbptr row = table("sitechan");
    const long count = channels_.find(key, row);
    long chanid = -1;
    if (count < 0) return false;
    if (count > 0) {
      Dbptr current = table("sitechan");
      if (current_channels_.find(key, current) > 0) {
        dbgetv(current, "chanid", &chanid, (char *)nullptr);
      }
      return dbputv(key, "chanid", chanid, (char *)nullptr) == 0;
    }
    chanid = dbnextid(db_, "chanid");
    row = scratch("sitechan");
    return chanid >= 0 && row.table != dbINVALID &&
           kssac_getevent_kssac(kssac, row, dbinvalid()) == 0 &&
           dbputv(row, "chan", chan.c_str(), "ondate", day_of(key), "chanid", chanid,
                  "ctype", "n", "lddate", std_now(), (char *)nullptr) == 0 &&
           dbadd(row, nullptr) >= 0 &&
           dbputv(key, "chanid", chanid, (char *)nullptr) == 0;
  }

  bool add_waveform(Dbptr key) {
    const long wfid = dbnextid(db_, "wfid");
    return wfid >= 0 && dbputv(key, "wfid", wfid, (char *)nullptr) == 0 &&
           dbadd(key, nullptr) >= 0;
  }

  const Dbptr db_;
  ChannelCodes codes_;
  HeaderEvent event_;
  /* A file has one waveform, whatever name its channel gets. */
  RowLookup waveforms_{{"sta", "time", "dir", "dfile"},
                       {"sta", "time", "dir", "dfile"}};
  RowLookup sites_{{"sta"}, {"sta"}};
  RowLookup affiliations_{{"sta"}, {"sta"}};
  RowLookup networks_{{"net"}, {"net"}};
  RowLookup channels_{{"sta", "chan"}, {"sta", "chan"}};
  RowLookup current_channels_{{"sta", "chan", "yearday(time)"},
                              {"sta", "chan", "ondate::offdate"}};
};

int to_db(const ToDbOptions &options) {
  const std::string &name = options.files.back();
  /* Repeating a command that has already made the database is not an error. */
  if (!options.create.empty() && !std::filesystem::exists(name) &&
      dbcreate(name.c_str(), options.create.c_str()) != 0) {
    return kFailure;
  }
  const OpenDatabase database(name, "r+");
  if (!database) return kFailure;
  Entry entry(database.get(), options);
  const std::size_t count = options.files.size() - 1;
  Progress progress("files", static_cast<long>(count), options.quiet);
  int result = kOk;
  long done = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (!entry.add(options.files[i])) {
      print_register();
      result = kFailure;
    }
    progress.reach(++done);
  }
  return result;
}

void describe_to_db(CLI::App &command, ToDbOptions &options) {
  /* Files and database are one list: after a variable number of files CLI11 would leave
   * no argument for a second operand. */
  command
      .add_option("files database", options.files,
                  "SAC files, and the database (path/name) at the end")
      ->required()
      ->expected(2, -1);
  command.add_option("--create", options.create,
                     "Make the database with this schema: css3.0 or kbcore");
  command.add_flag("--picks", options.picks,
                   "Enter A and T0 to T9 as arrivals, with the phases of KA and KT0 to "
                   "KT9");
  command.add_flag("--origin", options.origin,
                   "Enter O, EVLA, EVLO and EVDP as an origin and its event");
  add_quiet(command, options.quiet);
}

}  // namespace

Command to_db_command() {
  return make_command<ToDbOptions>(
      "to-db", "Enters SAC files into a database, which points to them",
      {"kssac to-db --create css3.0 MLR.*.sac sacdb"}, describe_to_db, to_db);
}

}  // namespace ksutil::tools
