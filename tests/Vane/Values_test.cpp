#include "platform/Vane/Values.h"

#include <gtest/gtest.h>

#include <sstream>

namespace Vane {
namespace {

TEST(Values, NullIsTheValueThatAFreshOneHas) {
  EthAddr mac{{1, 2, 3, 4, 5, 6}};
  setToNull<EthAddr>(mac);
  EXPECT_EQ(mac, EthAddr{});
  IpGenPrefix prefix = IpGenPrefix::ipv4(0x0A000000, 8);
  setToNull(prefix);
  EXPECT_EQ(prefix, IpGenPrefix{});
}

TEST(Values, BoolsAreFormattedAsJsonHasThem) {
  std::ostringstream out;
  out << "a: " << FMT<bool>(true) << ", b: " << FMT<bool>(false);
  EXPECT_EQ(out.str(), "a: true, b: false");
}

}  // namespace
}  // namespace Vane
