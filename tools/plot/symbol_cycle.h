/* SymbolCycle: gives each text of a set a look of its own. */
#ifndef KSUTIL_TOOLS_PLOT_SYMBOL_CYCLE_H
#define KSUTIL_TOOLS_PLOT_SYMBOL_CYCLE_H

#include <map>
#include <set>
#include <string>

#include "tools/plot/colour.h"
#include "tools/plot/figure.h"

namespace ksutil::plot {

/* A symbol and its colour. */
struct Look {
  Symbol symbol = Symbol::kCircle;
  Colour colour = {};
};

/* Looks for texts.  Well-known seismic phases (P, Pn, Pg, PKP, S, ...) look alike in every
 * picture; other texts take, in alphabetical order, the combinations of symbol and colour
 * that are left, so that 56 texts differ. */
std::map<std::string, Look> looks_of(const std::set<std::string> &texts);

}  // namespace ksutil::plot
#endif
