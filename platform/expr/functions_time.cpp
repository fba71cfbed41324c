#include "platform/clock/clock.h"
#include "platform/expr/internal/functions.h"

namespace ksutil::expr {

namespace {

/* The parts of a time of day and of the calendar. */
struct Calendar {
  int year = 0, doy = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0.0;

  explicit Calendar(const Call &call) {
    e2h(call.arguments[0]->real, &year, &doy, &hour, &minute, &second);
    month_day(year, doy, month, day);
  }
};

template <int Calendar::*part>
bool calendar_part(Call &call) {
  call.result.integer = Calendar(call).*part;
  return true;
}

bool second(Call &call) {
  call.result.real = Calendar(call).second;
  return true;
}

bool day_number(Call &call) {
  call.result.integer = yearday(call.arguments[0]->real);
  return true;
}

bool now(Call &call) {
  call.result.real = std_now();
  return true;
}

/* Nothing is left to do: the argument was converted to a time before the call. */
bool epoch(Call &call) {
  call.result.real = call.arguments[0]->real;
  return true;
}

bool time_to_text(Call &call) {
  return call.scratch.copy(time_text(call.arguments[0]->real), call.result);
}

bool date_to_text(Call &call) {
  return call.scratch.copy(time_text(call.arguments[0]->real, 0).substr(0, 10),
                           call.result);
}

constexpr Function kTimeFunctions[] = {
    general("now", "", 't', now, "the time of the evaluation", kVaries),
    general("epoch", "t", 't', epoch, "a date text or epoch seconds as a time"),
    general("strtime", "t", 's', time_to_text, "YYYY-MM-DDThh:mm:ss.mmm"),
    general("strdate", "t", 's', date_to_text, "YYYY-MM-DD"),
    general("yearday", "t", 'i', day_number, "the day as YYYYDDD"),
    general("year", "t", 'i', calendar_part<&Calendar::year>, "the year"),
    general("month", "t", 'i', calendar_part<&Calendar::month>, "1 to 12"),
    general("day", "t", 'i', calendar_part<&Calendar::day>, "the day of the month"),
    general("doy", "t", 'i', calendar_part<&Calendar::doy>, "the day of the year"),
    general("hour", "t", 'i', calendar_part<&Calendar::hour>, "0 to 23"),
    general("minute", "t", 'i', calendar_part<&Calendar::minute>, "0 to 59"),
    general("second", "t", 'r', second, "seconds of the minute with decimals")};

}  // namespace

std::span<const Function> time_functions() { return kTimeFunctions; }

}  // namespace ksutil::expr
