// What a campaign is at, for the process that watches it: a campaign that says what it begins to do
// and then says nothing for a minute hangs in it.
#pragma once

#include <chrono>
#include <string>

#include "torture/Campaign.h"

namespace Torture {

inline constexpr std::chrono::seconds longestSilence{60};

// Said by a campaign before each of its steps that might not end.
void doing(const std::string& what);

// Runs the campaign in a process of its own and answers with its tally. A campaign that hangs,
// dies, or leaves processes, open files or directories behind is a finding.
Tally runWatched(const Campaign& campaign, const Setting& setting);

}  // namespace Torture
