#include "events/records/internal/print_differences.h"

#include <cstdio>
#include <unordered_map>
#include <vector>

#include "events/records/internal/compare.h"
#include "events/records/internal/fields.h"
#include "events/records/internal/print.h"
#include "platform/stock/text.h"

namespace ksutil::events {
namespace {

std::string difference(const std::string &left, const std::string &right, int64_t a,
                       int64_t b, Form) {
  return format_text("%s %ld != %s %ld\n", left.c_str(), static_cast<long>(a),
                     right.c_str(), static_cast<long>(b));
}
std::string difference(const std::string &left, const std::string &right, int32_t a,
                       int32_t b, Form) {
  return format_text("%s %d != %s %d\n", left.c_str(), a, right.c_str(), b);
}
std::string difference(const std::string &left, const std::string &right, double a,
                       double b, Form form) {
  const int decimals = form == Form::kResidual ? 3 : 5;
  return format_text("%s %.*f != %s %.*f\n", left.c_str(), decimals, a, right.c_str(),
                     decimals, b);
}
std::string difference(const std::string &left, const std::string &right,
                       const std::string &a, const std::string &b, Form) {
  return left + " " + a + " != " + right + " " + b + "\n";
}
/* Row texts have their own newlines. */
std::string difference(const std::string &left, const std::string &right,
                       const db::RowText &a, const db::RowText &b, Form) {
  return left + " \n" + a.str() + " != " + right + " \n" + b.str();
}

template <class Record>
void print_field_differences(const Record &a, const Record &b,
                             const std::string &prefix) {
  const std::string name = Fields<Record>::kName;
  for_each_field(Fields<Record>::kCompared, [&](const auto &field) {
    if (a.*field.member == b.*field.member) return;
    print_text(prefix + difference(name + "1 " + field.name, name + "2 " + field.name,
                                   a.*field.member, b.*field.member, field.form));
  });
}

std::string pairing_key(const EVEvent &event) { return std::to_string(event.evid); }
std::string pairing_key(const EVOrigin &origin) { return std::to_string(origin.orid); }
/* Magnitudes without a row are distinguished by type. */
std::string pairing_key(const EVMagnitude &magnitude) {
  return magnitude.recno_netmag < 0 ? "-1 " + magnitude.magtype
                                    : std::to_string(magnitude.recno_netmag);
}
std::string pairing_key(const EVMoment &moment) {
  return std::to_string(moment.recno_mt);
}
std::string pairing_key(const EVAssociation &association) {
  return std::to_string(association.recno_assoc);
}
std::string pairing_key(const EVDetection &detection) {
  return std::to_string(detection.recno_detection);
}

/* Pairs: pairs the rows of two lists. */
struct Pairs {
  std::vector<long> partner;  // for each row of the second list, an index in the first
  std::vector<bool> paired;  // for each row of the first list, whether it has a partner
};

template <class Record>
Pairs pair_rows(const Table<Record> &rows1, const Table<Record> &rows2) {
  std::unordered_map<std::string, std::vector<long>> unpaired;
  for (long i = rows1.size() - 1; i >= 0; i--) {
    unpaired[pairing_key(*rows1.ptr(i))].push_back(i);
  }
  Pairs pairs;
  pairs.paired.resize(static_cast<std::size_t>(rows1.size()));
  for (const Record &row2 : rows2) {
    const auto rows = unpaired.find(pairing_key(row2));
    if (rows == unpaired.end() || rows->second.empty()) {
      pairs.partner.push_back(-1);
      continue;
    }
    pairs.partner.push_back(rows->second.back());
    pairs.paired[static_cast<std::size_t>(rows->second.back())] = true;
    rows->second.pop_back();
  }
  return pairs;
}

/* " <id>" for the headings of events and origins; other records have no id. */
std::string id_text(const EVEvent &event) { return " " + std::to_string(event.evid); }
std::string id_text(const EVOrigin &origin) {
  return " " + std::to_string(origin.orid);
}
template <class Record>
std::string id_text(const Record &) {
  return {};
}

template <class Record>
void print_row_differences(const Table<Record> &rows1, const Table<Record> &rows2,
                           const std::string &prefix) {
  const std::string name = prefix + Fields<Record>::kName;
  const std::string inner = prefix + "    ";
  const Pairs pairs = pair_rows(rows1, rows2);
  for (long i = 0; i < rows2.size(); i++) {
    const Record &row2 = *rows2.ptr(i);
    const Record *row1 = rows1.ptr(pairs.partner[static_cast<std::size_t>(i)]);
    if (row1 == nullptr) {
      print_text(name + "2" + id_text(row2) + " added:\n");
      print_record(row2, inner);
    } else if (!equal(*row1, row2)) {
      print_text(name + "2" + id_text(row2) + " has changed from " +
                 Fields<Record>::kName + "1" + id_text(*row1) + ":\n");
      print_differences(*row1, row2, inner);
    }
  }
  for (long i = 0; i < rows1.size(); i++) {
    if (pairs.paired[static_cast<std::size_t>(i)]) continue;
    const Record &row1 = *rows1.ptr(i);
    print_text(name + "1" + id_text(row1) + " deleted:\n");
    print_record(row1, inner);
  }
}

}  // namespace

void print_differences(const EVEvent &event1, const EVEvent &event2,
                       const std::string &prefix) {
  print_field_differences(event1, event2, prefix);
  print_list_differences(event1.origins, event2.origins, prefix + "    ");
}
void print_differences(const EVOrigin &origin1, const EVOrigin &origin2,
                       const std::string &prefix) {
  const std::string inner = prefix + "    ";
  print_field_differences(origin1, origin2, prefix);
  print_list_differences(origin1.magnitudes, origin2.magnitudes, inner);
  print_list_differences(origin1.moments, origin2.moments, inner);
  print_list_differences(origin1.associations, origin2.associations, inner);
  print_list_differences(origin1.detections, origin2.detections, inner);
}
void print_differences(const EVMagnitude &magnitude1, const EVMagnitude &magnitude2,
                       const std::string &prefix) {
  print_field_differences(magnitude1, magnitude2, prefix);
}
void print_differences(const EVMoment &moment1, const EVMoment &moment2,
                       const std::string &prefix) {
  print_field_differences(moment1, moment2, prefix);
}
void print_differences(const EVAssociation &association1,
                       const EVAssociation &association2, const std::string &prefix) {
  print_field_differences(association1, association2, prefix);
}
void print_differences(const EVDetection &detection1, const EVDetection &detection2,
                       const std::string &prefix) {
  print_field_differences(detection1, detection2, prefix);
}

void print_list_differences(const Table<EVEvent> &events1,
                            const Table<EVEvent> &events2, const std::string &prefix) {
  print_row_differences(events1, events2, prefix);
}
void print_list_differences(const Table<EVOrigin> &origins1,
                            const Table<EVOrigin> &origins2,
                            const std::string &prefix) {
  print_row_differences(origins1, origins2, prefix);
}
void print_list_differences(const Table<EVMagnitude> &magnitudes1,
                            const Table<EVMagnitude> &magnitudes2,
                            const std::string &prefix) {
  print_row_differences(magnitudes1, magnitudes2, prefix);
}
void print_list_differences(const Table<EVMoment> &moments1,
                            const Table<EVMoment> &moments2,
                            const std::string &prefix) {
  print_row_differences(moments1, moments2, prefix);
}
void print_list_differences(const Table<EVAssociation> &associations1,
                            const Table<EVAssociation> &associations2,
                            const std::string &prefix) {
  print_row_differences(associations1, associations2, prefix);
}
void print_list_differences(const Table<EVDetection> &detections1,
                            const Table<EVDetection> &detections2,
                            const std::string &prefix) {
  print_row_differences(detections1, detections2, prefix);
}

void print_news(const Table<EVEvent> &given, const Table<EVEvent> &current) {
  const Pairs pairs = pair_rows(current, given);
  const EventIndex given_events(given), current_events(current);
  for (long i = 0; i < given.size(); i++) {
    const EVEvent &event = *given.ptr(i);
    const EVEvent *old = current.ptr(pairs.partner[static_cast<std::size_t>(i)]);
    /* A surplus row of an evid that the other list has is neither new nor deleted. */
    if (old == nullptr) old = current_events.first(event.evid);
    if (old == nullptr) {
      print_text(format_text("New event %ld\n", static_cast<long>(event.evid)));
    } else if (!equal(*old, event)) {
      print_text(format_text("Event %ld has changed\n", static_cast<long>(event.evid)));
      print_differences(*old, event, "    ");
    }
  }
  for (const EVEvent &event : current) {
    if (given_events.contains(event.evid)) continue;
    print_text(format_text("Deleted event %ld\n", static_cast<long>(event.evid)));
  }
}

}  // namespace ksutil::events
