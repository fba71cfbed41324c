/* index_command: ksdb import of waveform files. */
#ifndef KSUTIL_TOOLS_KSDB_INDEX_COMMAND_H
#define KSUTIL_TOOLS_KSDB_INDEX_COMMAND_H

#include <string>

namespace ksutil::tools {

struct IndexArguments {
  std::string path, database, schema;
  bool quiet = false, dry_run = false, strict = false;
};

/* Whether a path is a folder or a file of waveforms, by its content. */
bool is_waveform_input(const std::string &path);

/* Enters the waveform files of a path into a database; the exit code. */
int index_waveform_files(const IndexArguments &arguments);

}  // namespace ksutil::tools
#endif
