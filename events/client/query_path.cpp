#include "events/client/internal/query_path.h"

#include <charconv>

namespace ksutil::events {
namespace {

/* A name divided at its first point. */
struct Parts {
  std::string_view head, rest;
  bool divided;
};

Parts divide(std::string_view name) {
  const std::size_t point = name.find('.');
  if (point == name.npos) return {name, {}, false};
  return {name.substr(0, point), name.substr(point + 1), true};
}

/* Splits "origins[12]" into name and index. */
bool split_index(std::string_view head, std::string_view &name, long &index) {
  const std::size_t open = head.find('[');
  if (open == head.npos || head.back() != ']') return false;
  name = head.substr(0, open);
  const char *const begin = head.data() + open + 1;
  const char *const end = head.data() + head.size() - 1;
  const auto [at, error] = std::from_chars(begin, end, index);
  return error == std::errc() && at == end && index >= 0;
}

template <class Part>
const Part *find_name(const std::vector<Part> &parts, std::string_view name) {
  for (const Part &part : parts) {
    if (part.name == name) return &part;
  }
  return nullptr;
}

}  // namespace

bool QueryPath::read(const void *record, expr::Value &value, std::string &text) const {
  for (const Move &move : moves) {
    record = move.to(record, move.index);
    if (record != nullptr) continue;
    value = {};
    value.type = type();
    value.null = true;
    return true;
  }
  if (own == nullptr) return field->read(part->row(record), value, text);
  value = {};
  value.type = own->type;
  own->read(record, value);
  return true;
}

const Layouts &PathFinder::layouts(std::string_view table) {
  const auto found = known_.find(table);
  if (found != known_.end()) return found->second;
  return known_.emplace(table, layouts_(table)).first->second;
}

bool PathFinder::find_row(const RowPart &part, std::string_view field,
                          QueryPath &path) {
  auto bound = std::make_shared<const RowField>(layouts(part.table), field);
  if (!bound->valid()) return false;
  path.part = &part;
  path.field = std::move(bound);
  return true;
}

/* Looks in the record, in its rows and, by the names of their lists, in the records
 * below it. */
bool PathFinder::find_here(const RecordKind &kind, std::string_view name,
                           QueryPath &path) {
  const Parts parts = divide(name);
  if (!parts.divided) {
    path.own = find_name(kind.own, name);
    if (path.own != nullptr) return true;
    for (const RowPart &part : kind.rows) {
      if (find_row(part, name, path)) return true;
    }
    return false;
  }
  std::string_view list;
  long index = 0;
  const bool indexed = split_index(parts.head, list, index);
  if (const Step *step =
          indexed ? find_name(kind.lists, list) : find_name(kind.steps, parts.head)) {
    path.moves.push_back({step->to, index});
    if (find_here(step->kind(), parts.rest, path) ||
        find_below(step->kind(), parts.rest, path)) {
      return true;
    }
    path.moves.pop_back();
    return false;
  }
  for (const RowPart &part : kind.rows) {
    if (part.table == parts.head && find_row(part, parts.rest, path)) return true;
  }
  /* "origin.magnitude" on an origin, as on its event. */
  if (kind.rows.front().table != parts.head) return false;
  path.own = find_name(kind.own, parts.rest);
  return path.own != nullptr;
}

/* Looks in the preferred records below, whose names may be left out. */
bool PathFinder::find_below(const RecordKind &kind, std::string_view name,
                            QueryPath &path) {
  for (const Step &step : kind.steps) {
    path.moves.push_back({step.to, 0});
    if (find_here(step.kind(), name, path)) return true;
    path.moves.pop_back();
  }
  return false;
}

bool PathFinder::find(const RecordKind &kind, std::string_view name, QueryPath &path) {
  return find_here(kind, name, path) || find_below(kind, name, path);
}

}  // namespace ksutil::events
