#include "platform/expr/internal/convert.h"
#include "platform/expr/internal/functions.h"
#include "platform/traveltime/traveltime.h"

namespace ksutil::expr {

namespace {

using traveltime::Arrival;
using traveltime::Wave;

bool arrive(const Call &call, Wave wave, Arrival &arrival) {
  return traveltime::first_arrival(traveltime::Model::kIasp91, wave,
                                   call.arguments[0]->real, call.arguments[1]->real,
                                   arrival);
}

template <Wave wave>
bool travel_time(Call &call) {
  Arrival arrival;
  if (arrive(call, wave, arrival)) {
    call.result.real = arrival.time;
  } else {
    set_null(call.result);
  }
  return true;
}

template <Wave wave>
bool phase_name(Call &call) {
  Arrival arrival;
  if (arrive(call, wave, arrival)) {
    call.result.text = arrival.phase;
  } else {
    set_null(call.result);
  }
  return true;
}

constexpr Function kTravelFunctions[] = {
    general("ptime", "rr", 'r', travel_time<Wave::kP>,
            "seconds to the first P-type arrival: ptime(delta degrees, depth km)"),
    general("stime", "rr", 'r', travel_time<Wave::kS>,
            "seconds to the first S-type arrival"),
    general("pphase", "rr", 's', phase_name<Wave::kP>,
            "the phase of the first P-type arrival"),
    general("sphase", "rr", 's', phase_name<Wave::kS>,
            "the phase of the first S-type arrival")};

}  // namespace

std::span<const Function> travel_functions() { return kTravelFunctions; }

}  // namespace ksutil::expr
