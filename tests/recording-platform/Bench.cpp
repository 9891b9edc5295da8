#include "tests/recording-platform/Bench.h"

namespace Recording {
namespace {

// Keeps apart what was written down while the program was loaded, before any test runs.
class Loaded final : public testing::Environment {
  void SetUp() override { Recorder::instance().reset(); }
};
[[maybe_unused]] const auto* const loaded = testing::AddGlobalTestEnvironment(new Loaded);

}  // namespace

Kit::Ptr<Shoal::TableEntityBase> makeEntity(size_t i) {
  const std::string& adapter = expectedTables()[i].adapter;
  if (adapter == "NexthopInfoVaneWrapper") return new P4RuntimeRouting::EcmpMember("t");
  if (adapter == "EcmpMemberListVaneWrapper") return new P4RuntimeRouting::EcmpGroup("t");
  if (adapter == "IpDestinationVaneWrapper") return new P4RuntimeRouting::IpDestinationTable("t");
  if (adapter == "VrfPrefixDestinationVaneWrapper") {
    return new P4RuntimeRouting::IpVrfPrefixTable("t");
  }
  return new NexthopGroup::L2NexthopGroupEncapTable("t");
}

void Bench::tableIs(size_t i, Shoal::Mode mode) {
  const auto table = makeEntity(i);
  table->storeIs(std::make_shared<Store>(expectedTables()[i].path, table->layout(), mode));
  entityIs(i, table);
}

}  // namespace Recording
