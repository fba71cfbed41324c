/* feed_import: brings a database up to date with the text of a feed. */
#ifndef KSUTIL_TOOLS_FEEDS_FEED_IMPORT_H
#define KSUTIL_TOOLS_FEEDS_FEED_IMPORT_H

#include <string>
#include <vector>

#include "formats/exchange/import/importer.h"

namespace ksutil::tools {

/* The outcome of importing a text. */
struct FeedResult {
  exchange::ImportCounts counts;
  long refused = 0;                   // events that could not be used
  std::vector<std::string> refusals;  // why, for the first of them
  std::string problem;                // why nothing was imported
};

/* A document as it came.  `framed`: the protocol has shown where it ends. */
struct FeedText {
  std::string text;
  bool framed = false;
};

/* Imports the events of a text, whose format is recognised; all of them or none.  A text
 * that is not framed and ends within a line may have been cut off, which only formats that
 * show their end survive: others fail.  False,
 * with the problem in the result or messages registered, when it cannot be read or the
 * database cannot be written.  A text without events imports none. */
bool import_feed(const std::string &database, const std::string &name, FeedText text,
                 const exchange::ImportOptions &options, FeedResult &result);

/* The latest load date of the events of a database; 0 when it has none, or none that can be
 * read. */
double latest_update(const std::string &database);

}  // namespace ksutil::tools
#endif
