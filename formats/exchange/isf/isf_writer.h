/* IsfWriter: events as bulletins in IMS1.0:short with the extensions of ISF.
 *
 * Ids "SOURCE:NUMBER" with at most eight characters behind the colon stand in the columns
 * of their numbers, and their source in MSG_ID; a message ends where the source changes.
 * Others get a number of this file with an underscore, and a comment (#ID text) when there
 * is a text: IsfReader gives all ids back as they were.
 * Errors are turned to a confidence of 0.9; those without a level count as one standard
 * deviation.  Values have the digits that their columns hold: times of origins hundredths,
 * those of phases thousandths of a second.
 * Phases are those of the preferred origin. */
#ifndef KSUTIL_FORMATS_EXCHANGE_ISF_ISF_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_ISF_ISF_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

#include "formats/exchange/isf/isf_lines.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class IsfWriter final : public Writer {
 public:
  explicit IsfWriter(TextSink &sink) : sink_(sink) {}

  bool begin() override { return true; }
  bool put(const Event &event) override;
  bool end() override;
  std::vector<Unplaced> without_place() const override { return unplaced_.list(); }

 private:
  /* The number of an id, and the comment that holds the rest of it. */
  struct Number {
    std::string column, comment;
  };

  void begin_message(const std::string &source);
  std::string source_of(const Event &event) const;
  Number number_of(const std::string &id, bool needed);
  void put_comments(const std::vector<std::string> &comments);
  void put_origin(const Event &event, const Origin &origin, const Number &number);
  void put_errors(const Origin &origin, IsfLine &line);
  void put_tensor(const MomentTensor &tensor);
  void put_magnitudes(const Event &event);
  void put_phases(const Event &event);
  void put_phase_details(const Event &event, const std::vector<std::size_t> &which,
                         const std::vector<Number> &numbers);
  void count_unplaced(const Event &event);
  void count_unplaced(const MomentTensor &tensor);
  void count_if(bool there, std::string_view name) {
    if (there) unplaced_.add(name);
  }

  TextSink &sink_;
  std::string text_;    // of the event
  std::string source_;  // of the message
  bool begun_ = false;
  std::int64_t last_number_ = 0;  // of those with an underscore
  std::vector<std::string> origin_columns_;
  UnplacedCounts unplaced_;
};

}  // namespace ksutil::exchange
#endif
