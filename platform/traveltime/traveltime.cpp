#include "platform/traveltime/traveltime.h"

#include <memory>
#include <mutex>

#include "platform/traveltime/internal/earth_model.h"
#include "platform/traveltime/internal/first_arrival_table.h"

namespace ksutil::embedded {
extern const char iasp91_tvel[];
extern const char ak135_tvel[];
}  // namespace ksutil::embedded

namespace ksutil::traveltime {
namespace {

constexpr double kHighest = -10.0;  // km

/* Built by the first thread that needs it; never freed, because other threads may still
 * use it while the process ends. */
struct SharedTable {
  std::once_flag once;
  const FirstArrivalTable *table = nullptr;
};

const FirstArrivalTable *shared_table(Model model, Wave wave) {
  static SharedTable tables[2][2];
  const bool iasp91 = model == Model::kIasp91;
  SharedTable &shared = tables[iasp91 ? 0 : 1][wave == Wave::kP ? 0 : 1];
  std::call_once(shared.once, [&] {
    const auto earth =
        parse_tvel(iasp91 ? embedded::iasp91_tvel : embedded::ak135_tvel);
    if (earth) shared.table = new FirstArrivalTable(*earth, wave);
  });
  return shared.table;
}

}  // namespace

bool first_arrival(Model model, Wave wave, double delta, double depth,
                   Arrival &arrival) {
  /* Written so that NaN fails each test. */
  if (!(delta >= 0.0 && delta <= 360.0)) return false;
  if (!(depth >= kHighest && depth <= FirstArrivalTable::kDeepest)) return false;
  const FirstArrivalTable *table = shared_table(model, wave);
  if (table == nullptr) return false;
  arrival =
      table->find(delta <= 180.0 ? delta : 360.0 - delta, depth > 0.0 ? depth : 0.0);
  return true;
}

bool find_model(std::string_view name, Model &model) {
  if (name == "iasp91") {
    model = Model::kIasp91;
  } else if (name == "ak135") {
    model = Model::kAk135;
  } else {
    return false;
  }
  return true;
}

}  // namespace ksutil::traveltime
