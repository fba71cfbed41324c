#include "platform/expr/shared/pattern.h"

#include <utility>

namespace ksutil::expr {

/* Adds a state and all that can be reached from it without reading a byte; true when
 * one of them accepts. */
bool Pattern::add(std::size_t state, std::size_t at, std::size_t size,
                  std::vector<std::uint16_t> &list, PatternScratch &scratch) const {
  scratch.pending.clear();
  scratch.pending.push_back(static_cast<std::uint16_t>(state));
  while (!scratch.pending.empty()) {
    const int current = scratch.pending.back();
    scratch.pending.pop_back();
    const std::size_t index = static_cast<std::size_t>(current);
    if (scratch.seen[index] == scratch.round) continue;
    scratch.seen[index] = scratch.round;
    const State &s = states_[index];
    const auto follow = [&](int distance) {
      scratch.pending.push_back(static_cast<std::uint16_t>(current + distance));
    };
    switch (s.step) {
      case Step::kAccept:
        return true;
      case Step::kSet:
        list.push_back(static_cast<std::uint16_t>(current));
        break;
      case Step::kSplit:
        follow(s.b);
        follow(s.a);
        break;
      case Step::kJump:
        follow(s.a);
        break;
      case Step::kBegin:
        if (at == 0) follow(1);
        break;
      case Step::kEnd:
        if (at == size) follow(1);
        break;
    }
  }
  return false;
}

bool Pattern::found_in(std::string_view text, PatternScratch &scratch) const {
  if (scratch.seen.size() < states_.size()) {
    scratch.seen.resize(states_.size(), 0);
    scratch.now.reserve(states_.size());
    scratch.next.reserve(states_.size());
    scratch.pending.reserve(2 * states_.size() + 2);
  }
  scratch.now.clear();
  for (std::size_t at = 0;; ++at) {
    /* The states reached by the last byte were already added in this round. */
    if (at == 0) ++scratch.round;
    if (add(0, at, text.size(), scratch.now, scratch)) return true;
    if (at == text.size()) return false;
    if (scratch.round >= 0xfffffffeU) {
      scratch.seen.assign(scratch.seen.size(), 0);
      scratch.round = 0;
    }
    ++scratch.round;
    scratch.next.clear();
    for (const std::uint16_t state : scratch.now) {
      const std::size_t set = static_cast<std::size_t>(states_[state].a);
      if (!sets_[set].test(static_cast<unsigned char>(text[at]))) continue;
      if (add(state + 1U, at + 1, text.size(), scratch.next, scratch)) return true;
    }
    std::swap(scratch.now, scratch.next);
  }
}

}  // namespace ksutil::expr
