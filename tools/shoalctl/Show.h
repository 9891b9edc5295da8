// shoalctl show: the entries of a table as rows, in the table's own order, as they are read.
#pragma once

#include "tools/shoalctl/Options.h"

namespace ShoalCtl {

void showEntries(const Options& options);

}  // namespace ShoalCtl
