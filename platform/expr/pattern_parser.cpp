#include <algorithm>
#include <cctype>
#include <utility>

#include "platform/expr/shared/pattern.h"

namespace ksutil::expr {

namespace {

using Set = std::bitset<256>;
using State = Pattern::State;
using Step = Pattern::Step;

constexpr int kUnlimited = -1;
constexpr int kMaxRepeat = 255;

std::size_t byte_of(char c) { return static_cast<unsigned char>(c); }

/* The ASCII bytes of a class; false for an unknown name. */
bool add_class(std::string_view name, Set &set) {
  static constexpr std::pair<std::string_view, int (*)(int)> kClasses[] = {
      {"alpha", [](int c) { return int(c < 128 && std::isalpha(c) != 0); }},
      {"digit", [](int c) { return int(c >= '0' && c <= '9'); }},
      {"alnum", [](int c) { return int(c < 128 && std::isalnum(c) != 0); }},
      {"upper", [](int c) { return int(c >= 'A' && c <= 'Z'); }},
      {"lower", [](int c) { return int(c >= 'a' && c <= 'z'); }},
      {"space", [](int c) { return int(c == ' ' || (c >= 9 && c <= 13)); }},
      {"blank", [](int c) { return int(c == ' ' || c == '\t'); }},
      {"punct", [](int c) { return int(c < 128 && std::ispunct(c) != 0); }},
      {"xdigit", [](int c) { return int(c < 128 && std::isxdigit(c) != 0); }},
      {"print", [](int c) { return int(c >= 32 && c < 127); }},
      {"graph", [](int c) { return int(c > 32 && c < 127); }},
      {"cntrl", [](int c) { return int(c < 32 || c == 127); }}};
  for (const auto &[known, contains] : kClasses) {
    if (known != name) continue;
    for (int c = 0; c < 256; ++c) {
      if (contains(c) != 0) set.set(static_cast<std::size_t>(c));
    }
    return true;
  }
  return false;
}

/* Writes the states of a pattern as it is read.  Distances are relative, so a piece of
 * the states can be copied and moved. */
class PatternParser {
 public:
  PatternParser(std::string_view text, std::vector<State> &states,
                std::vector<Set> &sets)
      : text_(text), states_(states), sets_(sets) {}

  bool parse() {
    if (!alternatives(0)) return false;
    if (at_ < text_.size()) return fail("expected no ')' without its '('");
    states_.push_back({Step::kAccept});
    return true;
  }
  std::size_t position() const { return at_; }
  const char *message() const { return message_; }

 private:
  bool fail(const char *message) {
    message_ = message;
    return false;
  }
  bool more() const { return at_ < text_.size(); }
  static std::int16_t distance(std::size_t n) { return static_cast<std::int16_t>(n); }
  static std::int16_t back(std::size_t n) {
    return static_cast<std::int16_t>(-static_cast<int>(n));
  }
  void insert(std::size_t at, State state) {
    states_.insert(states_.begin() + static_cast<std::ptrdiff_t>(at), state);
  }
  bool fits(std::size_t count) {
    return states_.size() + count <= kMaxPatternStates ||
           fail("expected a smaller pattern");
  }

  bool alternatives(int depth) {
    if (depth > kMaxPatternDepth) return fail("expected fewer nested groups");
    const std::size_t begin = states_.size();
    std::vector<std::size_t> jumps;
    std::size_t branch = begin;
    if (!sequence(depth)) return false;
    while (more() && text_[at_] == '|') {
      ++at_;
      if (!fits(2)) return false;
      insert(branch, {Step::kSplit, 1, distance(states_.size() - branch + 2)});
      jumps.push_back(states_.size());
      states_.push_back({Step::kJump});
      branch = states_.size();
      if (!sequence(depth)) return false;
    }
    for (const std::size_t jump : jumps) {
      states_[jump].a = distance(states_.size() - jump);
    }
    return true;
  }

  bool sequence(int depth) {
    while (more() && text_[at_] != '|' && text_[at_] != ')') {
      const std::size_t begin = states_.size();
      if (!fits(1) || !atom(depth)) return false;
      while (more() &&
             std::string_view("*+?{").find(text_[at_]) != std::string_view::npos) {
        int least = 0, most = 0;
        if (!repetition(least, most) || !repeat(begin, least, most)) return false;
      }
    }
    return true;
  }

  bool repetition(int &least, int &most) {
    const char c = text_[at_++];
    least = c == '+' ? 1 : 0;
    most = c == '?' ? 1 : kUnlimited;
    if (c != '{') return true;
    if (!count(least)) return false;
    most = least;
    if (more() && text_[at_] == ',') {
      ++at_;
      most = kUnlimited;
      if (more() && text_[at_] != '}' && !count(most)) return false;
    }
    if (!more() || text_[at_] != '}') return fail("expected '}'");
    ++at_;
    return most == kUnlimited || most >= least ||
           fail("expected a maximum not below the minimum");
  }

  bool count(int &value) {
    value = 0;
    const std::size_t begin = at_;
    while (more() && text_[at_] >= '0' && text_[at_] <= '9') {
      value = value * 10 + (text_[at_++] - '0');
      if (value > kMaxRepeat) return fail("expected a count of at most 255");
    }
    return at_ > begin || fail("expected a count");
  }

  /* Replaces the piece that starts at `begin` by `least` to `most` copies of it. */
  bool repeat(std::size_t begin, int least, int most) {
    const std::vector<State> piece(states_.begin() + static_cast<std::ptrdiff_t>(begin),
                                   states_.end());
    const std::size_t n = piece.size();
    states_.resize(begin, {Step::kAccept});
    const auto copy = [&] {
      states_.insert(states_.end(), piece.begin(), piece.end());
    };
    for (int i = 0; i < least; ++i) {
      if (!fits(n)) return false;
      copy();
    }
    if (most == kUnlimited) {
      if (!fits(n + 2)) return false;
      states_.push_back({Step::kSplit, 1, distance(n + 2)});
      copy();
      states_.push_back({Step::kJump, back(n + 1)});
    }
    for (int i = least; i < most; ++i) {
      if (!fits(n + 1)) return false;
      states_.push_back({Step::kSplit, 1, distance(n + 1)});
      copy();
    }
    return true;
  }

  bool atom(int depth) {
    const char c = text_[at_];
    switch (c) {
      case '(':
        ++at_;
        if (!alternatives(depth + 1)) return false;
        if (!more()) return fail("expected ')'");
        ++at_;
        return true;
      case '[':
        ++at_;
        return bracket();
      case '\\':
        ++at_;
        return escape();
      case '^':
        ++at_;
        states_.push_back({Step::kBegin});
        return true;
      case '$':
        ++at_;
        states_.push_back({Step::kEnd});
        return true;
      case '*':
      case '+':
      case '?':
      case '{':
        return fail("expected something to repeat");
      case '.':
        ++at_;
        return add_set(~Set());
      default:
        ++at_;
        return add_set(Set().set(byte_of(c)));
    }
  }

  bool add_set(const Set &set) {
    auto known = std::find(sets_.begin(), sets_.end(), set);
    if (known == sets_.end()) known = sets_.insert(sets_.end(), set);
    states_.push_back(
        {Step::kSet, distance(static_cast<std::size_t>(known - sets_.begin()))});
    return true;
  }

  bool escape() {
    if (!more()) return fail("expected a character after '\\'");
    const char c = text_[at_];
    Set set;
    switch (c) {
      case 'd':
      case 'D':
        add_class("digit", set);
        break;
      case 's':
      case 'S':
        add_class("space", set);
        break;
      case 'w':
      case 'W':
        add_class("alnum", set);
        set.set('_');
        break;
      default:
        if (c >= '0' && c <= '9') return fail("expected no back-reference");
        if (std::isalpha(static_cast<unsigned char>(c)) != 0) {
          return fail("expected a punctuation mark or d, s, w after '\\'");
        }
        set.set(byte_of(c));
    }
    if (c == 'D' || c == 'S' || c == 'W') set.flip();
    ++at_;
    return add_set(set);
  }

  bool bracket() {
    const bool inverted = more() && text_[at_] == '^';
    if (inverted) ++at_;
    Set set;
    for (bool first = true; more() && (first || text_[at_] != ']'); first = false) {
      if (text_.substr(at_).starts_with("[:")) {
        const std::size_t end = text_.find(":]", at_ + 2);
        if (end == std::string_view::npos ||
            !add_class(text_.substr(at_ + 2, end - at_ - 2), set)) {
          return fail("expected a character class such as [:alpha:]");
        }
        at_ = end + 2;
        continue;
      }
      const std::size_t low = byte_of(text_[at_++]);
      std::size_t high = low;
      if (at_ + 1 < text_.size() && text_[at_] == '-' && text_[at_ + 1] != ']') {
        high = byte_of(text_[at_ + 1]);
        if (high < low) return fail("expected an ascending range");
        at_ += 2;
      }
      for (std::size_t i = low; i <= high; ++i) set.set(i);
    }
    if (!more()) return fail("expected ']'");
    ++at_;
    return add_set(inverted ? ~set : set);
  }

  std::string_view text_;
  std::vector<State> &states_;
  std::vector<Set> &sets_;
  std::size_t at_ = 0;
  const char *message_ = "";
};

}  // namespace

bool Pattern::compile(std::string_view text, std::size_t &position,
                      std::string &message) {
  if (text.size() > kMaxPatternLength) {
    position = kMaxPatternLength;
    message = "expected a pattern of at most 1024 bytes";
    return false;
  }
  PatternParser parser(text, states_, sets_);
  if (parser.parse()) return true;
  position = parser.position();
  message = parser.message();
  return false;
}

}  // namespace ksutil::expr
