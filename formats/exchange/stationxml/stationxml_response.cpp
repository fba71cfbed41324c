#include "formats/exchange/stationxml/stationxml_response.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <utility>

#include "platform/stock/text.h"

namespace ksutil::exchange {
namespace {

constexpr std::int64_t kMostFactor = 1'000'000'000;

/* Why a response has no place. */
struct NoPlace {
  std::string name;
};

std::vector<std::complex<double>> roots_of(const XmlElement &filter,
                                           std::string_view name) {
  std::vector<std::complex<double>> roots;
  filter.each(name, [&](const XmlElement &root) {
    roots.emplace_back(needed_number(root, "Real"), number_of(root, "Imaginary", 0.0));
  });
  return roots;
}

std::vector<double> numbers_of(const XmlElement &filter, std::string_view name) {
  std::vector<double> numbers;
  filter.each(name,
              [&](const XmlElement &number) { numbers.push_back(own_number(number)); });
  return numbers;
}

void read_poles(const XmlElement &element, ResponseStage &stage) {
  PoleZeroFilter filter;
  const std::string type = lowered(element.text_of("PzTransferFunctionType"));
  using Domain = PoleZeroFilter::Domain;
  if (type.starts_with("laplace") && type.find("hertz") != type.npos) {
    filter.domain = Domain::kHertz;
  } else if (type.starts_with("digital")) {
    filter.domain = Domain::kDigital;
  } else if (!type.empty() && !type.starts_with("laplace")) {
    throw ValueFault{element.line,
                     "PzTransferFunctionType '" + type + "' is not known"};
  }
  filter.a0 = number_of(element, "NormalizationFactor", 1.0);
  filter.a0_frequency = number_of(element, "NormalizationFrequency", 0.0);
  filter.zeros = roots_of(element, "Zero");
  filter.poles = roots_of(element, "Pole");
  if (filter.zeros.empty() && filter.poles.empty()) {
    stage.gain *= filter.a0;
  } else {
    stage.filter = std::move(filter);
  }
}

void read_coefficients(const XmlElement &element, ResponseStage &stage) {
  const std::string type = lowered(element.text_of("CfTransferFunctionType"));
  CoefficientFilter filter;
  filter.numerators = numbers_of(element, "Numerator");
  filter.denominators = numbers_of(element, "Denominator");
  if (filter.numerators.empty() && filter.denominators.empty()) return;
  if (type.starts_with("analog")) {
    throw NoPlace{"a response with an analog filter given by coefficients"};
  }
  if (filter.numerators.empty()) filter.numerators.push_back(1.0);
  stage.filter = std::move(filter);
}

/* Symmetric filters are given by their first half: odd ones with the middle. */
void read_fir(const XmlElement &element, ResponseStage &stage) {
  CoefficientFilter filter;
  filter.numerators = numbers_of(element, "NumeratorCoefficient");
  if (filter.numerators.empty()) return;
  const std::string symmetry = lowered(element.text_of("Symmetry"));
  const std::size_t given = filter.numerators.size();
  if (symmetry == "odd" || symmetry == "even") {
    for (std::size_t i = symmetry == "odd" ? given - 1 : given; i-- > 0;) {
      filter.numerators.push_back(filter.numerators[i]);
    }
  } else if (!symmetry.empty() && symmetry != "none") {
    throw ValueFault{element.line, "Symmetry '" + symmetry + "' is not known"};
  }
  stage.filter = std::move(filter);
}

void read_list(const XmlElement &element, ResponseStage &stage) {
  TableFilter filter;
  element.each("ResponseListElement", [&](const XmlElement &row) {
    filter.rows.push_back({needed_number(row, "Frequency"),
                           needed_number(row, "Amplitude"), needed_number(row, "Phase"),
                           0.0, 0.0});
  });
  if (filter.rows.empty()) return;
  const auto before = [](const TableFilter::Row &a, const TableFilter::Row &b) {
    return a.frequency < b.frequency;
  };
  std::stable_sort(filter.rows.begin(), filter.rows.end(), before);
  const auto same = [](const TableFilter::Row &a, const TableFilter::Row &b) {
    return a.frequency == b.frequency;
  };
  if (filter.rows.front().frequency < 0.0 ||
      std::adjacent_find(filter.rows.begin(), filter.rows.end(), same) !=
          filter.rows.end()) {
    throw ValueFault{element.line, "ResponseList has a frequency twice or below 0"};
  }
  stage.filter = std::move(filter);
}

int whole_number(const XmlElement &element, std::string_view path, int least,
                 int missing) {
  const double value = number_of(element, path, missing);
  if (value < least || value > static_cast<double>(kMostFactor)) {
    throw ValueFault{element.line, std::string(path) + " is out of range"};
  }
  return static_cast<int>(value);
}

Decimation read_decimation(const XmlElement &element) {
  Decimation decimation;
  decimation.samprate = needed_number(element, "InputSampleRate");
  if (decimation.samprate <= 0.0) {
    throw ValueFault{element.line, "InputSampleRate is not positive"};
  }
  decimation.factor = whole_number(element, "Factor", 1, 1);
  decimation.offset = whole_number(element, "Offset", 0, 0);
  decimation.delay = number_of(element, "Delay", 0.0);
  decimation.correction = number_of(element, "Correction", 0.0);
  return decimation;
}

bool is_digital(const ResponseStage &stage) {
  const auto *poles = std::get_if<PoleZeroFilter>(&stage.filter);
  return std::holds_alternative<CoefficientFilter>(stage.filter) ||
         (poles != nullptr && poles->domain == PoleZeroFilter::Domain::kDigital);
}

ResponseStage read_stage(const XmlElement &element) {
  ResponseStage stage;
  if (const XmlElement *gain = element.find("StageGain")) {
    stage.gain = needed_number(*gain, "Value");
    stage.gain_frequency = number_of(*gain, "Frequency", 0.0);
  }
  for (const XmlElement &filter : element.children) {
    void (*read)(const XmlElement &, ResponseStage &) = nullptr;
    if (filter.name == "PolesZeros") read = read_poles;
    if (filter.name == "Coefficients") read = read_coefficients;
    if (filter.name == "FIR") read = read_fir;
    if (filter.name == "ResponseList") read = read_list;
    if (filter.name == "Polynomial") throw NoPlace{"a response with a polynomial"};
    if (read == nullptr) continue;
    filter.used = true;
    stage.input_unit = unit_of(filter, "InputUnits");
    stage.output_unit = unit_of(filter, "OutputUnits");
    read(filter, stage);
  }
  if (const XmlElement *decimation = element.find("Decimation")) {
    stage.decimation = read_decimation(*decimation);
  }
  if (is_digital(stage) && !stage.decimation) {
    throw NoPlace{"a response with a digital filter without a sample rate"};
  }
  return stage;
}

/* The stages in the order of their numbers. */
std::vector<const XmlElement *> stages_of(const XmlElement &element) {
  std::vector<std::pair<std::int64_t, const XmlElement *>> numbered;
  element.each("Stage", [&](const XmlElement &stage) {
    std::int64_t number = static_cast<std::int64_t>(numbered.size() + 1);
    parse_integer(stage.attribute("number"), number);
    numbered.emplace_back(number, &stage);
  });
  std::stable_sort(numbered.begin(), numbered.end(),
                   [](const auto &a, const auto &b) { return a.first < b.first; });
  std::vector<const XmlElement *> stages;
  for (const auto &[number, stage] : numbered) stages.push_back(stage);
  return stages;
}

}  // namespace

void read_response(const XmlElement &element, Channel &channel,
                   UnplacedCounts &unplaced) {
  element.used = true;
  if (const XmlElement *whole = element.find("InstrumentSensitivity")) {
    channel.sensitivity = number_of(*whole, "Value", 0.0);
    channel.sensitivity_frequency = number_of(*whole, "Frequency", 0.0);
    channel.input_unit = unit_of(*whole, "InputUnits");
    channel.output_unit = unit_of(*whole, "OutputUnits");
  }
  auto response = std::make_shared<Response>();
  response->sensitivity = channel.sensitivity;
  response->sensitivity_frequency = channel.sensitivity_frequency;
  try {
    for (const XmlElement *stage : stages_of(element)) {
      response->stages.push_back(read_stage(*stage));
    }
  } catch (const NoPlace &no) {
    unplaced.add(no.name);
    element.use();
    return;
  }
  if (!response->stages.empty()) channel.response = std::move(response);
}

}  // namespace ksutil::exchange
