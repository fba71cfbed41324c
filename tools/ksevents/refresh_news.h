/* RefreshNews: tells on standard error about refreshes that fail, and about rows that they
 * leave out. */
#ifndef KSUTIL_TOOLS_KSEVENTS_REFRESH_NEWS_H
#define KSUTIL_TOOLS_KSEVENTS_REFRESH_NEWS_H

#include <string>
#include <vector>

namespace ksutil::tools {

/* For the refreshes of one server, all made by one thread, and for a program in which no
 * other thread registers messages meanwhile. */
class RefreshNews {
 public:
  /* `unreadable`: the records that were known to be unreadable before the first refresh. */
  RefreshNews(std::string database, long unreadable)
      : database_(std::move(database)), unreadable_(unreadable) {}

  /* Takes the messages of a refresh, and its result, out of the register.  A failure is
   * told when its messages differ from those of the failure before it, the first success
   * after failures once, and unreadable records when their number has changed. */
  void take(int result);

  /* Whether the last refresh failed. */
  bool failing() const { return !causes_.empty(); }

 private:
  void tell_failure(std::vector<std::string> causes);
  void tell_left_out(const std::vector<std::string> &causes);

  const std::string database_;
  std::vector<std::string> causes_;  // of the last failure; empty after a success
  long unreadable_;
};

}  // namespace ksutil::tools
#endif
