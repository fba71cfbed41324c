/* channel_views: opens a view of the station channels that the user names. */
#ifndef CHANNEL_VIEWS_H
#define CHANNEL_VIEWS_H

#include <ksutil.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

struct FreeView {
  void operator()(ksscv *view) const { ksscv_close(view); }
  void operator()(ksscv_data *data) const { ksscv_free_data(data); }
};
using ViewPtr = std::unique_ptr<ksscv, FreeView>;
using DataPtr = std::unique_ptr<ksscv_data, FreeView>;

struct ChannelList {
  std::vector<std::string> stations, channels;

  std::size_t size() const { return stations.size(); }
  std::string name(std::size_t i) const { return stations[i] + ':' + channels[i]; }

  /* Reads "STA:CHAN,STA:CHAN"; false for another text. */
  bool parse(const std::string &text) {
    for (std::size_t begin = 0; begin <= text.size();) {
      const std::size_t end = std::min(text.find(',', begin), text.size());
      const std::string one = text.substr(begin, end - begin);
      const std::size_t colon = one.find(':');
      if (colon == std::string::npos) return false;
      stations.push_back(one.substr(0, colon));
      channels.push_back(one.substr(colon + 1));
      begin = end + 1;
    }
    return true;
  }
};

/* Null, with messages, when the database cannot be opened or viewed.  The callback may be
 * null; `context` must live longer than the view. */
inline ViewPtr open_view(const char *database, const ChannelList &list,
                         ksscv_callback callback, void *context) {
  Dbptr db;
  if (dbopen_noshare(database, "r", &db) != 0) {
    elog_complain(0, "cannot open %s.\n", database);
    return nullptr;
  }
  ViewPtr view(ksscv_open(db, nullptr));
  dbclose(db);  // the view has a handle of its own
  std::vector<const char *> stations, channels;
  for (std::size_t i = 0; i < list.size(); i++) {
    stations.push_back(list.stations[i].c_str());
    channels.push_back(list.channels[i].c_str());
  }
  if (view == nullptr || ksscv_set_callback(view.get(), callback, context) != 0 ||
      ksscv_set_channels(view.get(), static_cast<int>(list.size()), stations.data(),
                         channels.data()) != 0) {
    elog_complain(0, "cannot view the channels of %s.\n", database);
    return nullptr;
  }
  return view;
}

#endif
