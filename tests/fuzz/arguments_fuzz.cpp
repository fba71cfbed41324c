/* Arguments of the programs: dates, lengths, colours, lists, numbers and addresses are
 * taken, or refused with a reason.
 * Words: tools/plot tools/common/options.cpp platform/clock */
#include <cmath>
#include <string>

#include "platform/clock/clock.h"
#include "tests/fuzz/subject.h"
#include "tools/common/options.h"
#include "tools/plot/colour.h"
#include "tools/plot/figure.h"
#include "tools/plot/picture_options.h"
#include "tools/plot/point_label.h"
#ifdef KSUTIL_FEEDS
#include "tools/feeds/feed_address.h"
#endif

namespace ksutil::fuzz {
namespace {

void read_list(const std::string &text) {
  std::string joined;
  for (const std::string &item : tools::split_list(text)) joined += item;
  require(joined.size() <= text.size(), "items are parts of the list");
}

void read_number(std::string text) {
  const std::string reason = tools::whole_number(1, 1000)(text);
  tools::number_between(0.0, 1.0)(text);
  if (!reason.empty()) return;
  const long value = std::strtol(text.c_str(), nullptr, 10);
  require(value >= 1 && value <= 1000, "a number lies within its bounds");
}

#ifdef KSUTIL_FEEDS
void read_address(const std::string &text) {
  tools::FeedAddress address;
  std::string problem;
  if (!address.parse(text, problem)) {
    require(!problem.empty(), "a refused address has a reason");
    return;
  }
  const std::string url = address.url({{"format", "xml"}, {"starttime", "2026-01-01"}});
  require(url.starts_with("http"), "an address is one over HTTP");
}
#endif

}  // namespace

void read_input(std::string_view input) {
  if (input.empty()) return;
  const std::string text = text_of(input.substr(1));
  switch (static_cast<unsigned char>(input.front()) % 6) {
    case 0: {
      double epoch = 0.0;
      if (parse_date_text(text, epoch)) {
        require(std::isfinite(epoch), "a date is a time");
      }
      break;
    }
    case 1: {
      double units = 0.0;
      if (plot::parse_length(text, units)) {
        require(std::isfinite(units), "a length is a number");
      }
      break;
    }
    case 2: {
      plot::Colour colour{};
      plot::PointStyle style;
      plot::Symbol symbol{};
      plot::parse_colour(text, colour);
      plot::parse_symbol(text, symbol);
      plot::parse_point_label(text, style);
      break;
    }
    case 3:
      read_list(text);
      break;
    case 4:
      read_number(text);
      break;
    default:
#ifdef KSUTIL_FEEDS
      read_address(text);
#endif
      break;
  }
}

}  // namespace ksutil::fuzz
