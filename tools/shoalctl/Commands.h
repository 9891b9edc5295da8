// What each command of the tool does; see the manual page for what it says.
#pragma once

#include "tools/common/Output.h"
#include "tools/shoalctl/Options.h"

namespace ShoalCtl {

// A line for each table. One that cannot be read is told on standard error and the others are
// shown; throws Failure then.
void listTables(const Options& options, Tools::Output& out);
// What is in each table, counted.
void summarize(const Options& options, Tools::Output& out);
// A table's entries as they are read, in slot order; or the one of a key.
void showEntries(const Options& options, Tools::Output& out);
void getEntry(const Options& options, Tools::Output& out);
// Where packets to an address go.
void lookUp(const Options& options, Tools::Output& out);
// Changes as they happen.
void watchChanges(const Options& options, Tools::Output& out);
// Whether the tables are sound, and lead to what is there.
void checkTables(const Options& options, Tools::Output& out);
// Every row, in the form that the agent loads.
void dumpTables(const Options& options, Tools::Output& out);

}  // namespace ShoalCtl
