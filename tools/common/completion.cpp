#include "tools/common/completion.h"

#include <cstdio>
#include <string>

namespace ksutil::tools {
namespace {

std::string option_words(const CLI::App &app) {
  std::string words;
  for (const CLI::Option *option : app.get_options()) {
    for (const std::string &name : option->get_snames()) words += " -" + name;
    for (const std::string &name : option->get_lnames()) words += " --" + name;
  }
  return words.empty() ? words : words.substr(1);
}

bool is_shown(const CLI::App &command) { return !command.get_group().empty(); }

/* Completes every word from a list, and without a list as a file name. */
constexpr const char *kScript =
    R"(# Completes the command line of @ in bash; printed by "@ --completion".
_@() {
  local word=${COMP_WORDS[COMP_CWORD]} command= words= i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done
  COMPREPLY=()
  case $command in
%  esac
  if [[ -z $command || $word == -* ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$word"))
  fi
}
complete -o bashdefault -o default -F _@ @
)";

}  // namespace

void print_completion(const CLI::App &app) {
  std::string names, cases;
  for (const CLI::App *command :
       app.get_subcommands([](const CLI::App *) { return true; })) {
    if (!is_shown(*command)) continue;
    names += command->get_name() + " ";
    cases += "    " + command->get_name() + ") words=\"" + option_words(*command) +
             "\" ;;\n";
  }
  cases = "    \"\") words=\"" + names + option_words(app) + "\" ;;\n" + cases;
  std::string script;
  for (const char *at = kScript; *at != '\0'; at++) {
    if (*at == '@') {
      script += app.get_name();
    } else if (*at == '%') {
      script += cases;
    } else {
      script += *at;
    }
  }
  std::fputs(script.c_str(), stdout);
}

}  // namespace ksutil::tools
