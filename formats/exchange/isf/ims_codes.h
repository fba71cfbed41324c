/* ims_codes: the one-letter and two-letter codes that bulletins of IMS1.0, ISF and GSE2.0
 * share. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_IMS_CODES_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_IMS_CODES_H

#include <string>
#include <string_view>

#include "formats/exchange/records.h"

namespace ksutil::exchange {

/* The event type of a code like "ke" (known earthquake); "" when the code is unknown,
 * "uk" or blank. */
std::string ims_event_type(std::string_view code);
/* Whether a text is such a code with a known meaning: u, k, s, f or d before the letter of
 * a type, or "ls". */
bool is_ims_event_type(std::string_view code);
/* Whether the first letter of the code says more than "known": suspected, felt or
 * damaging. */
bool ims_event_type_says_more(std::string_view code);
/* The code of an event type, a word or the code of origin.etype; "uk" for others. */
std::string ims_code_of_event_type(const std::string &type);

/* Analysis type (a, m, g) and location method (i, p, g, o) as words, and back.  A word
 * without a letter of its own becomes m or o; "rejected", of which no letter says anything,
 * a blank. */
std::string ims_status(char code);
char ims_code_of_status(const std::string &status);
std::string ims_method(char code);
char ims_code_of_method(const std::string &method);

/* Depth flag of an origin line as origin.dtype: f (fixed) is 'g', d is 'd', none is 'f'. */
char ims_depth_type(char flag);

/* A defining flag: its letter is 'd', an underscore or a blank before a given value 'n'. */
inline char ims_used(char flag, char letter) {
  return flag == letter ? 'd' : flag == '_' ? 'n' : char{0};
}

/* Sets how a pick was made, its first motion (c, d) and its onset (i, e, q), from the
 * three letters of the quality column. */
void set_ims_quality(char type, char motion, char onset, Pick &pick);

/* The source of a bulletin as its title names it: "ISC" for "ISC Bulletin", "GSE_IDC" for
 * "Reviewed Event Bulletin (REB) of the GSE_IDC for ..."; "" when it does not. */
std::string ims_source_of_title(std::string_view title);

}  // namespace ksutil::exchange
#endif
