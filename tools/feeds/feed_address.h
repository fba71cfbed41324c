/* FeedAddress: the address of a feed or of an FDSN event service, and the queries to it. */
#ifndef KSUTIL_TOOLS_FEEDS_FEED_ADDRESS_H
#define KSUTIL_TOOLS_FEEDS_FEED_ADDRESS_H

#include <string>
#include <utility>
#include <vector>

namespace ksutil::tools {

/* Parameters of a query, as names and values. */
using FeedParameters = std::vector<std::pair<std::string, std::string>>;

class FeedAddress {
 public:
  /* False, with `problem` set, when the text is not an address over HTTP or HTTPS. */
  bool parse(const std::string &text, std::string &problem);

  /* Whether it is an FDSN event service: its path has "/fdsnws/event/" in it.  Without
   * "query" at the end, that is added. */
  bool is_fdsn() const { return fdsn_; }

  /* The address with those of the parameters that it does not have itself. */
  std::string url(const FeedParameters &parameters) const;

  /* Scheme, host and path, for messages: what may be a secret is left out. */
  const std::string &shown() const { return shown_; }

 private:
  std::string text_, shown_, query_;
  bool fdsn_ = false;
};

}  // namespace ksutil::tools
#endif
