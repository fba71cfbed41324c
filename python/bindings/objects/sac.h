/* sac: the record of a seismogram (kssac) that the sources of its class share. */
#ifndef KSUTIL_PYTHON_BINDINGS_OBJECTS_SAC_H
#define KSUTIL_PYTHON_BINDINGS_OBJECTS_SAC_H

#include <ksutil/formats/kssac.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "bindings/interpreter/failure.h"
#include "bindings/interpreter/locks.h"
#include "bindings/objects/records.h"

namespace ksutil::python {

struct SacRecord {
  explicit SacRecord(KSSac *made) : sac(made) {}
  ~SacRecord() {
    finish_locked(lock_of(Family::kSeismograms), [this] { kssac_free_kssac(sac); });
  }
  SacRecord(const SacRecord &) = delete;
  SacRecord &operator=(const SacRecord &) = delete;

  std::mutex lock;  // guards header and samples
  KSSac *const sac;
};

class Sac {
 public:
  explicit Sac(KSSac *sac) : record_(std::make_shared<SacRecord>(sac)) {}

  const std::shared_ptr<SacRecord> &record() const { return record_; }
  KSSac *get() const { return record_->sac; }

  template <class Call>
  int call(const Call &function) const {
    const Failure failure;
    return failure.check(locked(record_->lock, function));
  }

 private:
  std::shared_ptr<SacRecord> record_;
};

/* Sac.put_rows and Sac.get_rows. */
void put_rows(const Sac &self, const py::object &database,
              std::optional<std::int64_t> wfid, std::optional<std::int64_t> orid);
void get_rows(const Sac &self, const py::object &database,
              std::optional<std::int64_t> wfid, std::optional<std::int64_t> orid);

}  // namespace ksutil::python
#endif
