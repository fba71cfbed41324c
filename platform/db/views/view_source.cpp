#include "platform/db/views/internal/view_source.h"

#include <numeric>

#include "platform/elog/failure.h"

namespace ksutil::db {

ViewSource::ViewSource(Tuples tuples) : tuples_(std::move(tuples)) {
  for (std::size_t part = 0; part < tuples_.parts.size(); ++part) {
    const TableSource &table = *tuples_.parts[part].source;
    if (part > 0) name_ += '+';
    name_ += table.name();
    for (int i = 0; i < table.field_count(); ++i) {
      Field field = table.field(i);
      if (find_field(field.name) >= 0) field.name = table.name() + "." + field.name;
      fields_.push_back(std::move(field));
      places_.push_back({part, i});
    }
  }
  current_.places = &places_;
  current_.parts.resize(tuples_.parts.size());
}

int ViewSource::find_field(std::string_view name) const {
  const std::size_t point = name.find('.');
  for (std::size_t i = 0; i < places_.size(); ++i) {
    const TableSource &table = *tuples_.parts[places_[i].part].source;
    const std::string &field = table.field(places_[i].field).name;
    const bool same = point == name.npos ? name == field
                                         : name.substr(0, point) == table.name() &&
                                               name.substr(point + 1) == field;
    if (same) return static_cast<int>(i);
  }
  return -1;
}

std::uint64_t ViewSource::signature() const {
  std::uint64_t signature = tuples_.parts.front().source->signature();
  for (std::size_t part = 1; part < tuples_.parts.size(); ++part) {
    signature =
        signature * 0x9e3779b97f4a7c15U ^ tuples_.parts[part].source->signature();
  }
  return signature;
}

bool ViewSource::count(const char *who, long &count) {
  for (const Tuples::Part &part : tuples_.parts) {
    Stamp stamp;
    if (!part.source->stamp(who, stamp)) return false;
  }
  count = tuples_.count();
  return true;
}

const expr::Record *ViewSource::record(const char *who, long number) {
  const bool special = number == dbNULL || number == dbSCRATCH;
  if (!special && (number < 0 || number >= tuples_.count())) {
    return fail(who, "the view %s has no record %ld, only %ld records", name_.c_str(),
                number, tuples_.count());
  }
  for (std::size_t part = 0; part < tuples_.parts.size(); ++part) {
    current_.parts[part] = tuples_.parts[part].source->record(
        who, special ? number : tuples_.tuple(number)[part]);
    if (current_.parts[part] == nullptr) return nullptr;
  }
  return &current_;
}

bool list_tuples(const char *who, Dbptr db, RecordSource &source, Tuples &tuples) {
  TableSource *const table = source.table();
  if (table == nullptr) {
    tuples = static_cast<ViewSource &>(source).tuples();
    return true;
  }
  tuples.counted = table->look(who);
  if (tuples.counted == nullptr) return false;
  tuples.parts = {{db.table, table}};
  tuples.records.resize(static_cast<std::size_t>(tuples.counted->count()));
  std::iota(tuples.records.begin(), tuples.records.end(), 0L);
  return true;
}

bool key_texts(const char *who, Tbl *keys, std::vector<std::string> &texts) {
  for (long i = 0; keys != nullptr && i < counttbl(keys); ++i) {
    const void *const text = gettbl(keys, i);
    if (text == nullptr) break;
    texts.emplace_back(static_cast<const char *>(text));
  }
  if (!texts.empty() && static_cast<long>(texts.size()) == counttbl(keys)) return true;
  return fail(who, "no keys, or a hole in their list");
}

std::unique_ptr<const expr::Program> compile_expression(const char *who,
                                                        const RecordSource &source,
                                                        const std::string &text) {
  expr::Error error;
  auto program = expr::Program::compile(text, SourceFields(&source), error);
  if (program == nullptr) {
    fail(who, "Can't compile '%s': %s at position %zu", text.c_str(),
         error.message.c_str(), error.position);
  }
  return program;
}

Dbptr add_view(Database &database, Dbptr db, Tuples tuples,
               std::vector<long> group_starts) {
  auto view = std::make_unique<ViewSource>(std::move(tuples));
  view->group_starts = std::move(group_starts);
  return {db.database, database.add_view(std::move(view)), dbALL, dbALL};
}

}  // namespace ksutil::db
