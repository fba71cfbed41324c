/* Writes SAC files of the waveform rows that an expression chooses.
 *
 * Joins wfdisc with its site and sitechan rows, takes the records that EXPRESSION takes,
 * reads the samples of each from its file, and writes them with the place of the station and
 * the direction of the component as FOLDER/STA.CHAN.YYYYDDD.hhmmss.mmm.sac.  A record that
 * cannot be read gets a message, and the others are written all the same.  Rows of wfdisc
 * without a station or a channel in the other tables are not taken.
 *
 * Usage: sac_from_rows DATABASE EXPRESSION FOLDER */
#include <ksutil.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

struct Free {
  void operator()(KSSac *sac) const { kssac_free_kssac(sac); }
};
using SacPtr = std::unique_ptr<KSSac, Free>;

/* Writes the file of one record of the view. */
bool write_record(Dbptr record, const std::string &folder) {
  ksutil::Segment segment;
  if (!ksutil::read_segment(record, 0.0, 0.0, segment)) return false;
  const SacPtr sac(kssac_create_from_segment(segment, nullptr, nullptr, nullptr));
  if (sac == nullptr) return false;
  /* Codes, place and direction; the fields of time are those of the samples already. */
  if (kssac_putevent_kssac(sac.get(), record, dbinvalid()) != 0) return false;
  const std::string path =
      folder + '/' +
      ksutil::waveform_file_name(segment.sta + '.' + segment.chan, segment.time, "sac");
  if (kssac_write_to_file_kssac(sac.get(), path.c_str()) != 0) return false;
  std::puts(path.c_str());
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fputs("usage: sac_from_rows DATABASE EXPRESSION FOLDER\n", stderr);
    return 2;
  }
  Dbptr db;
  if (dbopen_noshare(argv[1], "r", &db) != 0) {
    ks_complain(0, "cannot open %s.\n", argv[1]);
    return 1;
  }
  Dbptr view = dblookup(db, nullptr, "wfdisc", nullptr, nullptr);
  for (const char *const table : {"sitechan", "site"}) {
    const Dbptr other = dblookup(db, nullptr, table, nullptr, nullptr);
    view = dbjoin(view, other, nullptr, nullptr);
  }
  view = dbsubset(view, argv[2]);
  long count = 0;
  if (dbquery(view, dbq_record_count, &count) != 0) {
    ks_complain(0, "cannot choose rows by %s.\n", argv[2]);
    dbclose(db);
    return 1;
  }
  int result = 0;
  for (view.record = 0; view.record < count; view.record++) {
    if (write_record(view, argv[3])) continue;
    ks_complain(0, "record %ld is left out.\n", view.record);
    result = 1;
  }
  dbclose(db);
  return result;
}
