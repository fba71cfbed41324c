/* QuakeMlWriter: events as QuakeML 1.2, basic event description.
 *
 * Resource identifiers are made of the ids of the records (resource_id.h).  The reading of
 * a file gives the records that were written, but for what without_place() names.
 * Source: Euchner & Schorlemmer, QuakeML 1.2 basic event description (2013), and its
 * schema. */
#ifndef KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_WRITER_H
#define KSUTIL_FORMATS_EXCHANGE_QUAKEML_QUAKEML_WRITER_H

#include <string>
#include <string_view>
#include <vector>

#include "formats/exchange/export/left_out.h"
#include "formats/exchange/text/xml_writer.h"
#include "formats/exchange/writer.h"

namespace ksutil::exchange {

class QuakeMlWriter final : public Writer {
 public:
  explicit QuakeMlWriter(TextSink &sink) : xml_(sink) {}

  bool begin() override;
  bool put(const Event &event) override;
  bool end() override;
  std::vector<Unplaced> without_place() const override;

 private:
  void name_all(const Event &event);
  void put_event(const Event &event);
  void put_pick(const Pick &pick, const std::string &id);
  void put_amplitude(const Pick &pick, const std::string &pick_id);
  void put_origin(const Event &event, std::size_t index);
  void put_uncertainty(const Origin &origin);
  void put_quality(const Origin &origin);
  void put_association(const Association &association, const std::string &id);
  void put_magnitude(const Origin &origin, std::size_t origin_index, std::size_t index);
  void put_station_magnitude(const Event &event, std::size_t origin_index,
                             std::size_t index);
  void put_mechanism(const Event &event, std::size_t origin_index,
                     const MomentTensor &tensor, const std::string &id);
  void put_moment_tensor(std::size_t origin_index, const MomentTensor &tensor,
                         const std::string &id, const std::string &derived);
  void put_axes(const MomentTensor &tensor);
  void put_planes(const MomentTensor &tensor);
  void put_centroid(const MomentTensor &tensor, const std::string &id);

  void put_quantity(const char *name, const std::string &value,
                    const std::string &uncertainty = "");
  void put_channel(const ChannelCode &channel);
  void put_creation(const std::string &author, double time);
  void put_comments(const std::vector<std::string> &comments);
  void put_status(const std::string &status);
  /* A reference to a method or a model of that name. */
  void put_method(const char *name, const std::string &method);
  /* Attributes for what QuakeML has no element for (field_attributes.h). */
  void put_field(const char *field, const std::string &value);
  void put_name_field(const char *field, const std::string &name);
  /* The text without what its element has no room for, which is counted. */
  std::string bounded(const std::string &text, std::size_t most);
  std::string station_magnitude_id(std::size_t origin, std::size_t index) const;

  XmlWriter xml_;
  LeftOut left_out_;
  /* Of the event that is being written: */
  std::string event_id_;
  std::vector<std::string> pick_ids_, origin_ids_;
  std::vector<std::vector<std::string>> magnitude_ids_, tensor_ids_;  // of each origin
};

}  // namespace ksutil::exchange
#endif
