/* Tables of a database whose fields hold anything, under an event server, the checks of
 * `ksdb verify` and the exports.  A line "TABLE" or "TABLE FIELD=TEXT FIELD=TEXT ...", with
 * tabs between them, is a row, null where no field is given.  A line "=" ends the first
 * state of the database: the server must then follow to the next one.
 * Words: schemas */
#include <map>
#include <string>

#include "events/evclient.h"
#include "events/evserver.h"
#include "tests/fuzz/import_subject.h"

namespace ksutil::fuzz {
namespace {

constexpr std::size_t kMostRows = 200;

const db::Schema &schema() {
  static const auto loaded = db::Schema::load("css3.0");
  require(loaded != nullptr, "the schema is there");
  return *loaded;
}

std::string_view cut(std::string_view &text, char end) {
  const std::size_t at = text.find(end);
  const std::string_view part = text.substr(0, at);
  text.remove_prefix(at == text.npos ? text.size() : at + 1);
  return part;
}

/* Puts "FIELD=TEXT" into a row, whatever the text is. */
void put_field(const db::Relation &layout, std::string_view assignment,
               std::string &row) {
  const db::Field *const field = layout.find(cut(assignment, '='));
  if (field == nullptr) return;
  const auto width = static_cast<std::size_t>(field->width);
  std::string text(assignment.substr(0, width));
  const std::string blanks(width - text.size(), ' ');
  text = field->type == db::FieldType::kText ? text + blanks : blanks + text;
  row.replace(static_cast<std::size_t>(field->offset), width, text);
}

using Tables = std::map<std::string, std::string, std::less<>>;

/* The rows up to a line "=" or the end, by table. */
Tables read_tables(std::string_view &input) {
  Tables tables;
  for (std::size_t rows = 0; !input.empty(); rows++) {
    std::string_view line = cut(input, '\n');
    if (line == "=") break;
    const db::Relation *const layout = schema().find(cut(line, '\t'));
    if (layout == nullptr || rows >= kMostRows) continue;
    std::string row = db::null_record(*layout);
    while (!line.empty()) put_field(*layout, cut(line, '\t'), row);
    tables[layout->name] += row;
  }
  return tables;
}

/* Puts the tables in the place of those that are there. */
void write_tables(const std::string &path, const Tables &tables, const Tables &before) {
  for (const auto &[name, rows] : before) {
    if (!tables.contains(name)) std::filesystem::remove(path + "." + name);
  }
  for (const auto &[name, rows] : tables) {
    test::write_file(path + ".new", rows);
    std::filesystem::rename(path + ".new", path + "." + name);
  }
}

void use_server(EVServer &server) {
  server.grabEventsLock();
  const auto list = server.eventsList();
  server.releaseEventsLock();
  for (const EVEvent &listed : *list) {
    EVEvent event;
    server.getExpandedEvent(nullptr, static_cast<long>(listed.evid), event);
  }
}

/* What the server shows must be what another one reads now. */
void require_same_as_fresh(EVServer &server, const std::string &path) {
  EVServer fresh(path, 0, 0, -1);
  server.grabEventsLock();
  const Table<EVEvent> events = *server.eventsList();
  server.releaseEventsLock();
  require(fresh.isEqual(&events) == 1, "a server follows the tables");
  for (const EVEvent &listed : events) {
    const auto evid = static_cast<long>(listed.evid);
    EVEvent held, expected;
    if (server.containsExpandedEvent(evid, held) != 1) continue;
    require(fresh.getExpandedEvent(nullptr, evid, expected) == 0 &&
                fresh.isEqual(&held, &expected) == 1,
            "a server follows the rows of an event");
  }
}

void export_all(const std::string &path) {
  const auto store = open_store(path);
  for (const exchange::Format *format : exchange::formats()) {
    test::KeptText kept;
    if (format->open_station_writer != nullptr) {
      const auto source = exchange::StationSource::open(*store);
      require(source != nullptr, "stations can be exported");
      write_stations(*source, *format, kept);
    }
    if (format->open_writer == nullptr) continue;
    std::string problem;
    const auto source = exchange::EventSource::open(*store, {}, problem);
    require(source != nullptr, "events can be exported");
    write_events(*source, *format, kept);
    if (format->shows_its_end && format->open_reader != nullptr) {
      count_written(*format, kept.text);
    }
  }
}

}  // namespace

void read_input(std::string_view input) {
  static const Databases databases;
  const std::string path = databases.make("one");
  const Tables first = read_tables(input);
  write_tables(path, first, {});
  EVServer server(path, 0, 0, -1);
  use_server(server);
  if (!input.empty()) {
    write_tables(path, read_tables(input), first);
    EVClient client(&server);
    require(client.refreshEvents(1) == 0, "a server looks at its tables");
    require_same_as_fresh(server, path);
    server.deregisterClient(&client);
  }
  const tools::OpenDatabase database(path, "r");
  tools::Problems problems(5);
  require(bool(database), "a database can be opened");
  tools::verify_database(database, true, problems);
  export_all(path);
}

}  // namespace ksutil::fuzz
