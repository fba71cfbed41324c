#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "events/kseventview.h"
#include "platform/clock/clock.h"
#include "platform/stock/text.h"
#include "tools/common/rows.h"
#include "tools/ksevents/commands.h"

namespace ksutil::tools {
namespace {

struct ViewOptions {
  std::string database;
  long evid = -1;
  bool best = false, json = false;
};

using Json = nlohmann::ordered_json;

/* A list of records as a table of text or an array of JSON. */
struct Sheet {
  std::vector<Column> columns;
  std::vector<std::vector<std::string>> rows;

  void print(const std::string &heading) const {
    if (rows.empty()) return;
    std::printf("\n%s\n", heading.c_str());
    Rows table(columns, Form::kText);
    for (const auto &row : rows) table.add(row);
    table.print();
  }

  Json json() const {
    Json array = Json::array();
    for (const auto &row : rows) {
      Json object;
      for (std::size_t i = 0; i < columns.size(); i++) {
        const std::string &cell = row[i];
        if (columns[i].number) {
          object[columns[i].name] = json_number(cell);
        } else {
          object[columns[i].name] = cell.empty() ? Json() : Json(cell);
        }
      }
      array.push_back(object);
    }
    return array;
  }
};

template <class Record>
std::vector<Record *> records(Tbl *list) {
  std::vector<Record *> found;
  for (long i = 0; i < counttbl(list); i++) {
    found.push_back(static_cast<Record *>(gettbl(list, i)));
  }
  return found;
}

std::string value(int decimals, double number) {
  return number == -999.0 ? "" : format_text("%.*f", decimals, number);
}

std::string when(double time) {
  return time <= -9999999999.0 ? "" : time_text(time, 3);
}

/* Reads an event through a view and shows it; failures are in the error register. */
class Viewer {
 public:
  explicit Viewer(const ViewOptions &options) : options_(options), view_(nullptr) {}
  ~Viewer() { view_.freeEvent(event_); }
  Viewer(const Viewer &) = delete;
  Viewer &operator=(const Viewer &) = delete;

  int run() {
    if (view_.configure("dbname", options_.database.c_str(),
                        static_cast<char *>(nullptr)) < 0) {
      return kFailure;
    }
    event_ = view_.findEvid(options_.evid);
    if (event_ == nullptr) {
      complain("there is no event with evid " + std::to_string(options_.evid) +
               " that can be read");
      return kFailure;
    }
    if (view_.refreshAssociations(event_) < 0) return kFailure;
    for (KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
      if (view_.refreshDetections(origin, options_.best ? 1 : 0) < 0) return kFailure;
    }
    options_.json ? print_json() : print_text();
    return good_ ? kOk : kFailure;
  }

 private:
  Sheet origins() {
    Sheet sheet{{{"orid", true, true},
                 {"preferred", true, true},
                 {"time"},
                 {"lat", true, true},
                 {"lon", true, true},
                 {"depth", true, true},
                 {"magnitude", true, true},
                 {"magtype"},
                 {"associations", true, true},
                 {"detections", true, true}},
                {}};
    for (const KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
      sheet.rows.push_back(
          {std::to_string(origin->orid), std::to_string(origin->preferred),
           when(origin->time), value(4, origin->lat), value(4, origin->lon),
           value(1, origin->depth), value(2, origin->magnitude), origin->magtype,
           std::to_string(counttbl(origin->associations)),
           std::to_string(counttbl(origin->detections))});
    }
    return sheet;
  }

  Sheet associations(KSEVOrigin &origin) {
    Sheet sheet{{{"sta"},
                 {"phase"},
                 {"time"},
                 {"residual", true, true},
                 {"defining", true, true},
                 {"distance", true, true},
                 {"azimuth", true, true}},
                {}};
    for (const KSEVAssociation *row : records<KSEVAssociation>(origin.associations)) {
      KSEVOriginStation unknown, *station = &unknown;
      if (view_.lookupStation(&origin, row->sta, origin.time, &station) < 0) {
        good_ = false;
      }
      sheet.rows.push_back({row->sta, row->phase, when(row->time),
                            value(3, row->timeres), std::to_string(row->defining),
                            value(3, station->delta), value(1, station->azimuth)});
    }
    return sheet;
  }

  static Sheet detections(const KSEVOrigin &origin) {
    Sheet sheet{{{"sta"},
                 {"chan"},
                 {"state"},
                 {"time"},
                 {"presidual", true, true},
                 {"sresidual", true, true},
                 {"distance", true, true},
                 {"azimuth", true, true}},
                {}};
    for (const KSEVDetection *row : records<KSEVDetection>(origin.detections)) {
      sheet.rows.push_back({row->sta, row->chan, row->state, when(row->time),
                            value(3, row->presidual), value(3, row->sresidual),
                            value(3, row->delta), value(1, row->azimuth)});
    }
    return sheet;
  }

  void print_text() {
    const long origins_of_event = counttbl(event_->origins);
    std::printf("Event %ld: %ld %s", options_.evid, origins_of_event,
                origins_of_event == 1 ? "origin" : "origins");
    if (event_->magnitude != -999.0) {
      std::printf(", %s %s", event_->magtype, value(2, event_->magnitude).c_str());
    }
    std::printf("\n");
    origins().print("Origins");
    for (KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
      associations(*origin).print("Associations of origin " +
                                  std::to_string(origin->orid));
      detections(*origin).print("Detections around origin " +
                                std::to_string(origin->orid));
    }
  }

  void print_json() {
    Json event;
    event["evid"] = event_->evid;
    event["prefor"] = event_->prefor;
    event["magnitude"] = json_number(value(2, event_->magnitude));
    event["magtype"] = *event_->magtype == '\0' ? Json() : Json(event_->magtype);
    event["origins"] = origins().json();
    std::size_t i = 0;
    for (KSEVOrigin *origin : records<KSEVOrigin>(event_->origins)) {
      Json &object = event["origins"][i++];
      object["associations"] = associations(*origin).json();
      object["detections"] = detections(*origin).json();
    }
    std::puts(event.dump(1, ' ', false, Json::error_handler_t::replace).c_str());
  }

  const ViewOptions &options_;
  KSEventView view_;
  KSEVEvent *event_ = nullptr;
  bool good_ = true;  // whether every station could be looked up
};

int view(const ViewOptions &options) { return Viewer(options).run(); }

}  // namespace

void add_view(CLI::App &app, Action &action) {
  auto options = std::make_shared<ViewOptions>();
  CLI::App *command = app.add_subcommand(
      "view",
      "Shows an event with the residuals, distances and azimuths of its associations\n"
      "and detections");
  command->add_option("evid", options->evid)->required();
  command->add_option("database", options->database, "path/name")->required();
  command->add_flag("--best", options->best,
                    "Only the detection of each station that fits best");
  command->add_flag("--json", options->json, "One object instead of tables");
  command->callback(
      [options, &action] { action = [options] { return view(*options); }; });
}

}  // namespace ksutil::tools
