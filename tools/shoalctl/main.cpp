#include "platform/Guard/Exception.h"
#include "platform/Shoal/CutShort.h"
#include "platform/Shoal/SharedTable.h"
#include "tools/common/CommandLine.h"
#include "tools/common/Exit.h"
#include "tools/shoalctl/Options.h"

namespace {

using Tools::ExitCode;
using Tools::Failure;

void run(int argc, char** argv) {
  Tools::CommandLine line(ShoalCtl::about());
  ShoalCtl::Options options;
  const ShoalCtl::Command command = ShoalCtl::parseOptions(line, options, argc, argv);
  if (command == nullptr) return;
  Tools::Output out;
  try {
    command(options, out);
  } catch (const Shoal::BusyException& stalled) {
    throw Failure(ExitCode::stalled, stalled.what());
  } catch (const Guard::CorruptionDetectedException& corrupt) {
    throw Failure(ExitCode::corrupt, corrupt.what());
  }
  out.flush();
}

}  // namespace

int main(int argc, char** argv) {
  Shoal::endWhenCutShort("shoalctl", static_cast<int>(ExitCode::corrupt));
  return Tools::runTool("shoalctl", [&] { run(argc, argv); });
}
