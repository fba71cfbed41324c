/* PgTable: one table of a PgStore. */
#ifndef KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_TABLE_H
#define KSUTIL_PLATFORM_DB_POSTGRESQL_INTERNAL_PG_TABLE_H

#include <memory>
#include <string>

#include "platform/db/postgresql/internal/pg_snapshot.h"
#include "platform/db/store.h"

namespace ksutil::db {

class PgStore;

class PgTable final : public TableStore {
 public:
  PgTable(PgStore &store, const Relation &relation);

  const Relation &layout() override { return place_.rows->relation(); }
  bool stamp(Stamp &stamp) override;
  std::shared_ptr<const Snapshot> snapshot() override;
  std::shared_ptr<const Snapshot> snapshot_anew() override;
  bool exclusively(const std::function<bool(Exclusive &)> &work) override;
  const std::string &file_name() const override { return place_.file; }
  const std::string &directory() const override;

  const std::string &name() const { return layout_name_; }
  const PgPlace &place() const { return place_; }
  /* The last snapshot; null before the first. */
  const std::shared_ptr<const PgSnapshot> &held() const { return held_; }
  /* The server and the run of it that the last snapshot is of. */
  const std::string &server() const { return server_; }
  /* Whether the changes since the last snapshot can be told from its versions. */
  bool continues(const PgState &now, const std::string &server) const;
  void adopt(std::shared_ptr<const PgSnapshot> snapshot, const std::string &server);

 private:
  PgStore &store_;
  const std::string layout_name_;
  const PgPlace place_;
  std::shared_ptr<const PgSnapshot> held_;
  std::string server_;
};

}  // namespace ksutil::db
#endif
