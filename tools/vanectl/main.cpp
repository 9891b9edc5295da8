#include <grpc/support/log.h>

#include "tools/common/CommandLine.h"
#include "tools/common/Exit.h"
#include "tools/vanectl/Options.h"

namespace {

void run(int argc, char** argv) {
  // The library's own remarks are nobody's business: what matters comes back as a status.
  gpr_set_log_function([](gpr_log_func_args*) {});
  Tools::CommandLine line(VaneCtl::about());
  VaneCtl::Options options;
  const VaneCtl::Command command = VaneCtl::parseOptions(line, options, argc, argv);
  if (command == nullptr) return;
  Tools::Output out;
  command(options, out);
  out.flush();
}

}  // namespace

int main(int argc, char** argv) {
  return Tools::runTool("vanectl", [&] { run(argc, argv); });
}
