/* DraftFile: writes a file that appears under its name only when it is whole.
 *
 * The bytes go into a new file beside the target, the draft, which then takes the target's
 * place.  Until then, and after a failure, the target is what it was and the destructor
 * removes the draft.  A process that is killed may leave a draft: NAME.PID-N.new.
 * Errors: false with errno set. */
#ifndef KSUTIL_PLATFORM_STOCK_DRAFT_FILE_H
#define KSUTIL_PLATFORM_STOCK_DRAFT_FILE_H

#include <string>
#include <string_view>

#include "platform/stock/export.h"
#include "platform/stock/files.h"

namespace ksutil {

/* The file that a path means: behind symbolic links, also when the last one leads to a
 * file that is yet to be made.  "" with errno set to ELOOP when they lead in a circle. */
KSUTIL_API std::string path_behind_links(const std::string &path);

class KSUTIL_API DraftFile {
 public:
  /* Whether the draft may take the place of a file that is there (kReplace), or a file that
   * is there is an error, EEXIST (kKeep). */
  enum class Existing { kReplace, kKeep };
  /* kNow: the bytes are on the disk before they get their name, and the name before
   * put_in_place returns.  kLater: the system writes them within its own time. */
  enum class Sync { kNow, kLater };

  explicit DraftFile(Existing existing = Existing::kReplace, Sync sync = Sync::kNow)
      : existing_(existing), sync_(sync) {}
  ~DraftFile();
  DraftFile(const DraftFile &) = delete;
  DraftFile &operator=(const DraftFile &) = delete;

  /* Makes the draft.  It has the mode and, where allowed, the owner of the file whose place
   * it will take; for a new file the mode is 0666 less the umask.  Symbolic links are
   * followed and stay.
   * EISDIR for a folder, EINVAL for a device or a pipe, EACCES for a file that this user
   * may not write. */
  bool open(const std::string &path);
  /* The same; a device or a pipe is opened itself, and gets the bytes as they come. */
  bool open_or_device(const std::string &path);

  int fd() const { return file_.get(); }
  /* The draft, for writers that open files by name and do not replace it; "" for a
   * device. */
  const std::string &path() const { return path_; }

  bool write(std::string_view bytes);
  /* Gives the draft the name of the target, and closes it; does nothing for a device. */
  bool put_in_place();

 private:
  bool make_beside(mode_t mode);
  bool take_name();

  const Existing existing_;
  const Sync sync_;
  std::string target_;
  std::string path_;  // "" while there is no draft
  FileHandle file_;
};

}  // namespace ksutil
#endif
