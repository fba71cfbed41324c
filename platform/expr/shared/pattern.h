/* Pattern: searches for an extended regular expression in time linear in the text.  All
 * states of the pattern advance together over the bytes, so no byte is read twice. */
#ifndef KSUTIL_PLATFORM_EXPR_SHARED_PATTERN_H
#define KSUTIL_PLATFORM_EXPR_SHARED_PATTERN_H

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ksutil::expr {

/* Bounds of a pattern: its text, its nesting, and its size after repetitions are
 * expanded. */
inline constexpr std::size_t kMaxPatternLength = 1024;
inline constexpr int kMaxPatternDepth = 100;
inline constexpr std::size_t kMaxPatternStates = 2000;

/* The memory of a search; grows to the largest pattern and is then reused. */
struct PatternScratch {
  std::vector<std::uint16_t> now, next, pending;
  std::vector<std::uint32_t> seen;  // the last round that added a state
  std::uint32_t round = 0;
};

class Pattern {
 public:
  /* False, with the place of the error in the pattern and what was expected there. */
  bool compile(std::string_view text, std::size_t &position, std::string &message);

  /* Whether the pattern matches somewhere in the text, byte by byte, with ASCII
   * classes. */
  bool found_in(std::string_view text, PatternScratch &scratch) const;

  std::size_t size() const { return states_.size(); }

  enum class Step : std::uint8_t { kSet, kSplit, kJump, kBegin, kEnd, kAccept };
  struct State {
    Step step;
    std::int16_t a = 0;  // distance to the next state, or the index of a set
    std::int16_t b = 0;  // a split's other distance
  };

 private:
  bool add(std::size_t state, std::size_t at, std::size_t size,
           std::vector<std::uint16_t> &list, PatternScratch &scratch) const;

  std::vector<State> states_;
  std::vector<std::bitset<256>> sets_;
};

}  // namespace ksutil::expr
#endif
