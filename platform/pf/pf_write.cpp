#include "platform/pf/shared/pf_write.h"

#include "platform/pf/shared/pf_parse.h"
#include "platform/stock/text.h"

namespace ksutil {
namespace {

/* A byte order mark at the beginning of a text would be dropped by its reader. */
bool needs_quotes(std::string_view text, std::string_view special) {
  return text.empty() || !byte_order_mark(text).empty() || text.front() == '&' ||
         trimmed(text) != text || text.find_first_of(special) != text.npos;
}

void append_quoted(std::string &out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    switch (c) {
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      case '"':
      case '\\':
        out += '\\';
        [[fallthrough]];
      default:
        out += c;
    }
  }
  out += '"';
}

void append_text(std::string &out, std::string_view text, std::string_view special) {
  if (needs_quotes(text, special)) {
    append_quoted(out, text);
  } else {
    out += text;
  }
}

void append_name(std::string &out, std::string_view name) {
  append_text(out, name, "#{}\"\n\r\t ");
}

void append_value(std::string &out, std::string_view text) {
  append_text(out, text, "#{}\"\n\r");
}

void append_lines(std::string &out, const Pf &pf, std::size_t indent);

/* A value behind its name or indentation, with the line's end. */
void append_node(std::string &out, const Pf &node, std::size_t indent) {
  if (const std::string *text = node.text()) {
    append_value(out, *text);
  } else {
    out += node.kind() == PFTBL ? "&Tbl{\n" : "&Arr{\n";
    append_lines(out, node, indent + 2);
    out.append(indent, ' ');
    out += '}';
  }
  out += '\n';
}

void append_lines(std::string &out, const Pf &pf, std::size_t indent) {
  if (const PfArray *array = pf.array()) {
    for (const auto &entry : array->written()) {
      out.append(indent, ' ');
      append_name(out, entry->first);
      out += ' ';
      append_node(out, *entry->second, indent);
    }
  } else if (const PfTable *table = pf.table()) {
    for (const PfPtr &item : table->items()) {
      out.append(indent, ' ');
      append_node(out, *item, indent);
    }
  } else {
    append_node(out, pf, indent);
  }
}

}  // namespace

std::string written_name(std::string_view name) {
  std::string out;
  append_name(out, name);
  return out;
}

std::string written_value(std::string_view text) {
  std::string out;
  append_value(out, text);
  return out;
}

std::string written_quoted(std::string_view text) {
  std::string out;
  append_quoted(out, text);
  return out;
}

std::string write_pf(const Pf &pf) {
  std::string out;
  append_lines(out, pf, 0);
  return out;
}

}  // namespace ksutil
