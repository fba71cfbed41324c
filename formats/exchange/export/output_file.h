/* OutputFile: takes what a writer makes into a file, which is there when it is whole.
 *
 * The text goes into a DraftFile, which is removed also when SIGINT, SIGTERM or SIGHUP ends
 * the program.  "-" is standard output, which gets the text as it comes; so do devices and
 * pipes.
 * Threads: one OutputFile at a time in a process. */
#ifndef KSUTIL_FORMATS_EXCHANGE_EXPORT_OUTPUT_FILE_H
#define KSUTIL_FORMATS_EXCHANGE_EXPORT_OUTPUT_FILE_H

#include <memory>
#include <string>
#include <string_view>

#include "formats/exchange/writer.h"
#include "platform/stock/draft_file.h"

namespace ksutil::exchange {

class OutputFile final : public TextSink {
 public:
  /* Null, with `problem` set, when nothing can be written there. */
  static std::unique_ptr<OutputFile> open(const std::string &path,
                                          std::string &problem);
  ~OutputFile() override;

  /* False after a failure; see problem(). */
  bool put(std::string_view text) override;
  /* Puts the file into its place; false after a failure. */
  bool finish();

  const std::string &problem() const { return problem_; }
  const std::string &name() const { return name_; }

 private:
  OutputFile() = default;
  bool begin(const std::string &path);
  bool fail();
  void forget_draft();

  std::string name_, problem_;
  std::unique_ptr<DraftFile> draft_;
  int fd_ = -1;
  bool noted_ = false;  // the signals remove the draft
};

}  // namespace ksutil::exchange
#endif
