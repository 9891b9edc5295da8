// Writes entries as the agent's input lines.
#pragma once

#include <fmt/format.h>

#include "tools/routing-demo/Model.h"

namespace Demo {

using LineBuffer = fmt::memory_buffer;

// The line that sets the entry, or deletes its key.
template <class Entry>
void appendSet(LineBuffer& out, Table table, const Entry& entry);
template <class Entry>
void appendDelete(LineBuffer& out, Table table, const Entry& entry);

// The line that the agent answers when all lines before it have been applied.
void appendSync(LineBuffer& out, uint64_t id);

}  // namespace Demo
