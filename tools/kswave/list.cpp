/* list: kswave list. */
#include <algorithm>
#include <string>
#include <vector>

#include "tools/common/cells.h"
#include "tools/common/rows.h"
#include "tools/kswave/commands.h"
#include "tools/kswave/selection.h"
#include "tools/plot/picture_options.h"

namespace ksutil::tools {
namespace {

struct ListOptions {
  Selection selection;
  plot::PictureOptions picture;
  Form form = Form::kText;
};

/* -1 and -999 stand for nulls. */
std::string known_cell(double value, double null) {
  return value == null ? "" : shortest_cell(value);
}

/* The table has what fits a terminal, CSV and JSON have all. */
Rows table_of(const ChannelSet &set, Form form) {
  const bool all = form != Form::kText;
  std::vector<Column> columns{{"sta"}, {"chan"}};
  if (all) {
    columns.insert(columns.end(), {{"net"}, {"seedsta"}, {"seedchan"}, {"loc"}});
  }
  columns.insert(columns.end(), {{"samprate", true, true, "Hz", "rate"},
                                 {"nsegments", true, true, "", "segs"},
                                 {"nsamp", true, true},
                                 {"time"},
                                 {"endtime"}});
  if (all) {
    for (const char *const name :
         {"lat", "lon", "elev", "edepth", "dnorth", "deast", "hang", "vang", "calib",
          "calper", "calratio", "tshift"}) {
      columns.push_back({name, true, true});
    }
    columns.insert(columns.end(),
                   {{"segtype"}, {"instype"}, {"rsptype"}, {"response"}});
  }
  columns.push_back({"missing"});
  Rows rows(columns, form);
  for (int i = 0; i < set.count(); ++i) {
    const ksdsseis_channel &each = set.channel(i);
    std::vector<std::string> cells{each.sta, each.chan};
    if (all) {
      cells.insert(cells.end(), {each.net, each.seedsta, each.seedchan, each.loc});
    }
    /* To the second: the table is wide. */
    const auto time = [&](double epoch) {
      return all ? time_cell(epoch) : time_cell(epoch).substr(0, 19);
    };
    cells.insert(cells.end(),
                 {shortest_cell(each.samprate), std::to_string(each.nsegments),
                  std::to_string(each.nsamp), time(each.time), time(each.endtime)});
    if (all) {
      cells.insert(cells.end(),
                   {known_cell(each.lat, -999.0), known_cell(each.lon, -999.0),
                    known_cell(each.elev, -999.0), known_cell(each.edepth, -1.0),
                    shortest_cell(each.dnorth), shortest_cell(each.deast),
                    known_cell(each.hang, -1.0), known_cell(each.vang, -1.0),
                    known_cell(each.calib, 0.0), known_cell(each.calper, -1.0),
                    shortest_cell(each.calratio), shortest_cell(each.tshift),
                    each.segtype, each.instype, each.rsptype, each.response});
    }
    cells.emplace_back(each.missing_text);
    rows.add(std::move(cells));
  }
  return rows;
}

/* Some minutes among years are still seen. */
void widen_short_bars(plot::Line &line, double least) {
  for (std::size_t i = 0; i + 1 < line.x.size(); i += 3) {
    const double lacking = least - (line.x[i + 1] - line.x[i]);
    if (lacking <= 0.0) continue;
    line.x[i] -= lacking / 2;
    line.x[i + 1] += lacking / 2;
  }
}

/* When there are samples of each channel: a bar for each stretch without gaps. */
plot::Panel coverage_panel(const ChannelSet &set) {
  plot::Panel panel;
  panel.x.scale = plot::Scale::kTime;
  panel.y.reverse = true;
  panel.y.low = -0.7;
  panel.y.high = set.count() - 0.3;
  panel.height = std::clamp(18.0 * set.count() + 12.0, 60.0, 6000.0);
  double low = 1e300, high = -1e300;
  for (int i = 0; i < set.count(); ++i) {
    const ksdsseis_channel &each = set.channel(i);
    low = std::min(low, each.time);
    high = std::max(high, each.endtime);
    panel.y.names.push_back({static_cast<double>(i), channel_name(each)});
    plot::Line line;
    line.width = 9.0;
    line.colour = plot::Colour{0.16, 0.42, 0.64, 1.0};
    double reached = -1e300;
    for (int j = 0; j < each.nsegments; ++j) {
      double time = 0.0, endtime = 0.0, samprate = 1.0;
      ksdsseis_get_segment(set.get(), i, j, &time, &endtime, &samprate);
      /* Rows that follow each other are one bar. */
      if (!line.x.empty() && time - reached <= 1.5 / samprate) {
        line.x.back() = std::max(line.x.back(), endtime);
      } else {
        if (!line.x.empty()) {
          line.x.push_back(time);
          line.y.push_back(plot::kUnset);
        }
        line.x.insert(line.x.end(), {time, endtime});
        line.y.insert(line.y.end(), {static_cast<double>(i), static_cast<double>(i)});
      }
      reached = std::max(reached, endtime);
    }
    panel.lines.push_back(std::move(line));
  }
  const double margin = high > low ? 0.02 * (high - low) : 1.0;
  for (plot::Line &line : panel.lines) widen_short_bars(line, 0.15 * margin);
  panel.x.low = low - margin;
  panel.x.high = high + margin;
  return panel;
}

int list(const ListOptions &options) {
  const ChannelSet set(options.selection, "r");
  if (!set.good()) return kFailure;
  if (options.picture.path.empty()) {
    table_of(set, options.form).print();
    return set.report();
  }
  plot::Figure figure;
  figure.panels.push_back(coverage_panel(set));
  if (plot::write_picture(std::move(figure), options.picture) != 0) return kFailure;
  return set.report();
}

void describe_list(CLI::App &command, ListOptions &options) {
  add_selection(command, options.selection);
  add_form_options(command, options.form);
  plot::add_picture_options(command, options.picture);
  command.get_option("--output")
      ->required(false)
      ->description("Draw a picture of when there are samples, .svg, .png or .pdf");
}

}  // namespace

Command list_command() {
  return make_command<ListOptions>(
      "list", "Lists channels with their waveforms and metadata",
      {"kswave list data/mlr/mlr", "kswave list -o coverage.svg data/mlr/mlr"},
      describe_list, list);
}

}  // namespace ksutil::tools
