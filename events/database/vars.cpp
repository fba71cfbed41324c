#include "events/vars.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "events/database/internal/match_hooks.h"
#include "platform/stock/owners.h"

namespace {

using Texts = ksutil::TblOfTexts;

/* Throws std::bad_alloc.  A null list would make dbmatches choose its own fields and
 * match the wrong rows. */
Texts new_list(long size) {
  Texts list(newtbl(size));
  if (list == nullptr) throw std::bad_alloc();
  return list;
}

void push_copy(const Texts &list, const char *text) {
  ksutil::MallocPtr<char> copy(ks_strdup(text));
  if (copy == nullptr || pushtbl(list.get(), copy.get()) < 0) throw std::bad_alloc();
  copy.release();
}

Tbl *new_texts(std::initializer_list<const char *> texts) {
  Texts list = new_list(static_cast<long>(texts.size()));
  for (const char *text : texts) push_copy(list, text);
  return list.release();
}

Tbl *copy_texts(Tbl *texts) {
  if (texts == nullptr) return nullptr;
  Texts list = new_list(counttbl(texts));
  for (long i = 0; i < counttbl(texts); i++) {
    push_copy(list, static_cast<const char *>(gettbl(texts, i)));
  }
  return list.release();
}

}  // namespace

/* Delegates to the empty key, whose destructor frees one list when the other cannot be
 * made. */
EVMatch::EVMatch(std::initializer_list<const char *> key,
                 std::initializer_list<const char *> table)
    : EVMatch() {
  kpattern = new_texts(key);
  tpattern = new_texts(table);
}

EVMatch::EVMatch(Tbl *key, Tbl *table) : EVMatch() {
  kpattern = copy_texts(key);
  tpattern = copy_texts(table);
}

EVMatch::EVMatch(const EVMatch &other) : EVMatch(other.kpattern, other.tpattern) {}

EVMatch &EVMatch::operator=(const EVMatch &other) {
  EVMatch copy(other);
  std::swap(kpattern, copy.kpattern);
  std::swap(tpattern, copy.tpattern);
  std::swap(hook, copy.hook);
  return *this;
}

EVMatch::~EVMatch() {
  freetbl(kpattern, std::free);
  freetbl(tpattern, std::free);
  free_hook(&hook);
}

EVVars::EVVars()
    : event_evid({"evid"}, {"evid"}),
      origin_evid({"evid"}, {"evid"}),
      origin_orid({"orid"}, {"orid"}),
      origerr_orid({"orid"}, {"orid"}),
      netmag_orid({"orid"}, {"orid"}),
      mt_orid({"orid"}, {"orid"}),
      assoc_orid({"orid"}, {"orid"}),
      assoc_arid({"arid"}, {"arid"}),
      arrival_arid({"arid"}, {"arid"}),
      stamag_magid({"magid"}, {"magid"}),
      arrival_stachan({"sta", "chan", "time::endtime"}, {"sta", "chan", "time"}),
      arrival_sta({"sta", "time::endtime"}, {"sta", "time"}),
      wfdisc_stachan({"sta", "chan", "time::endtime"},
                     {"sta", "chan", "time::endtime"}),
      detection_origin({"time-10.0::time+1800.0"}, {"time"}),
      detection_window({"time::endtime"}, {"time"}),
      detection_stachan({"sta", "chan", "time::endtime"}, {"sta", "chan", "time"}),
      wfmeas_stachan({"sta", "chan", "time"}, {"sta", "chan", "time::endtime"}),
      /* Station epochs are days (YYYYDDD) and times are epoch seconds. */
      site_sta({"sta", "yearday(time)"}, {"sta", "ondate::offdate"}),
      calibration_stachan({"sta", "chan", "time::endtime"},
                          {"sta", "chan", "time::endtime"}) {
  for (const char *name : kEVTableNames) {
    EVTable table;
    table.name = name;
    tables.set(name, std::move(table));
  }
}

void ksutil::events::free_match_hooks(EVVars &vars) {
  for (EVMatch *match :
       {&vars.event_evid, &vars.origin_evid, &vars.origin_orid, &vars.origerr_orid,
        &vars.netmag_orid, &vars.mt_orid, &vars.assoc_orid, &vars.assoc_arid,
        &vars.arrival_arid, &vars.stamag_magid, &vars.detection_origin,
        &vars.detection_window, &vars.detection_stachan, &vars.arrival_stachan,
        &vars.arrival_sta, &vars.wfmeas_stachan, &vars.wfdisc_stachan, &vars.site_sta,
        &vars.calibration_stachan}) {
    free_hook(&match->hook);
  }
}
