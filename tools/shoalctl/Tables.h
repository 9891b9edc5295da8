// shoalctl tables: one line for each table.
#pragma once

#include "tools/shoalctl/Options.h"

namespace ShoalCtl {

// A table that cannot be read is told on standard error and the others are shown; throws Failure
// then.
void showTables(const Options& options);

}  // namespace ShoalCtl
