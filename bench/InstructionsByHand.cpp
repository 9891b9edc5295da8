// Apart from the others: what the compiler has in one file with them changes what it makes of them.
#include "bench/ByHand.h"
#include "bench/Instructions.h"

namespace Bench {

void byHand() {
  const auto some = rowsOf(routes(1));
  const auto others = rowsOf(routes(1));
  measure("bare.allocation",
          [&](uint32_t i) { keep(std::make_shared<BareBuffer>(some[i].rowLength())->bytes); });
  measure("bare.keyHash", [&](uint32_t i) { keep(packedKeyHash(bytesOf(some[i]))); });
  measure("bare.rowHash", [&](uint32_t i) { keep(packedRowHash(bytesOf(some[i]))); });
  measure("bare.keyEqual",
          [&](uint32_t i) { keep(packedKeysEqual(bytesOf(some[i]), bytesOf(others[i]))); });
  const EcmpMemberList group = largestGroup();
  EcmpMemberList back;
  measureFrom("bare.group", 1, 16, [&](uint32_t) {
    copyLists(group, back);
    keep(back);
  });
}

}  // namespace Bench
