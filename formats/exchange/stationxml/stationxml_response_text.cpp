/* stationxml_response_text: writes the Response element. */
#include <cmath>
#include <string>

#include "formats/exchange/stationxml/stationxml_response.h"
#include "formats/exchange/text/value_text.h"

namespace ksutil::exchange {
namespace {

constexpr char kCounts[] = "COUNTS";

class ResponseWriter {
 public:
  ResponseWriter(const Channel &channel, XmlWriter &xml)
      : channel_(channel), xml_(xml) {}

  void write() {
    xml_.open("Response");
    write_sensitivity();
    if (channel_.response != nullptr) {
      const auto &stages = channel_.response->stages;
      for (std::size_t i = 0; i < stages.size(); i++) {
        write_stage(stages[i], i, i + 1 < stages.size() ? &stages[i + 1] : nullptr);
      }
    }
    xml_.close();
  }

 private:
  void number(const char *name, double value) {
    xml_.element(name, number_text(value));
  }

  void units(const char *name, const std::string &unit) {
    xml_.open(name);
    xml_.element("Name", unit);
    xml_.close();
  }

  void write_sensitivity() {
    const Response *response = channel_.response.get();
    double value = channel_.sensitivity, frequency = channel_.sensitivity_frequency;
    if (value == 0.0 && response != nullptr) {
      value = response->sensitivity;
      frequency = response->sensitivity_frequency;
    }
    if (value == 0.0) return;
    std::string input = channel_.input_unit, output = channel_.output_unit;
    if (input.empty() && response != nullptr) input = response->input_unit();
    if (output.empty() && response != nullptr) output = response->output_unit();
    xml_.open("InstrumentSensitivity");
    number("Value", value);
    number("Frequency", frequency);
    units("InputUnits", input.empty() ? "NM" : input);
    units("OutputUnits", output.empty() ? kCounts : output);
    xml_.close();
  }

  void begin_filter(const char *name, const ResponseStage &stage,
                    const ResponseStage *next) {
    std::string input = stage.input_unit, output = stage.output_unit;
    if (input.empty()) input = unit_.empty() ? "NM" : unit_;
    if (output.empty()) {
      const bool analog = !stage.decimation && next != nullptr;
      output = next != nullptr && !next->input_unit.empty() ? next->input_unit
               : analog                                     ? "V"
                                                            : kCounts;
    }
    xml_.open(name);
    units("InputUnits", input);
    units("OutputUnits", output);
    unit_ = output;
  }

  void write_roots(const char *name, const std::vector<std::complex<double>> &roots,
                   int &number_of_root) {
    for (const std::complex<double> &root : roots) {
      xml_.open(name);
      xml_.attribute("number", std::to_string(number_of_root++));
      number("Real", root.real());
      number("Imaginary", root.imag());
      xml_.close();
    }
  }

  void write_filter(const PoleZeroFilter &filter) {
    using Domain = PoleZeroFilter::Domain;
    xml_.element("PzTransferFunctionType",
                 filter.domain == Domain::kRadians ? "LAPLACE (RADIANS/SECOND)"
                 : filter.domain == Domain::kHertz ? "LAPLACE (HERTZ)"
                                                   : "DIGITAL (Z-TRANSFORM)");
    number("NormalizationFactor", filter.a0);
    number("NormalizationFrequency", filter.a0_frequency);
    int number_of_root = 0;
    write_roots("Zero", filter.zeros, number_of_root);
    write_roots("Pole", filter.poles, number_of_root);
  }

  void write_filter(const CoefficientFilter &filter) {
    xml_.element("CfTransferFunctionType", "DIGITAL");
    for (const double value : filter.numerators) number("Numerator", value);
    for (const double value : filter.denominators) number("Denominator", value);
  }

  void write_filter(const TableFilter &filter) {
    for (const TableFilter::Row &row : filter.rows) {
      xml_.open("ResponseListElement");
      number("Frequency", row.frequency);
      number("Amplitude", row.amplitude);
      number("Phase", std::fabs(row.phase) > 360.0 ? std::remainder(row.phase, 360.0)
                                                   : row.phase);
      xml_.close();
    }
  }

  /* A stage of gain alone with a decimation or with units keeps them in a filter without
   * coefficients, as digitizers are written. */
  void write_stage(const ResponseStage &stage, std::size_t index,
                   const ResponseStage *next) {
    xml_.open("Stage");
    xml_.attribute("number", std::to_string(index + 1));
    if (const auto *poles = std::get_if<PoleZeroFilter>(&stage.filter)) {
      begin_filter("PolesZeros", stage, next);
      write_filter(*poles);
      xml_.close();
    } else if (const auto *digital = std::get_if<CoefficientFilter>(&stage.filter)) {
      begin_filter("Coefficients", stage, next);
      write_filter(*digital);
      xml_.close();
    } else if (const auto *table = std::get_if<TableFilter>(&stage.filter)) {
      begin_filter("ResponseList", stage, next);
      write_filter(*table);
      xml_.close();
    } else if (stage.decimation || !stage.input_unit.empty() ||
               !stage.output_unit.empty()) {
      begin_filter("Coefficients", stage, next);
      xml_.element("CfTransferFunctionType", "DIGITAL");
      xml_.close();
    }
    if (stage.decimation) write_decimation(*stage.decimation);
    xml_.open("StageGain");
    number("Value", stage.gain);
    number("Frequency", stage.gain_frequency);
    xml_.close();
    xml_.close();
  }

  void write_decimation(const Decimation &decimation) {
    xml_.open("Decimation");
    number("InputSampleRate", decimation.samprate);
    xml_.element("Factor", std::to_string(decimation.factor));
    xml_.element("Offset", std::to_string(decimation.offset));
    number("Delay", decimation.delay);
    number("Correction", decimation.correction);
    xml_.close();
  }

  const Channel &channel_;
  XmlWriter &xml_;
  std::string unit_;  // in which the last filter's output is
};

}  // namespace

void write_response(const Channel &channel, XmlWriter &xml) {
  if (channel.sensitivity == 0.0 && channel.response == nullptr) return;
  ResponseWriter(channel, xml).write();
}

}  // namespace ksutil::exchange
