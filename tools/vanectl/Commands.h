// What each command of the tool does; see the manual page for what it says.
#pragma once

#include "tools/common/Output.h"
#include "tools/vanectl/Options.h"

namespace VaneCtl {

void listTables(const Options& options, Tools::Output& out);
void describeTable(const Options& options, Tools::Output& out);
void getRow(const Options& options, Tools::Output& out);
void scanRows(const Options& options, Tools::Output& out);
void setRow(const Options& options, Tools::Output& out);
void deleteRow(const Options& options, Tools::Output& out);
void clearTable(const Options& options, Tools::Output& out);
// Events of tables as they happen.
void watchTables(const Options& options, Tools::Output& out);
// Rows as lines of JSON, from the agent and to it.
void dumpTables(const Options& options, Tools::Output& out);
void loadRows(const Options& options, Tools::Output& out);
void showStatus(const Options& options, Tools::Output& out);
void logLevel(const Options& options, Tools::Output& out);

}  // namespace VaneCtl
