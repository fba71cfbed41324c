#include "events/client/internal/query.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/elog/failure.h"

namespace ksutil::events {
namespace {

/* PathFields: binds the names of one query to paths. */
class PathFields final : public expr::Fields {
 public:
  PathFields(const RecordKind &kind, PathFinder &finder, std::vector<QueryPath> &paths)
      : kind_(kind), finder_(finder), paths_(paths) {}

  bool bind(std::string_view name, int &slot, expr::Type &type) const override {
    QueryPath path;
    if (!finder_.find(kind_, name, path)) return false;
    slot = static_cast<int>(paths_.size());
    type = path.type();
    paths_.push_back(std::move(path));
    return true;
  }

 private:
  const RecordKind &kind_;
  PathFinder &finder_;
  std::vector<QueryPath> &paths_;
};

class PathRecord final : public expr::Record {
 public:
  PathRecord(const std::vector<QueryPath> &paths, const void *record)
      : paths_(paths), record_(record) {
    if (texts().size() < paths.size()) texts().resize(paths.size());
  }
  bool value(int slot, expr::Value &value) const override {
    const auto index = static_cast<std::size_t>(slot);
    return paths_[index].read(record_, value, texts()[index]);
  }

 private:
  /* The texts of the fields of rows, by slot: they last until this thread evaluates the
   * next query, while the rows are read for a moment only. */
  static std::vector<std::string> &texts() {
    thread_local std::vector<std::string> texts;
    return texts;
  }

  const std::vector<QueryPath> &paths_;
  const void *record_;
};

}  // namespace

Query::Program Query::compile(std::string_view text, const RecordKind &kind,
                              PathFinder &finder) {
  Program program;
  const PathFields fields(kind, finder, program.paths);
  program.code = expr::Program::compile(text, fields, program.error);
  return program;
}

std::shared_ptr<const Query> Query::compile(std::string_view text,
                                            const LayoutSource &layouts,
                                            expr::Error &error) {
  PathFinder finder(layouts);
  auto query = std::make_shared<Query>();
  query->event_ = compile(text, event_kind(), finder);
  query->origin_ = compile(text, origin_kind(), finder);
  if (query->event_.code != nullptr || query->origin_.code != nullptr) return query;
  /* Report the error that lies further to the right: that kind of record fits more of
   * the query. */
  error = query->event_.error.position >= query->origin_.error.position
              ? query->event_.error
              : query->origin_.error;
  return nullptr;
}

int Query::evaluate(const Program &program, const char *kind, const void *record,
                    expr::Value &value) {
  if (program.code == nullptr) {
    return fail("EVClient::getValue", "the query is not about %s: %s at position %zu",
                kind, program.error.message.c_str(), program.error.position);
  }
  const PathRecord view(program.paths, record);
  const int slot = program.code->only_slot();
  if (slot >= 0) {
    if (!view.value(slot, value)) return -1;
  } else {
    thread_local expr::Workspace workspace;
    if (!program.code->evaluate(view, workspace, value)) return -1;
  }
  const bool real = value.type == expr::Type::kReal || value.type == expr::Type::kTime;
  return value.null || (real && std::isnan(value.real)) ? 1 : 0;
}

bool Query::needs_outline_only() const {
  return event_.code != nullptr &&
         std::all_of(event_.paths.begin(), event_.paths.end(),
                     [](const QueryPath &path) { return path.in_outline(); });
}

int Query::evaluate(const EVEvent &event, expr::Value &value) const {
  return evaluate(event_, "events", &event, value);
}

int Query::evaluate(const EVOrigin &origin, expr::Value &value) const {
  return evaluate(origin_, "origins", &origin, value);
}

}  // namespace ksutil::events
