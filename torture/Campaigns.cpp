#include "torture/Campaign.h"

namespace Torture {

Tally crashPoints(const Setting& setting);
Tally images(const Setting& setting);

const std::vector<Campaign>& campaigns() {
  static const std::vector<Campaign> all{
      {"crash-points", "a kill at every named point of every operation, and of its repair", false,
       crashPoints},
      {"images", "every byte times four patterns, every length, random damage", false, images},
  };
  return all;
}

}  // namespace Torture
