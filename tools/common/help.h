/* help: lays out the help of the programs for terminals of 80 columns. */
#ifndef KSUTIL_TOOLS_COMMON_HELP_H
#define KSUTIL_TOOLS_COMMON_HELP_H

#include <CLI/CLI.hpp>
#include <string>

namespace ksutil::tools {

class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();

  std::string make_subcommand(const CLI::App *command) const override;
  std::string make_option_opts(const CLI::Option *option) const override;
  std::string make_option_desc(const CLI::Option *option) const override;
};

}  // namespace ksutil::tools
#endif
