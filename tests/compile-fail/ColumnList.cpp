// Compiled as it stands, and once for each misuse.
#include <cstdint>

#include "routing-types/ColumnList.h"

using RoutingTypes::Column;
using Columns = RoutingTypes::ColumnList<Column<"id", uint32_t>, Column<"flag", bool>,
                                         Column<"count", uint32_t>, Column<"count", uint32_t>>;

static_assert(Columns::offsetOf<"id"> == 4);
static_assert(Columns::offsetOf<"flag"> == 8);
#ifdef UNKNOWN_COLUMN
static_assert(Columns::offsetOf<"flags"> != 0);
#endif
#ifdef COLUMN_TWICE
static_assert(Columns::offsetOf<"count"> != 0);
#endif
