/* print: prints records and lists to standard output; each line begins with the
 * prefix. */
#ifndef KSUTIL_EVENTS_RECORDS_INTERNAL_PRINT_H
#define KSUTIL_EVENTS_RECORDS_INTERNAL_PRINT_H

#include <string>

#include "core/Table.h"
#include "events/records.h"

namespace ksutil::events {

void print_text(const std::string &text);

void print_record(const EVEvent &event, const std::string &prefix);
void print_record(const EVOrigin &origin, const std::string &prefix);
void print_record(const EVMagnitude &magnitude, const std::string &prefix);
void print_record(const EVStamag &stamag, const std::string &prefix);
void print_record(const EVMoment &moment, const std::string &prefix);
void print_record(const EVAssociation &association, const std::string &prefix);
void print_record(const EVDetection &detection, const std::string &prefix);
void print_record(const EVTableRecord &record, const std::string &prefix);
void print_record(const EVStaChan &stachan, const std::string &prefix);

/* Prints each row after a header line, four blanks further in. */
void print_list(const Table<EVEvent> &events, const std::string &prefix);
void print_list(const Table<EVOrigin> &origins, const std::string &prefix);
void print_list(const Table<EVMagnitude> &magnitudes, const std::string &prefix);
void print_list(const Table<EVStamag> &stamags, const std::string &prefix);
void print_list(const Table<EVMoment> &moments, const std::string &prefix);
void print_list(const Table<EVAssociation> &associations, const std::string &prefix);
void print_list(const Table<EVDetection> &detections, const std::string &prefix);
void print_list(const Table<EVTableRecord> &records, const std::string &prefix);
void print_list(const Table<EVStaChan> &stachans, const std::string &prefix);

}  // namespace ksutil::events
#endif
