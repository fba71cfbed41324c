#include <cstdio>
#include <memory>
#include <string>

#include "platform/db/schema.h"
#include "platform/stock/nearest_name.h"
#include "tools/common/rows.h"
#include "tools/ksdb/commands.h"

namespace ksutil::tools {
namespace {

struct SchemaOptions {
  std::string schema, table;
  Form form = Form::kText;
};

const char *type_name(db::FieldType type) {
  switch (type) {
    case db::FieldType::kInteger:
      return "integer";
    case db::FieldType::kReal:
      return "real";
    case db::FieldType::kText:
      return "text";
    case db::FieldType::kTime:
      return "time";
    case db::FieldType::kDate:
      return "date";
    case db::FieldType::kYearday:
      return "yearday";
    case db::FieldType::kPointer:
      return "pointer";
  }
  return "";
}

std::string key_text(const db::Key &key) {
  std::string text;
  for (const std::string &part : key) text += (text.empty() ? "" : ", ") + part;
  return text;
}

void list_schemas(Form form) {
  Rows rows({{"schema"}, {"tables", true, true}, {"description"}}, form);
  for (const std::string &name : db::builtin_schemas()) {
    const auto schema = db::Schema::load(name);
    if (schema == nullptr) continue;
    rows.add({name, std::to_string(schema->relations().size()), schema->description()});
  }
  rows.print();
}

void list_tables(const db::Schema &schema, Form form) {
  Rows rows({{"table"},
             {"fields", true, true},
             {"width", true, true, "bytes"},
             {"id"},
             {"primary key"}},
            form);
  for (const db::Relation &relation : schema.relations()) {
    rows.add({relation.name, std::to_string(relation.fields.size()),
              std::to_string(relation.width), relation.id_field,
              key_text(relation.primary)});
  }
  rows.print();
}

void list_fields(const db::Relation &relation, Form form) {
  Rows rows({{"field"},
             {"type"},
             {"first", true, true},
             {"width", true, true, "bytes"},
             {"format"},
             {"null"},
             {"meaning"}},
            form);
  for (const db::Field &field : relation.fields) {
    rows.add({field.name, type_name(field.type), std::to_string(field.offset + 1),
              std::to_string(field.width), field.format, field.null_text,
              field.meaning});
  }
  rows.print();
}

int show(const SchemaOptions &options) {
  if (options.schema.empty()) {
    list_schemas(options.form);
    return kOk;
  }
  const auto schema = db::Schema::load(options.schema);
  if (schema == nullptr) return kFailure;
  if (options.table.empty()) {
    list_tables(*schema, options.form);
    return kOk;
  }
  const db::Relation *relation = schema->find(options.table);
  if (relation == nullptr) {
    std::vector<std::string_view> names;
    for (const db::Relation &known : schema->relations()) names.push_back(known.name);
    complain("schema " + options.schema + " has no table " + options.table +
             nearest_hint(options.table, names));
    return kFailure;
  }
  list_fields(*relation, options.form);
  return kOk;
}

void describe_schema(CLI::App &command, SchemaOptions &options) {
  command.add_option("schema", options.schema, "css3.0, kbcore or another");
  command.add_option("table", options.table, "A table of the schema");
  add_form_options(command, options.form);
}

}  // namespace

Command schema_command() {
  return make_command<SchemaOptions>(
      "schema", "Shows the schemas, the tables of one, or the fields of a table",
      {"ksdb schema css3.0 origin", "ksdb schema", "ksdb schema --csv kbcore"},
      describe_schema, show);
}

}  // namespace ksutil::tools
