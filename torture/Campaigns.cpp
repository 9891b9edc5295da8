#include "torture/Campaign.h"

namespace Torture {

Tally crashPoints(const Setting& setting);
Tally singleStep(const Setting& setting);
Tally killing(const Setting& setting);
Tally stopping(const Setting& setting);
Tally secondWriter(const Setting& setting);
Tally images(const Setting& setting);
Tally memoryFaults(const Setting& setting);
Tally refusals(const Setting& setting);
Tally paths(const Setting& setting);

const std::vector<Campaign>& campaigns() {
  static const std::vector<Campaign> all{
      {"crash-points", "a kill at every named point of every operation, and of its repair", false,
       crashPoints},
      {"single-step", "a kill at every instruction of every operation, and of its repair", false,
       singleStep},
      {"kill", "kills of a writer at full speed, under four verifying readers", true, killing},
      {"stop", "writers and readers that are stopped, and a key that is rewritten without pause",
       true, stopping},
      {"second-writer", "who comes while there is a writer, and what a dead one leaves", true,
       secondWriter},
      {"images", "every byte times four patterns, every length, random damage", false, images},
      {"memory", "full file systems, and the limits of a process", false, memoryFaults},
      {"refusals", "every system call of every operation, refused by the kernel for every reason",
       false, refusals},
      {"paths", "links, pipes, strangers and open doors at every part of a path", false, paths},
  };
  return all;
}

}  // namespace Torture
