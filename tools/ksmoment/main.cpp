/* ksmoment: shows, compares and draws moment tensors and double couples. */
#include "tools/common/out_of_memory.h"
#include "tools/ksmoment/commands.h"

int main(int argc, char **argv) {
  using namespace ksutil::tools;
  return run_made_program(
      [] {
        return Program{"ksmoment",
                       "Shows, compares and draws moment tensors and double couples.",
                       {info_command(), compare_command(), plot_command()},
                       "Mechanisms come from the table mt of a database, from --tensor "
                       "(mrr,mtt,mpp,mrt,\n"
                       "mrp,mtp in N m; r up, t south, p east) and from --plane "
                       "(strike,dip,rake in\n"
                       "degrees); both options may stand several times.\n"};
      },
      argc, argv);
}
