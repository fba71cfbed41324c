/* TreeReader: reads the associations and station magnitudes of expanded events.  Their
 * detections are in tree_reader_detections.cpp. */
#include <string_view>

#include "events/reading/internal/tree_reader.h"

namespace ksutil::events {

int TreeReader::expand(EVEvent &event) {
  int result = 0;
  keys_ = {};
  for (EVOrigin &origin : event.origins) {
    result = graver(result, read_associations(origin));
    if (detection_.rows != nullptr) result = graver(result, read_detections(origin));
    for (EVMagnitude &magnitude : origin.magnitudes) {
      result = graver(result, read_stamags(magnitude));
    }
  }
  return result;
}

int TreeReader::read_associations(EVOrigin &origin) {
  origin.associations.clear();
  int result = 0;
  keys_.orids.push_back(origin.orid);
  for (const long recno : expanded_by_.assoc_orid->find(origin.orid)) {
    EVAssociation association;
    const int read = read_association(recno, association);
    if (read == 0) origin.associations.push(std::move(association));
    result = graver(result, read);
  }
  return result;
}

int TreeReader::read_association(long recno, EVAssociation &association) {
  const std::string_view row = assoc_.rows->row(recno);
  int64_t arid;
  std::string_view timedef;
  if (row.empty() || !assoc_.columns.arid.read(row, arid) ||
      !assoc_.columns.timedef.read(row, timedef) ||
      !assoc_.columns.lddate.read(row, association.lddate_assoc)) {
    return assoc_.unreadable();
  }
  association.record_assoc = assoc_.rows->text(recno);
  association.recno_assoc = recno;
  association.defining = timedef == "d" ? 1 : 0;

  keys_.arids.push_back(arid);
  const db::KeyIndex::Rows arrivals = expanded_by_.arrival_arid->find(arid);
  if (arrivals.empty()) return 0;
  const long arrival = arrivals.front();
  const std::string_view arrival_row = arrival_.rows->row(arrival);
  std::string_view sta;
  double time;
  if (arrival_row.empty() || !arrival_.columns.sta.read(arrival_row, sta) ||
      !arrival_.columns.time.read(arrival_row, time) ||
      !arrival_.columns.lddate.read(arrival_row, association.lddate_arrival)) {
    return arrival_.unreadable();
  }
  association.record_arrival = arrival_.rows->text(arrival);
  association.recno_arrival = arrival;

  return read_site(sta, time, association.recno_site, association.record_site);
}

int TreeReader::read_site(std::string_view sta, double time, int64_t &recno,
                          db::RowText &record) {
  const long site = database_.sites().find(sta, time);
  if (site < 0) return 0;
  record = site_.rows->text(site);
  if (record.empty()) return site_.unreadable();
  recno = site;
  return 0;
}

int TreeReader::read_stamags(EVMagnitude &magnitude) {
  magnitude.stamags.clear();
  int64_t magid;
  const auto read_magid = [&](std::string_view row) {
    return netmag_.columns.magid.read(row, magid);
  };
  if (!magnitude.record_netmag.read(read_magid)) return kUnreadable;
  int result = 0;
  keys_.magids.push_back(magid);
  for (const long recno : expanded_by_.stamag_magid->find(magid)) {
    EVStamag stamag;
    const int read = read_stamag(recno, stamag);
    if (read == 0) magnitude.stamags.push(std::move(stamag));
    result = graver(result, read);
  }
  return result;
}

int TreeReader::read_stamag(long recno, EVStamag &stamag) {
  const std::string_view row = stamag_.rows->row(recno);
  std::string_view magtype;
  if (row.empty() || !stamag_.columns.magtype.read(row, magtype) ||
      !stamag_.columns.magnitude.read(row, stamag.magnitude) ||
      !stamag_.columns.lddate.read(row, stamag.lddate_stamag)) {
    return stamag_.unreadable();
  }
  stamag.record_stamag = stamag_.rows->text(recno);
  stamag.recno_stamag = recno;
  stamag.magtype = magtype;
  return 0;
}

}  // namespace ksutil::events
