/* folder: lists the names in a folder.
 *
 * The iterators of the standard library end the process when memory is short. */
#ifndef KSUTIL_PLATFORM_STOCK_FOLDER_H
#define KSUTIL_PLATFORM_STOCK_FOLDER_H

#include <dirent.h>

#include <string>

#include "platform/stock/export.h"

namespace ksutil {

class KSUTIL_API FolderNames {
 public:
  /* Opens a folder; "" is the current one.  error() tells whether it could be. */
  explicit FolderNames(const std::string &path);
  ~FolderNames();
  FolderNames(const FolderNames &) = delete;
  FolderNames &operator=(const FolderNames &) = delete;

  /* The next name but "." and "..", in no particular order, valid until the next call;
   * null at the end and after an error. */
  const char *next();

  /* errno of the call that failed, else 0. */
  int error() const { return error_; }

 private:
  DIR *folder_;
  int error_ = 0;
};

}  // namespace ksutil
#endif
