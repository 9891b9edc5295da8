#include "torture/Campaign.h"

namespace Torture {

Tally images(const Setting& setting);

const std::vector<Campaign>& campaigns() {
  static const std::vector<Campaign> all{
      {"images", "every byte times four patterns, every length, random damage", false, images},
  };
  return all;
}

}  // namespace Torture
