#include "tools/feeds/http_client.h"

#include <curl/curl.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "core/version.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

constexpr double kMostSecondsToConnect = 20.0;
constexpr int kPollMilliseconds = 1000;
constexpr double kMostRetrySeconds = 86400.0;
constexpr std::size_t kMostHeader = 1024;
constexpr std::size_t kShownBody = 200;

/* What arrives for one request. */
struct Transfer {
  HttpAnswer answer;
  std::size_t most = 0;
  bool too_long = false;
};

std::size_t take_body(char *bytes, std::size_t, std::size_t count, void *to) {
  auto &transfer = *static_cast<Transfer *>(to);
  if (transfer.answer.body.size() + count > transfer.most) {
    transfer.too_long = true;
    return 0;
  }
  transfer.answer.body.append(bytes, count);
  return count;
}

/* Seconds from now of a Retry-After: a number of them, or a date. */
double retry_seconds(const std::string &value) {
  std::int64_t seconds = 0;
  if (parse_integer(value, seconds)) {
    return std::clamp(static_cast<double>(seconds), 0.0, kMostRetrySeconds);
  }
  const time_t date = ::curl_getdate(value.c_str(), nullptr);
  if (date < 0) return -1.0;
  return std::clamp(static_cast<double>(date) - std_now(), 0.0, kMostRetrySeconds);
}

std::size_t take_header(char *bytes, std::size_t, std::size_t count, void *to) {
  HttpAnswer &answer = static_cast<Transfer *>(to)->answer;
  const std::string_view line(bytes, count);
  if (line.starts_with("HTTP/")) {
    /* The headers of what a redirect leads to replace those before. */
    answer = HttpAnswer();
    answer.framed = !line.starts_with("HTTP/1");  // later versions have frames
    return count;
  }
  const std::size_t colon = line.find(':');
  if (colon == line.npos || count > kMostHeader) return count;
  const std::string name = lowered(trimmed(line.substr(0, colon)));
  const std::string value(trimmed(line.substr(colon + 1)));
  if (name == "content-length") answer.framed = true;
  if (name == "transfer-encoding" && lowered(value).ends_with("chunked")) {
    answer.framed = true;
  }
  if (name == "etag") answer.etag = value;
  if (name == "last-modified") answer.last_modified = value;
  if (name == "retry-after") answer.retry_after = retry_seconds(value);
  if (name == "date") {
    const time_t date = ::curl_getdate(value.c_str(), nullptr);
    if (date > 0) answer.date = static_cast<double>(date);
  }
  return count;
}

/* The first line of what a service says about an error. */
std::string first_line_of(const std::string &body) {
  std::string_view text = trimmed(body);
  if (text.starts_with('<')) return "";  // a page for browsers
  text = text.substr(0, std::min(text.find('\n'), kShownBody));
  return std::string(trimmed(text));
}

struct ListDeleter {
  void operator()(curl_slist *list) const { ::curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, ListDeleter>;

void add_header(HeaderList &list, const std::string &line) {
  curl_slist *const longer = ::curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) return;
  list.release();
  list.reset(longer);
}

long milliseconds(double seconds) { return static_cast<long>(seconds * 1000.0) + 1; }

}  // namespace

struct HttpClient::Impl {
  explicit Impl(const HttpLimits &given) : limits(given) {
    ::curl_global_init(CURL_GLOBAL_DEFAULT);
    multi = ::curl_multi_init();
    easy = ::curl_easy_init();
  }
  ~Impl() {
    if (easy != nullptr) ::curl_easy_cleanup(easy);
    if (multi != nullptr) ::curl_multi_cleanup(multi);
    ::curl_global_cleanup();
  }
  Impl(const Impl &) = delete;
  Impl &operator=(const Impl &) = delete;

  void prepare(const HttpRequest &request, Transfer &transfer,
               const HeaderList &headers) {
    const std::string agent = std::string("ksdb/") + KSUTIL_VERSION;
    ::curl_easy_reset(easy);
    ::curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    ::curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    ::curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    ::curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    ::curl_easy_setopt(easy, CURLOPT_MAXREDIRS, limits.redirects);
    ::curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    ::curl_easy_setopt(easy, CURLOPT_USERAGENT, agent.c_str());
    ::curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    ::curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, milliseconds(limits.seconds));
    ::curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                       milliseconds(std::min(limits.seconds, kMostSecondsToConnect)));
    ::curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
    ::curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, take_body);
    ::curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
    ::curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, take_header);
    ::curl_easy_setopt(easy, CURLOPT_HEADERDATA, &transfer);
  }

  /* Runs the transfer to its end or to the signal. */
  CURLcode run(StopSignal &stop, bool &stopped) {
    CURLcode result = CURLE_FAILED_INIT;
    ::curl_multi_add_handle(multi, easy);
    for (int running = 1; running > 0;) {
      if (::curl_multi_perform(multi, &running) != CURLM_OK) break;
      int left = 0;
      while (const CURLMsg *message = ::curl_multi_info_read(multi, &left)) {
        if (message->msg == CURLMSG_DONE) result = message->data.result;
      }
      if (running == 0) break;
      curl_waitfd news{stop.fd(), CURL_WAIT_POLLIN, 0};
      ::curl_multi_poll(multi, &news, stop.fd() < 0 ? 0 : 1, kPollMilliseconds,
                        nullptr);
      if (stop.came()) {
        stopped = true;
        break;
      }
    }
    ::curl_multi_remove_handle(multi, easy);
    return result;
  }

  const HttpLimits limits;
  CURLM *multi = nullptr;
  CURL *easy = nullptr;
};

HttpClient::HttpClient(const HttpLimits &limits)
    : impl_(std::make_unique<Impl>(limits)) {}
HttpClient::~HttpClient() = default;

HttpAnswer HttpClient::get(const HttpRequest &request, StopSignal &stop) {
  Transfer transfer;
  transfer.most = impl_->limits.bytes;
  HttpAnswer &answer = transfer.answer;
  if (impl_->multi == nullptr || impl_->easy == nullptr) {
    answer.problem = "no memory for a request";
    return answer;
  }
  HeaderList headers;
  if (!request.etag.empty()) add_header(headers, "If-None-Match: " + request.etag);
  if (!request.last_modified.empty()) {
    add_header(headers, "If-Modified-Since: " + request.last_modified);
  }
  impl_->prepare(request, transfer, headers);
  bool stopped = false;
  const CURLcode result = impl_->run(stop, stopped);
  if (stopped) {
    answer.kind = HttpAnswer::Kind::kStopped;
    return answer;
  }
  if (result != CURLE_OK) {
    answer.problem = transfer.too_long
                         ? "the answer has more than " +
                               std::to_string(impl_->limits.bytes) + " bytes"
                         : std::string(::curl_easy_strerror(result));
    answer.permanent =
        result == CURLE_UNSUPPORTED_PROTOCOL || result == CURLE_URL_MALFORMAT;
    return answer;
  }
  long status = 0;
  ::curl_easy_getinfo(impl_->easy, CURLINFO_RESPONSE_CODE, &status);
  if (status == 200) {
    answer.kind = HttpAnswer::Kind::kBody;
  } else if (status == 204) {
    answer.kind = HttpAnswer::Kind::kEmpty;
  } else if (status == 304) {
    answer.kind = HttpAnswer::Kind::kUnchanged;
  } else {
    const std::string said = first_line_of(answer.body);
    answer.problem = "the service answers with status " + std::to_string(status) +
                     (said.empty() ? "" : ": " + said);
    answer.permanent = status >= 400 && status < 500 && status != 408 &&
                       status != 425 && status != 429;
  }
  return answer;
}

}  // namespace ksutil::tools
