/* Values that a database server gives for a row: a row of the table, or a reason why not;
 * and rows of tables on the way to the server. */
#include <array>
#include <cctype>
#include <memory>
#include <string>

#include "platform/db/postgresql/internal/pg_rows.h"
#include "tests/fuzz/subject.h"

namespace ksutil::fuzz {
namespace {

const db::PgRows &rows_of(char choice) {
  static const auto all = [] {
    const auto schema = db::Schema::load("css3.0");
    require(schema != nullptr, "the schema is there");
    std::array<std::unique_ptr<db::PgRows>, 4> made;
    const char *const names[] = {"origin", "wfdisc", "remark", "lastid"};
    for (std::size_t i = 0; i < made.size(); i++) {
      made[i] = std::make_unique<db::PgRows>(
          std::make_shared<const db::Relation>(*schema->find(names[i])));
    }
    return made;
  }();
  return *all[static_cast<unsigned char>(choice) % all.size()];
}

void read_answer(const db::PgRows &rows, std::string_view line) {
  std::string row(rows.length(), '\0'), again = row, cause;
  if (!rows.render(line, row.data(), cause)) {
    require(!cause.empty(), "a value that does not fit has a reason");
    return;
  }
  require(row.back() == '\n', "a row ends in a newline");
  for (const char c : std::string_view(row).substr(0, row.size() - 1)) {
    require(std::iscntrl(static_cast<unsigned char>(c)) == 0,
            "a row holds no control characters");
  }
  std::string back;
  require(rows.to_copy("fuzz", row, back), "a row can be written back");
  back.pop_back();
  require(rows.render(back, again.data(), cause), "what was written back is a row");
  /* Numbers may have come in another spelling, such as with zeros before them. */
  std::string once_more;
  require(rows.to_copy("fuzz", again, once_more) && once_more == back + "\n",
          "a row that was written back is the same");
}

void write_row(const db::PgRows &rows, std::string_view bytes) {
  std::string row(bytes.substr(0, rows.length() - 1)), line, values;
  row.resize(rows.length() - 1, ' ');
  if (!rows.to_copy("fuzz", row + "\n", line)) return;
  require(line.find('\n') == line.size() - 1, "a row is one line");
  const auto quote = [](std::string_view text) {
    return "'" + std::string(text) + "'";
  };
  rows.to_values(line, true, quote, values);
  require(values.front() == '(' && values.back() == ')', "a row is a list of values");
}

}  // namespace

void read_input(std::string_view input) {
  if (input.empty()) return;
  const db::PgRows &rows = rows_of(input.front());
  input.remove_prefix(1);
  read_answer(rows, input.substr(0, input.find('\n')));
  write_row(rows, input);
}

}  // namespace ksutil::fuzz
