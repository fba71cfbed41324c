#include "tools/feeds/feed_address.h"

#include <curl/curl.h>

#include <memory>

#include "platform/stock/text.h"

namespace ksutil::tools {
namespace {

struct UrlDeleter {
  void operator()(CURLU *url) const { ::curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, UrlDeleter>;

/* A part of an address; "" when it has none. */
std::string part_of(CURLU *url, CURLUPart part) {
  char *text = nullptr;
  if (::curl_url_get(url, part, &text, 0) != CURLUE_OK) return "";
  const std::string copy = text;
  ::curl_free(text);
  return copy;
}

bool has_parameter(const std::string &query, const std::string &name) {
  return ("&" + lowered(query)).find("&" + name + "=") != std::string::npos;
}

}  // namespace

bool FeedAddress::parse(const std::string &text, std::string &problem) {
  const Url url(::curl_url());
  if (url == nullptr ||
      ::curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) {
    problem = "'" + text.substr(0, 80) + "' is not an address";
    return false;
  }
  const std::string scheme = lowered(part_of(url.get(), CURLUPART_SCHEME));
  if (scheme != "http" && scheme != "https") {
    problem = "feeds are read over http and https, not over " + scheme;
    return false;
  }
  std::string path = part_of(url.get(), CURLUPART_PATH);
  fdsn_ = path.find("/fdsnws/event/") != path.npos;
  if (fdsn_ && path.find("/query") == path.npos) {
    path += path.back() == '/' ? "query" : "/query";
    ::curl_url_set(url.get(), CURLUPART_PATH, path.c_str(), 0);
  }
  ::curl_url_set(url.get(), CURLUPART_FRAGMENT, nullptr, 0);
  text_ = part_of(url.get(), CURLUPART_URL);
  query_ = part_of(url.get(), CURLUPART_QUERY);
  const std::string port = part_of(url.get(), CURLUPART_PORT);
  shown_ = scheme + "://" + part_of(url.get(), CURLUPART_HOST) +
           (port.empty() ? "" : ":" + port) + path;
  return true;
}

std::string FeedAddress::url(const FeedParameters &parameters) const {
  const Url url(::curl_url());
  if (url == nullptr) return text_;
  ::curl_url_set(url.get(), CURLUPART_URL, text_.c_str(), 0);
  for (const auto &[name, value] : parameters) {
    if (has_parameter(query_, name)) continue;
    ::curl_url_set(url.get(), CURLUPART_QUERY, (name + "=" + value).c_str(),
                   CURLU_APPENDQUERY | CURLU_URLENCODE);
  }
  return part_of(url.get(), CURLUPART_URL);
}

}  // namespace ksutil::tools
