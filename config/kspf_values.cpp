/* kspf_values: the look-ups of KSPf. */
#include <cstdint>

#include "config/internal/kspf_contents.h"
#include "core/register.h"
#include "platform/clock/clock.h"
#include "platform/elog/failure.h"
#include "platform/stock/text.h"

using ksutil::at_boundary;
using ksutil::fail;
using ksutil::kspf_path;
using ksutil::PfDocument;
using ksutil::PfNode;
using ksutil::PfPath;

namespace ksutil {

bool parse_time(const std::string &text, double &epoch) {
  return parse_date_text(text, epoch) || parse_real(text, epoch);
}

bool parse_boolean(const std::string &text, bool &value) {
  const ElogScope quiet;
  int word = -1;
  if (KS_ParseBoolean(text.c_str(), &word) != 0 || word < 0) return false;
  value = word == 1;
  return true;
}

const char *kind_name(int kind) {
  return kind == PFTBL ? "a table" : kind == PFARR ? "an array" : "a text";
}

}  // namespace ksutil

namespace {

/* The name of a value in messages: "server.pf:12: a.b". */
std::string named(const PfDocument &document, const PfNode &node,
                  const std::string &path) {
  const std::string place = document.place_text(node.place);
  return place.empty() ? path : place + ": " + path;
}

/* Reads the text at a path with `parse`. */
template <class T, class Parse>
int get_value(const char *who, const PfDocument &document, const std::string &path,
              const char *type, T &value, const T &fallback, bool empty_is_absent,
              const Parse &parse) {
  return at_boundary(who, [&]() -> int {
    PfPath steps;
    if (!kspf_path(who, path, steps)) return -1;
    const PfNode *const node = document.find(steps);
    if (node != nullptr && node->kind != PFSTRING) {
      return fail(who, "%s is %s, not a text", named(document, *node, path).c_str(),
                  ksutil::kind_name(node->kind));
    }
    const std::string text = node == nullptr ? std::string() : node->text();
    if (node == nullptr || (empty_is_absent && text.empty())) {
      value = fallback;
      return 1;
    }
    T parsed{};
    if (!parse(text, parsed)) {
      return fail(who, "%s: '%s' is not %s", named(document, *node, path).c_str(),
                  text.c_str(), type);
    }
    value = parsed;
    return 0;
  });
}

/* Finds the table or array at a path: 0 with the node; 1 when there is none; -1 with a
 * message when the value is of another kind. */
int find_block(const char *who, const PfDocument &document, const std::string &path,
               int kind, const PfNode *&node) {
  PfPath steps;
  if (!kspf_path(who, path, steps)) return -1;
  node = document.find(steps);
  if (node == nullptr) return 1;
  if (node->kind == kind) return 0;
  return fail(who, "%s is %s, not %s", named(document, *node, path).c_str(),
              ksutil::kind_name(node->kind), ksutil::kind_name(kind));
}

}  // namespace

int KSPf::kind(const std::string &path) const {
  const ksutil::ElogScope quiet;
  return at_boundary("KSPf::kind", [&]() -> int {
    PfPath steps;
    if (!kspf_path("KSPf::kind", path, steps)) return PFINVALID;
    const PfNode *const node = contents().document.find(steps);
    return node == nullptr ? static_cast<int>(PFINVALID) : node->kind;
  });
}

long KSPf::count(const std::string &path) const {
  const ksutil::ElogScope quiet;
  return at_boundary("KSPf::count", [&]() -> long {
    PfPath steps;
    if (!kspf_path("KSPf::count", path, steps)) return -1;
    const PfNode *const node = contents().document.find(steps);
    if (node == nullptr || node->block == nullptr) return -1;
    return static_cast<long>(node->kind == PFTBL ? node->block->items.size()
                                                 : node->block->by_name.size());
  });
}

int KSPf::getKeys(const std::string &path, Table<std::string> &keys) const {
  return at_boundary("KSPf::getKeys", [&]() -> int {
    const PfNode *node = nullptr;
    const int found =
        find_block("KSPf::getKeys", contents().document, path, PFARR, node);
    if (found < 0) return -1;
    Table<std::string> made;
    if (node != nullptr) {
      for (const auto &line : node->block->lines) {
        if (line->is_value()) made.push(line->name);
      }
    }
    keys = std::move(made);
    return found;
  });
}

int KSPf::where(const std::string &path, std::string &file, long &line) const {
  return at_boundary("KSPf::where", [&]() -> int {
    PfPath steps;
    if (!kspf_path("KSPf::where", path, steps)) return -1;
    const PfDocument &document = contents().document;
    const PfNode *const node = document.find(steps);
    if (node == nullptr) {
      return fail("KSPf::where", "There is no %s", path.c_str());
    }
    file = document.place_text({node->place.file, 0});
    line = static_cast<long>(node->place.line);
    return 0;
  });
}

int KSPf::getString(const std::string &path, std::string &value,
                    const std::string &fallback) const {
  return get_value("KSPf::getString", contents().document, path, "a text", value,
                   fallback, false, [](const std::string &text, std::string &parsed) {
                     parsed = text;
                     return true;
                   });
}

int KSPf::getInt(const std::string &path, long &value, long fallback) const {
  return get_value("KSPf::getInt", contents().document, path, "an integer", value,
                   fallback, true, [](const std::string &text, long &parsed) {
                     std::int64_t number = 0;
                     if (!ksutil::parse_integer(text, number)) return false;
                     parsed = static_cast<long>(number);
                     return parsed == number;
                   });
}

int KSPf::getDouble(const std::string &path, double &value, double fallback) const {
  return get_value("KSPf::getDouble", contents().document, path, "a real number", value,
                   fallback, true, [](const std::string &text, double &parsed) {
                     return ksutil::parse_real(text, parsed);
                   });
}

int KSPf::getBoolean(const std::string &path, bool &value, bool fallback) const {
  return get_value("KSPf::getBoolean", contents().document, path, "yes or no", value,
                   fallback, true, ksutil::parse_boolean);
}

int KSPf::getTime(const std::string &path, double &value, double fallback) const {
  return get_value("KSPf::getTime", contents().document, path, "a time", value,
                   fallback, true, ksutil::parse_time);
}

int KSPf::getStrings(const std::string &path, Table<std::string> &texts) const {
  return at_boundary("KSPf::getStrings", [&]() -> int {
    const PfDocument &document = contents().document;
    const PfNode *node = nullptr;
    const int found = find_block("KSPf::getStrings", document, path, PFTBL, node);
    if (found < 0) return -1;
    Table<std::string> made;
    for (long i = 0;
         node != nullptr && i < static_cast<long>(node->block->items.size()); ++i) {
      const PfNode &item = *node->block->items[static_cast<std::size_t>(i)];
      if (item.kind != PFSTRING) {
        const std::string name = path + "[" + std::to_string(i) + "]";
        return fail("KSPf::getStrings", "%s is %s, not a text",
                    named(document, item, name).c_str(), ksutil::kind_name(item.kind));
      }
      made.push(item.text());
    }
    texts = std::move(made);
    return found;
  });
}
