#include "tools/plot/symbol_cycle.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace ksutil::plot {
namespace {

/* Points are left out: filled circles look the same. */
constexpr std::array kSymbols = {Symbol::kSquare, Symbol::kTriangle, Symbol::kDiamond,
                                 Symbol::kStar,   Symbol::kCircle,   Symbol::kCross,
                                 Symbol::kX};
constexpr std::size_t kColours = 8;  // of series_colour
constexpr std::size_t kLooks = kColours * kSymbols.size();

/* P-type phases are round or square, S-type ones pointed; the colour tells the branch. */
struct KnownPhase {
  std::string_view name;
  Symbol symbol;
  std::size_t colour;
};
constexpr std::array kPhases = {
    KnownPhase{"P", Symbol::kCircle, 0},     KnownPhase{"Pn", Symbol::kCircle, 1},
    KnownPhase{"Pg", Symbol::kCircle, 2},    KnownPhase{"Pb", Symbol::kCircle, 3},
    KnownPhase{"pP", Symbol::kCircle, 4},    KnownPhase{"sP", Symbol::kCircle, 5},
    KnownPhase{"PP", Symbol::kCircle, 6},    KnownPhase{"Pdiff", Symbol::kCircle, 7},
    KnownPhase{"PcP", Symbol::kSquare, 0},   KnownPhase{"ScP", Symbol::kSquare, 1},
    KnownPhase{"PKP", Symbol::kSquare, 2},   KnownPhase{"PKPdf", Symbol::kSquare, 3},
    KnownPhase{"PKPbc", Symbol::kSquare, 4}, KnownPhase{"PKPab", Symbol::kSquare, 5},
    KnownPhase{"PKiKP", Symbol::kSquare, 6}, KnownPhase{"PKIKP", Symbol::kSquare, 7},
    KnownPhase{"S", Symbol::kTriangle, 0},   KnownPhase{"Sn", Symbol::kTriangle, 1},
    KnownPhase{"Sg", Symbol::kTriangle, 2},  KnownPhase{"Sb", Symbol::kTriangle, 3},
    KnownPhase{"sS", Symbol::kTriangle, 4},  KnownPhase{"SS", Symbol::kTriangle, 6},
    KnownPhase{"ScS", Symbol::kDiamond, 0},  KnownPhase{"SKS", Symbol::kDiamond, 2},
    KnownPhase{"Lg", Symbol::kStar, 2},      KnownPhase{"LR", Symbol::kStar, 1},
    KnownPhase{"LQ", Symbol::kStar, 3},      KnownPhase{"T", Symbol::kX, 0}};

/* Whether each look is taken; by symbol, then by colour. */
using Taken = std::array<std::array<bool, kColours>, kSymbols.size()>;

std::size_t place_of(Symbol symbol) {
  return static_cast<std::size_t>(std::find(kSymbols.begin(), kSymbols.end(), symbol) -
                                  kSymbols.begin());
}

/* The next look that is free, going diagonally through symbols and colours so that
 * neighbours differ in both; after the last one any look. */
Look next_look(Taken &taken, std::size_t &step) {
  std::size_t symbol = 0, colour = 0;
  for (std::size_t tried = 0; tried < kLooks; ++tried, ++step) {
    /* 7 symbols and 8 colours have no common divisor: 56 steps meet every pair once. */
    symbol = step % kSymbols.size();
    colour = step % kColours;
    if (!taken[symbol][colour]) break;
  }
  ++step;
  taken[symbol][colour] = true;
  return {kSymbols[symbol], series_colour(colour)};
}

const KnownPhase *find_phase(std::string_view name) {
  for (const KnownPhase &phase : kPhases) {
    if (phase.name == name) return &phase;
  }
  return nullptr;
}

}  // namespace

std::map<std::string, Look> looks_of(const std::set<std::string> &texts) {
  std::map<std::string, Look> looks;
  Taken taken{};
  for (const std::string &text : texts) {
    const KnownPhase *const phase = find_phase(text);
    if (phase == nullptr) continue;
    looks[text] = {phase->symbol, series_colour(phase->colour)};
    taken[place_of(phase->symbol)][phase->colour] = true;
  }
  std::size_t step = 0;
  for (const std::string &text : texts) {
    if (!looks.contains(text)) looks[text] = next_look(taken, step);
  }
  return looks;
}

}  // namespace ksutil::plot
