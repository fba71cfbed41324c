/* HttpClient: gets documents over HTTP and HTTPS, within limits of size and time. */
#ifndef KSUTIL_TOOLS_FEEDS_HTTP_CLIENT_H
#define KSUTIL_TOOLS_FEEDS_HTTP_CLIENT_H

#include <cstddef>
#include <memory>
#include <string>

#include "tools/feeds/stop_signal.h"

namespace ksutil::tools {

struct HttpLimits {
  std::size_t bytes = std::size_t{64} << 20;  // of an answer, unpacked
  double seconds = 60.0;                      // for the whole answer
  long redirects = 5;
};

/* `etag` and `last_modified` are those of an earlier answer from the same address; "":
 * none. */
struct HttpRequest {
  std::string url, etag, last_modified;
};

struct HttpAnswer {
  /* kBody: the document came.  kUnchanged: it is as the earlier answer had it.  kEmpty: the
   * service has nothing.  kFailed: problem says why.  kStopped: a signal came. */
  enum class Kind { kBody, kUnchanged, kEmpty, kFailed, kStopped };
  Kind kind = Kind::kFailed;
  std::string body, etag, last_modified, problem;
  double date = 0.0;          // of the server, epoch seconds; 0: not given
  double retry_after = -1.0;  // seconds until the service wants to be asked again
  /* The request itself was refused: to ask again changes nothing. */
  bool permanent = false;
  /* Whether the protocol shows where the body ends.  Without a length, and not in chunks,
   * a body that was cut off looks like a whole one. */
  bool framed = false;
};

class HttpClient {
 public:
  explicit HttpClient(const HttpLimits &limits);
  ~HttpClient();
  HttpClient(const HttpClient &) = delete;
  HttpClient &operator=(const HttpClient &) = delete;

  /* Gets a document; ends at once with kStopped when the signal comes.  Redirects are
   * followed as far as they lead over HTTP or HTTPS; an answer that ends before the length
   * that it told is a failure. */
  HttpAnswer get(const HttpRequest &request, StopSignal &stop);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ksutil::tools
#endif
