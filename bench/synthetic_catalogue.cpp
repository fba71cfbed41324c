#include "bench/synthetic_catalogue.h"

#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>

#include "platform/clock/clock.h"
#include "platform/db/columns.h"
#include "platform/db/schema.h"

namespace ksutil::bench {
namespace {

constexpr double kFirstTime = 1.2e9;
constexpr double kStep = 900.0;  // s between events
const char *const kTables[] = {"event", "origin", "origerr", "netmag",
                               "mt",    "assoc",  "arrival"};

/* One table file being written, row by row from the null record. */
class TableWriter {
 public:
  TableWriter(const db::Schema &schema, const std::string &path, const char *table)
      : relation_(*schema.find(table)),
        null_(db::null_record(relation_)),
        file_(path + "." + table, std::ios::binary) {}

  TableWriter &row() {
    row_ = null_;
    return *this;
  }
  TableWriter &put(const char *field, long value) {
    check(db::write_integer(find(field), value, row_));
    return *this;
  }
  TableWriter &put(const char *field, double value) {
    check(db::write_real(find(field), value, row_));
    return *this;
  }
  TableWriter &put(const char *field, const char *value) {
    check(db::write_text(find(field), value, row_));
    return *this;
  }
  void end() { file_ << row_; }

 private:
  const db::Field &find(const char *field) const {
    const db::Field *found = relation_.find(field);
    check(found != nullptr);
    return *found;
  }
  static void check(bool good) {
    if (!good) throw std::runtime_error("cannot write a synthetic row");
  }

  const db::Relation &relation_;
  std::string null_, row_;
  std::ofstream file_;
};

class CatalogueWriter {
 public:
  CatalogueWriter(const db::Schema &schema, const std::string &path,
                  const CatalogueSize &size)
      : size_(size),
        event_(schema, path, "event"),
        origin_(schema, path, "origin"),
        origerr_(schema, path, "origerr"),
        netmag_(schema, path, "netmag"),
        mt_(schema, path, "mt") {
    if (size.arrivals == 0) return;
    assoc_ = std::make_unique<TableWriter>(schema, path, "assoc");
    arrival_ = std::make_unique<TableWriter>(schema, path, "arrival");
  }

  void event(long i) {
    event_.row()
        .put("evid", i + 1)
        .put("prefor", orid(i, size_.origins - 1))
        .put("auth", "synthetic")
        .put("lddate", loaded(i, 0))
        .end();
    if (i % size_.mt_every == 0) moment(i);
  }

  void origin(long i, int k) {
    if (k == 0) arrivals(i);
    const double time = kFirstTime + kStep * static_cast<double>(i) + k;
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    origin_.row()
        .put("lat", unit(random_) * 160.0 - 80.0)
        .put("lon", unit(random_) * 360.0 - 180.0)
        .put("depth", unit(random_) * 300.0)
        .put("time", time)
        .put("orid", orid(i, k))
        .put("evid", i + 1)
        .put("jdate", static_cast<long>(yearday(time)))
        .put("nass", 12L)
        .put("ndef", 10L)
        .put("auth", "synthetic")
        .put("lddate", loaded(i, k))
        .end();
    origerr_.row()
        .put("orid", orid(i, k))
        .put("sdobs", unit(random_))
        .put("smajax", unit(random_) * 20.0)
        .put("lddate", loaded(i, k))
        .end();
    const char *const types[] = {"mb", "ml", "mw"};
    for (int m = 0; m < size_.netmags; m++) {
      netmag_.row()
          .put("magid", orid(i, k) * size_.netmags + m)
          .put("orid", orid(i, k))
          .put("evid", i + 1)
          .put("magtype", types[m % 3])
          .put("nsta", 9L)
          .put("magnitude", 3.0 + unit(random_) * 4.0)
          .put("lddate", loaded(i, k))
          .end();
    }
  }

 private:
  long orid(long i, int k) const { return i * size_.origins + k + 1; }
  static double loaded(long i, int k) {
    return kFirstTime + kStep * static_cast<double>(i) + 600.0 * (k + 1);
  }
  void moment(long i) {
    mt_.row()
        .put("mtid", i + 1)
        .put("orid", orid(i, 0))
        .put("evid", i + 1)
        .put("moment", 1.0e17)
        .put("lddate", loaded(i, 0))
        .end();
  }

  void arrivals(long i) {
    const char *const stations[] = {"ANMO", "COLA", "KONO", "PAB", "TATO"};
    for (int a = 0; a < size_.arrivals; a++) {
      const long arid = i * size_.arrivals + a + 1;
      assoc_->row()
          .put("arid", arid)
          .put("orid", orid(i, 0))
          .put("sta", stations[a % 5])
          .put("phase", a % 2 == 0 ? "P" : "S")
          .put("timedef", "d")
          .put("lddate", loaded(i, 0))
          .end();
      arrival_->row()
          .put("sta", stations[a % 5])
          .put("time", kFirstTime + kStep * static_cast<double>(i) + 30.0 * a)
          .put("arid", arid)
          .put("iphase", a % 2 == 0 ? "P" : "S")
          .put("lddate", loaded(i, 0))
          .end();
    }
  }

  CatalogueSize size_;
  std::mt19937_64 random_{1};
  std::unique_ptr<TableWriter> assoc_, arrival_;
  TableWriter event_, origin_, origerr_, netmag_, mt_;
};

}  // namespace

void write_catalogue(const std::string &path, const CatalogueSize &size) {
  const std::shared_ptr<const db::Schema> schema = db::Schema::load("css3.0");
  if (schema == nullptr) throw std::runtime_error("no schema css3.0");
  std::ofstream(path) << "schema css3.0\n";
  CatalogueWriter writer(*schema, path, size);
  constexpr long kLater = 50;  // events until the next origin of an event is loaded
  for (long i = 0; i < size.events + kLater * size.origins; i++) {
    if (i < size.events) writer.event(i);
    for (int k = 0; k < size.origins; k++) {
      const long event = i - kLater * k;
      if (event >= 0 && event < size.events) writer.origin(event, k);
    }
  }
}

long catalogue_bytes(const std::string &path) {
  long bytes = 0;
  for (const char *table : kTables) {
    const std::string file = path + "." + table;
    if (!std::filesystem::exists(file)) continue;
    bytes += static_cast<long>(std::filesystem::file_size(file));
  }
  return bytes;
}

}  // namespace ksutil::bench
