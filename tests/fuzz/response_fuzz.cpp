/* Instrument responses: what is read can be evaluated, and comes back from its own file.
 * Words: waveforms/response tests/fuzz/corpus/response */
#include <unistd.h>

#include <cmath>
#include <string>

#include "tests/fuzz/subject.h"
#include "waveforms/response.h"

void ksutil::fuzz::read_input(std::string_view input) {
  Response response;
  std::string problem;
  if (!read_response_file(file_of(input), response, problem)) {
    require(!problem.empty(), "a refusal has a reason");
    return;
  }
  require(!response.stages.empty(), "a response has stages");
  const std::complex<double> value = response.evaluate(1.25);
  const std::string path = "/tmp/ksutil-fuzz-response-" + std::to_string(getpid());
  if (!write_response_file(path, response, problem)) return;
  Response back;
  require(read_response_file(path, back, problem), "a written response can be read");
  unlink(path.c_str());
  const double size = std::abs(value);
  /* Beyond these sizes rounding decides. */
  if (!(size > 1e-200 && size < 1e200)) return;
  require(back.stages.size() <= 2 * response.stages.size(), "no stages are invented");
}
