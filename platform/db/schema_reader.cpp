#include "platform/db/internal/schema_reader.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <vector>

#include "platform/db/columns.h"
#include "platform/elog/failure.h"
#include "platform/pf/owners.h"
#include "platform/stock/owners.h"
#include "platform/stock/text.h"

namespace ksutil::db {
namespace {

const char *text_item(Tbl *list, long i) {
  return static_cast<const char *>(gettbl(list, i));
}

Pf *sub_tree(Pf *tree, const char *name, int kind) {
  void *value = nullptr;
  return pfget(tree, name, &value) == kind ? static_cast<Pf *>(value) : nullptr;
}

/* Removes the first word from `text` and returns it. */
std::string_view next_word(std::string_view &text) {
  text = trimmed(text);
  const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
  const std::string_view word = text.substr(0, end);
  text = trimmed(text.substr(end));
  return word;
}

std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  for (auto word = next_word(text); !word.empty(); word = next_word(text)) {
    words.emplace_back(word);
  }
  return words;
}

bool is_name(std::string_view text) {
  return !text.empty() && text.size() <= 64 &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return std::isalnum(static_cast<unsigned char>(c)) || c == '_';
         });
}

constexpr struct {
  std::string_view word;
  FieldType type;
} kTypes[] = {{"integer", FieldType::kInteger}, {"real", FieldType::kReal},
              {"text", FieldType::kText},       {"string", FieldType::kText},
              {"time", FieldType::kTime},       {"date", FieldType::kDate},
              {"yearday", FieldType::kYearday}, {"pointer", FieldType::kPointer}};

bool type_of(std::string_view word, FieldType &type) {
  for (const auto &known : kTypes) {
    if (known.word == word) {
      type = known.type;
      return true;
    }
  }
  return false;
}

/* The words of the types, for a message. */
std::string known_types() {
  std::string words;
  for (const auto &known : kTypes) {
    if (!words.empty()) words += ", ";
    words += known.word;
  }
  return words;
}

/* Whether a printf format prints one value of the type, in at most `width` characters
 * as far as the format alone can show. */
bool format_fits(std::string_view format, FieldType type, int width) {
  if (format.size() < 2 || format.front() != '%') return false;
  const char conversion = format.back();
  std::string_view middle = format.substr(1, format.size() - 2);
  if (!middle.empty() && middle.front() == '-') middle.remove_prefix(1);
  const std::size_t point = middle.find('.');
  std::int64_t stated = width, decimals = 0;
  const auto digits = [](std::string_view text, std::int64_t &value) {
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos &&
           parse_integer(text, value);
  };
  if (!middle.substr(0, point).empty() && !digits(middle.substr(0, point), stated)) {
    return false;
  }
  if (point != middle.npos &&
      (!digits(middle.substr(point + 1), decimals) || decimals > 30)) {
    return false;
  }
  if (stated > width) return false;
  switch (type) {
    case FieldType::kInteger:
    case FieldType::kYearday:
      return conversion == 'd' && point == middle.npos;
    case FieldType::kText:
      return conversion == 's' && point == middle.npos;
    case FieldType::kPointer:
      return conversion == 'p' && point == middle.npos;
    default:
      return conversion == 'f' || conversion == 'e' || conversion == 'g';
  }
}

}  // namespace

bool SchemaReader::refuse(const std::string &where, const std::string &cause) {
  return fail("Schema::load", "%s: %s%s%s", source_.c_str(), where.c_str(),
              where.empty() ? "" : ": ", cause.c_str());
}

std::shared_ptr<const Schema> SchemaReader::read(const std::string &text) {
  if (text.size() > kSchemaMaxBytes) {
    refuse("", "larger than a schema may be");
    return nullptr;
  }
  Pf *compiled = nullptr;
  if (pfcompile(text.c_str(), &compiled) != 0) {
    refuse("", "is not a parameter file");
    return nullptr;
  }
  const PfOwner tree(compiled);
  text_ = text;
  schema_ = std::make_shared<Schema>();
  if (!read_tree(tree.get())) schema_.reset();
  return schema_;
}

bool SchemaReader::read_tree(Pf *tree) {
  const char *name = pfget_string(tree, "name");
  if (name == nullptr || *name == '\0') return refuse("", "has no name");
  schema_->name_ = name;
  if (const char *text = pfget_string(tree, "description"))
    schema_->description_ = text;

  Pf *tables = sub_tree(tree, "tables", PFARR);
  if (tables == nullptr) return refuse("", "has no tables &Arr");
  const TblPtr names(pfkeys_in_order(tables));
  const long count = counttbl(names.get());
  if (count == 0) return refuse("", "has no tables");
  if (count > kSchemaMaxTables) return refuse("", "has too many tables");
  for (long i = 0; i < count; ++i) {
    const char *table = text_item(names.get(), i);
    Pf *entry = sub_tree(tables, table, PFARR);
    if (entry == nullptr) return refuse(table, "is not an &Arr");
    if (!read_table(table, entry)) return false;
  }
  return check_foreign() && read_counters(tree);
}

bool SchemaReader::read_table(const char *name, Pf *tree) {
  if (!is_name(name)) return refuse(name, "is not a name for a table");
  Relation relation;
  relation.name = name;
  const TblPtr lines(pfget_tbl(tree, "fields"));
  const long count = counttbl(lines.get());
  if (count == 0) return refuse(name, "has no fields &Tbl");
  if (count > kSchemaMaxFields) return refuse(name, "has too many fields");
  for (long i = 0; i < count; ++i) {
    const char *line = text_item(lines.get(), i);
    if (line == nullptr) return refuse(name, "a field is not a line of text");
    if (!read_field(line, relation)) return false;
  }
  if (!read_keys(tree, relation)) return false;
  schema_->relations_.push_back(std::move(relation));
  return true;
}

/* " in line 12" for a line of a table's fields; "" when the line cannot be found, as
 * when the parameter file writes it in another way. */
std::string SchemaReader::line_number(const Relation &relation,
                                      const char *line) const {
  const std::string_view wanted = trimmed(line);
  bool in_table = false;
  int number = 0;
  for (std::size_t from = 0; from < text_.size();) {
    const std::size_t end = std::min(text_.find('\n', from), text_.size());
    std::string_view text = trimmed(std::string_view(text_).substr(from, end - from));
    from = end + 1;
    ++number;
    if (in_table && text == wanted) return " in line " + std::to_string(number);
    std::string_view rest = text;
    in_table =
        in_table || (next_word(rest) == relation.name && rest.starts_with("&Arr"));
  }
  return "";
}

bool SchemaReader::read_field(const char *line, Relation &relation) {
  std::string_view rest = line;
  const std::string name(next_word(rest));
  const std::string where = relation.name + "." + name;
  if (!is_name(name)) return refuse(where, "is not a name for a field");
  if (relation.find(name) != nullptr) return refuse(where, "is there twice");
  Field field;
  field.name = name;
  const std::string type(next_word(rest));
  if (!type_of(type, field.type)) {
    return refuse(where, "unknown type \"" + type + "\"" + line_number(relation, line) +
                             "; the types are " + known_types());
  }
  std::int64_t width = 0;
  if (!parse_integer(next_word(rest), width) || width < 1 || width > kMaxFieldWidth) {
    return refuse(where, format_text("the width must be 1 to %d", kMaxFieldWidth));
  }
  field.width = static_cast<int>(width);
  field.format = next_word(rest);
  if (!format_fits(field.format, field.type, field.width)) {
    return refuse(where,
                  "the format " + field.format + " does not go with type and width");
  }
  field.null_text = next_word(rest);
  if (field.null_text.empty() ||
      field.null_text.size() > static_cast<std::size_t>(width)) {
    return refuse(where, "the null is missing or wider than the field");
  }
  field.meaning = rest;

  switch (field.type) {
    case FieldType::kText:
      break;
    case FieldType::kPointer:
      field.null_integer = 0;
      break;
    case FieldType::kDate:
      read_load_date(field.null_text, -9999999999.999, field.null_real);
      break;
    case FieldType::kInteger:
    case FieldType::kYearday:
      if (!parse_integer(field.null_text, field.null_integer)) {
        return refuse(where, "the null is not an integer");
      }
      field.null_real = static_cast<double>(field.null_integer);
      break;
    default:
      if (!parse_real(field.null_text, field.null_real)) {
        return refuse(where, "the null is not a number");
      }
  }

  field.offset = relation.fields.empty() ? 0 : relation.width + 1;
  relation.width = field.offset + field.width;
  if (relation.width > kMaxRecordWidth) return refuse(where, "the record is too long");
  relation.fields.push_back(std::move(field));
  return true;
}

bool SchemaReader::read_key(const char *text, const Relation &relation, Key &key) {
  key = words_of(text);
  for (const std::string &item : key) {
    const std::size_t range = item.find("::");
    const std::string low = item.substr(0, range);
    const std::string high = range == item.npos ? low : item.substr(range + 2);
    for (const std::string &field : {low, high}) {
      if (relation.find(field) == nullptr) {
        return refuse(relation.name,
                      "a key names " + field + ", which is not a field of it");
      }
    }
  }
  return true;
}

bool SchemaReader::read_keys(Pf *tree, Relation &relation) {
  if (const char *text = pfget_string(tree, "primary")) {
    if (!read_key(text, relation, relation.primary)) return false;
  }
  const TblPtr alternate(pfget_tbl(tree, "alternate"));
  for (long i = 0; i < counttbl(alternate.get()); ++i) {
    const char *text = text_item(alternate.get(), i);
    Key key;
    if (text == nullptr || !read_key(text, relation, key)) return false;
    relation.alternate.push_back(std::move(key));
  }
  const TblPtr foreign(pfget_tbl(tree, "foreign"));
  for (long i = 0; i < counttbl(foreign.get()); ++i) {
    const char *line = text_item(foreign.get(), i);
    if (line == nullptr || !read_foreign(line, relation)) return false;
  }
  if (const char *id = pfget_string(tree, "id")) {
    if (relation.find(id) == nullptr) {
      return refuse(relation.name,
                    std::string("the id ") + id + " is not a field of it");
    }
    relation.id_field = id;
  }
  return true;
}

bool SchemaReader::read_foreign(const char *line, Relation &relation) {
  const std::vector<std::string> words = words_of(line);
  const std::size_t point = words.size() == 2 ? words[1].find('.') : std::string::npos;
  if (point == std::string::npos || relation.find(words[0]) == nullptr) {
    return refuse(relation.name, std::string("the foreign key \"") + line +
                                     "\" is not a field of it and table.field");
  }
  relation.foreign.push_back(
      {words[0], words[1].substr(0, point), words[1].substr(point + 1)});
  return true;
}

bool SchemaReader::check_foreign() {
  for (const Relation &relation : schema_->relations_) {
    for (const ForeignKey &key : relation.foreign) {
      const Relation *target = schema_->find(key.table);
      if (target == nullptr || target->find(key.table_field) == nullptr) {
        return refuse(
            relation.name + "." + key.field,
            "names " + key.table + "." + key.table_field + ", which does not exist");
      }
    }
  }
  return true;
}

bool SchemaReader::read_counters(Pf *tree) {
  Pf *counters = sub_tree(tree, "counters", PFARR);
  if (counters == nullptr) return true;
  const TblPtr names(pfkeys_in_order(counters));
  for (long i = 0; i < counttbl(names.get()); ++i) {
    const char *name = text_item(names.get(), i);
    const char *fields = pfget_string(counters, name);
    if (fields == nullptr) return refuse(name, "a counter is a list of fields");
    schema_->counters_.push_back({name, words_of(fields)});
  }
  return true;
}

}  // namespace ksutil::db
