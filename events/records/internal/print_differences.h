/* print_differences: prints the differences between records to standard output; each
 * line begins with the prefix. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_PRINT_DIFFERENCES_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_PRINT_DIFFERENCES_H

#include <string>

#include "core/Table.h"
#include "events/records.h"

namespace ksutil::events {

/* Prints one line for each compared field that differs, then the differences of the
 * lists below. */
void print_differences(const EVEvent &event1, const EVEvent &event2,
                       const std::string &prefix);
void print_differences(const EVOrigin &origin1, const EVOrigin &origin2,
                       const std::string &prefix);
void print_differences(const EVMagnitude &magnitude1, const EVMagnitude &magnitude2,
                       const std::string &prefix);
void print_differences(const EVMoment &moment1, const EVMoment &moment2,
                       const std::string &prefix);
void print_differences(const EVAssociation &association1,
                       const EVAssociation &association2, const std::string &prefix);
void print_differences(const EVDetection &detection1, const EVDetection &detection2,
                       const std::string &prefix);

/* Prints the rows of the second list that are new or have changed, in its order, then
 * those of the first list that are gone.  Rows are paired by id (of several rows with
 * one id the first with the first, and so on). */
void print_list_differences(const Table<EVEvent> &events1,
                            const Table<EVEvent> &events2, const std::string &prefix);
void print_list_differences(const Table<EVOrigin> &origins1,
                            const Table<EVOrigin> &origins2, const std::string &prefix);
void print_list_differences(const Table<EVMagnitude> &magnitudes1,
                            const Table<EVMagnitude> &magnitudes2,
                            const std::string &prefix);
void print_list_differences(const Table<EVMoment> &moments1,
                            const Table<EVMoment> &moments2, const std::string &prefix);
void print_list_differences(const Table<EVAssociation> &associations1,
                            const Table<EVAssociation> &associations2,
                            const std::string &prefix);
void print_list_differences(const Table<EVDetection> &detections1,
                            const Table<EVDetection> &detections2,
                            const std::string &prefix);

/* Prints "New event", "Event ... has changed" with the differences, and "Deleted
 * event", by evid. */
void print_news(const Table<EVEvent> &given, const Table<EVEvent> &current);

}  // namespace ksutil::events
#endif
