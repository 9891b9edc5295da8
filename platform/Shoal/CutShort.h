// What becomes of a process whose table is cut short under it.
#pragma once

namespace Shoal {

// Ends the process with `status` and a line on standard error when it touches a part of an attached
// table that is gone, because somebody made the table's file shorter: "PROGRAM: shared table
// "PATH": its file was cut short while it was attached". There is nothing to go on with: every
// access may be the next one. Any other bus error takes its own way.
//
// `program` must outlive the process's work. requires: called once.
void endWhenCutShort(const char* program, int status);

}  // namespace Shoal
