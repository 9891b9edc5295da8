// Random writes, good and bad, against a model that is a map of entities: every code is the
// model's, what is read is what the model holds, and the tables hold no more than that: as the
// agent sees them, and as another process finds them in shared memory. Among the writes come those
// of others, restarts and pipelines, saved ones too.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "tests/agent-p4/Switch.h"
#include "tests/e2e/Programs.h"

namespace P4Test {
namespace {

std::string keyOf(const Entity& entity) {
  if (entity.has_action_profile_member()) {
    return "m" + std::to_string(entity.action_profile_member().member_id());
  }
  if (entity.has_action_profile_group()) {
    return "g" + std::to_string(entity.action_profile_group().group_id());
  }
  std::vector<std::string> parts;
  for (const auto& match : entity.table_entry().match()) parts.push_back(match.ShortDebugString());
  std::ranges::sort(parts);
  std::string key = "t" + std::to_string(entity.table_entry().table_id());
  for (const auto& part : parts) key += " " + part;
  return key;
}

class Model {
 public:
  // Applies the update if it is good; the code that it deserves.
  int apply(const Update& update) {
    const Entity& entity = update.entity();
    const std::string key = keyOf(entity);
    const auto found = entities.find(key);
    if (update.type() == Update::INSERT && found != entities.end() && !old.contains(key)) return 6;
    if (update.type() != Update::INSERT && found == entities.end()) return 5;
    if (update.type() == Update::DELETE) {
      if (uses(key) != 0) return 9;
      entities.erase(found);
      old.erase(key);
      return 0;
    }
    for (const std::string& reference : referencesOf(entity)) {
      if (!entities.contains(reference)) return 5;
    }
    if (isMixed(entity, key)) return 3;
    entities[key] = entity;
    old.erase(key);
    return 0;
  }

  // A pipeline has been saved: what is there goes when it is committed, unless it is written anew.
  void save() {
    for (const auto& [key, entity] : entities) old.insert(key);
  }
  // Routes first, then what only they referred to.
  void commit() {
    for (const char kind : {'t', 'g', 'm'}) {
      for (const std::string& key : std::set<std::string>(old)) {
        if (key[0] != kind || uses(key) != 0) continue;
        entities.erase(key);
      }
    }
    old.clear();
  }

  // Rows that there have to be in all tables.
  size_t rows() const {
    size_t count = entities.size();
    for (const auto& [key, entity] : entities) {
      if (isSet(entity))
        count += 1 + static_cast<size_t>(setOf(entity).action_profile_actions_size());
    }
    return count;
  }
  void forgetMetadata() {
    for (auto& [key, entity] : entities) {
      if (entity.has_table_entry()) entity.mutable_table_entry()->clear_metadata();
    }
  }

  std::map<std::string, Entity> entities;
  std::set<std::string> old;  // keys of those that were there when a pipeline was saved

 private:
  static const p4::v1::ActionProfileActionSet& setOf(const Entity& entity) {
    return entity.table_entry().action().action_profile_action_set();
  }
  static bool isSet(const Entity& entity) {
    return entity.table_entry().action().has_action_profile_action_set();
  }
  static bool isRoute(const Entity& entity) {
    return entity.has_table_entry() && !entity.table_entry().action().has_action();
  }
  static std::vector<std::string> referencesOf(const Entity& entity) {
    std::vector<std::string> keys;
    for (const auto& each : entity.action_profile_group().members()) {
      keys.push_back("m" + std::to_string(each.member_id()));
    }
    const auto& action = entity.table_entry().action();
    if (action.action_profile_member_id() != 0) {
      keys.push_back("m" + std::to_string(action.action_profile_member_id()));
    }
    if (action.action_profile_group_id() != 0) {
      keys.push_back("g" + std::to_string(action.action_profile_group_id()));
    }
    return keys;
  }
  size_t uses(const std::string& key) const {
    size_t count = 0;
    for (const auto& [other, entity] : entities) {
      const auto keys = referencesOf(entity);
      count += static_cast<size_t>(std::ranges::count(keys, key));
    }
    return count;
  }
  bool isMixed(const Entity& entity, const std::string& key) const {
    if (!isRoute(entity)) return false;
    return std::ranges::any_of(entities, [&](const auto& each) {
      return each.first != key && !old.contains(each.first) && isRoute(each.second) &&
             isSet(each.second) != isSet(entity);
    });
  }
};

class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}

  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(engine_() % bound); }
  bool oneIn(uint32_t n) { return below(n) == 0; }

  Update update() {
    static constexpr Update::Type types[] = {Update::INSERT, Update::INSERT, Update::MODIFY,
                                             Update::DELETE};
    return updateOf(types[below(4)], entity());
  }

 private:
  Entity entity() {
    switch (below(6)) {
      case 0:
        return member(1 + below(6), static_cast<uint8_t>(below(250)));
      case 1:
        return anyGroup();
      case 2:
        return (oneIn(2) ? encap : encapIn6)(static_cast<uint8_t>(below(5)),
                                             static_cast<uint8_t>(below(250)));
      default:
        return route();
    }
  }
  Entity keyOfRoute(uint32_t table, uint8_t second) {
    const auto vrf = static_cast<uint8_t>(below(3));
    switch (table) {
      case 0:
        return prefix(second, override4);
      case 1:
        return prefix(second, fallback4);
      case 2:
        return vrfPrefix(vrf, second);
      case 3:
        return prefix6(second, override6);
      case 4:
        return prefix6(second, fallback6);
      default:
        return vrfPrefix6(vrf, second);
    }
  }
  Entity anyGroup() {
    std::vector<GroupMember> members;
    for (uint32_t id = 1; id <= 6; ++id) {
      if (oneIn(3)) {
        members.push_back({id, static_cast<int32_t>(1 + below(4)),
                           oneIn(2) ? bytes({static_cast<int>(1 + below(9))}) : std::string()});
      }
    }
    std::shuffle(members.begin(), members.end(), engine_);
    return group(1 + below(4), members);
  }
  Entity route() {
    const auto second = static_cast<uint8_t>(below(5));
    Entity made = keyOfRoute(below(6), second);
    if (oneIn(4)) made.mutable_table_entry()->set_metadata(std::string(1 + below(5), 'm'));
    switch (below(3)) {
      case 0:
        return toMember(made, 1 + below(6));
      case 1:
        return toGroup(made, 1 + below(4));
      default:
        break;
    }
    std::vector<SetAction> actions;
    for (uint32_t i = below(3); i < 3; ++i) {
      actions.push_back({static_cast<uint8_t>(below(3)), static_cast<int32_t>(1 + below(3)), {}});
    }
    return toSet(made, actions);
  }

  std::mt19937 engine_;
};

// Makes the update one that has to be refused whatever the tables hold.
void spoil(Random& random, Update& update) {
  if (random.oneIn(5)) return update.set_type(static_cast<Update::Type>(random.oneIn(2) ? 0 : 7));
  if (random.oneIn(6)) return update.mutable_entity()->mutable_meter_entry()->set_meter_id(1);
  Entity& entity = *update.mutable_entity();
  if (entity.has_action_profile_member()) {
    entity.mutable_action_profile_member()->set_member_id(random.oneIn(2) ? 0 : 0x80000000);
  } else if (entity.has_action_profile_group()) {
    entity.mutable_action_profile_group()->set_action_profile_id(random.below(100));
  } else if (random.oneIn(2)) {
    entity.mutable_table_entry()->set_priority(1 + static_cast<int>(random.below(9)));
  } else {
    *entity.mutable_table_entry()->add_match() = entity.table_entry().match(0);
  }
}

class RandomWrites : public testing::TestWithParam<uint32_t> {
 protected:
  void expectAgreement() {
    std::map<std::string, Entity> found;
    for (const Entity& query : {allEntries(), allMembers(), allGroups()}) {
      for (const Entity& entity : at.read(query)) {
        EXPECT_TRUE(found.emplace(keyOf(entity), entity).second) << "twice: " << keyOf(entity);
      }
    }
    ASSERT_EQ(found.size(), model.entities.size());
    for (const auto& [key, entity] : model.entities) {
      ASSERT_TRUE(found.contains(key)) << key;
      ASSERT_TRUE(same(found[key], entity))
          << found[key].DebugString() << "expected " << entity.DebugString();
    }
    size_t rows = 0;
    for (const auto& table : Agent::routingTables()) rows += at.size(std::string(table.name));
    ASSERT_EQ(rows, model.rows());
  }

  // A number of a byte string.
  static uint32_t number(const std::string& bytes) {
    uint32_t made = 0;
    for (const char byte : bytes) made = made << 8 | static_cast<uint8_t>(byte);
    return made;
  }
  // What a process beside the agent says of each entity, in short: "<table> <key> <what it is>".
  void expectSharedMemory() {
    using Texts = std::multiset<std::string>;
    const auto rowsOf = [&](const Agent::P4::Role* role) {
      return E2e::shownRows(at.root().string(), std::string(role->rowTable));
    };
    const auto pointing = [](const std::string& key, const E2e::Json& row) {
      const uint32_t id = row.at("destinationId");
      return key + (id >= 0x80000000 ? " set"
                                     : fmt::format(" {} {}", row.at("destinationType").dump(), id));
    };
    Texts found;
    for (const uint32_t id : {override4, fallback4, override6, fallback6}) {
      for (const auto& row : rowsOf(at.target().roles().table(id))) {
        found.insert(
            pointing(fmt::format("{} {}", id, std::string(row.at("destinationPrefix"))), row));
      }
    }
    for (const uint32_t id : {vrf4, vrf6}) {
      for (const auto& row : rowsOf(at.target().roles().table(id))) {
        found.insert(pointing(
            fmt::format("{} {} {}", id, row.at("vrfId").dump(), std::string(row.at("prefix"))),
            row));
      }
    }
    for (const uint32_t id : {encap4, encap6}) {
      for (const auto& row : rowsOf(at.target().roles().table(id))) {
        found.insert(
            fmt::format("{} {} {}", id, row.at("encapId").dump(), row.at("encapType").dump()));
      }
    }
    // Those of one-shot sets have ids of the agent's own.
    for (const auto& row : rowsOf(&at.target().roles().member())) {
      if (row.at("id") < 0x80000000) found.insert("m" + row.at("id").dump());
    }
    for (const auto& row : rowsOf(&at.target().roles().group())) {
      if (row.at("id") >= 0x80000000) continue;
      found.insert(fmt::format("g{} {} {}", row.at("id").dump(), row.at("members").dump(),
                               row.at("watchPorts").dump()));
    }
    Texts expected;
    for (const auto& [key, entity] : model.entities) {
      expected.insert(entity.has_table_entry()            ? inShort(entity.table_entry())
                      : entity.has_action_profile_group() ? inShort(entity.action_profile_group())
                                                          : key);
    }
    EXPECT_EQ(found, expected);
  }
  static std::string inShort(const p4::v1::TableEntry& entry) {
    std::string exact;
    std::string prefix;
    for (const auto& match : entry.match()) {
      if (match.has_exact()) {
        exact = fmt::format(" {}", number(match.exact().value()));
        continue;
      }
      const std::string& value = match.lpm().value();
      const auto at = [&](size_t i) { return static_cast<uint8_t>(value.at(i)); };
      prefix = value.size() == 4
                   ? fmt::format(" 10.{}.0.0/16", at(1))
                   : (at(5) == 0 ? " 2001:db8::/48" : fmt::format(" 2001:db8:{:x}::/48", at(5)));
    }
    std::string text = fmt::format("{}{}{}", entry.table_id(), exact, prefix);
    const auto& action = entry.action();
    if (action.has_action()) {
      return text + fmt::format(" {}", number(action.action().params(0).value()));
    }
    if (action.has_action_profile_action_set()) return text + " set";
    return text + (action.action_profile_member_id() != 0
                       ? fmt::format(" 1 {}", action.action_profile_member_id())
                       : fmt::format(" 2 {}", action.action_profile_group_id()));
  }

  // A member of weight w stands w times in a row.
  static std::string inShort(const p4::v1::ActionProfileGroup& group) {
    E2e::Json members = E2e::Json::array(), ports = E2e::Json::array();
    for (const auto& each : group.members()) {
      for (int i = 0; i < each.weight(); ++i) {
        members.push_back(each.member_id());
        ports.push_back(number(each.watch_port()));
      }
    }
    return fmt::format("g{} {} {}", group.group_id(), members.dump(), ports.dump());
  }

  // Somebody else writes a route; never over a set, whose rows would stay.
  void writeForeign() {
    const auto second = static_cast<uint8_t>(random.below(5));
    const Entity route = toMember(prefix(second), 1 + random.below(6));
    Entity& there = model.entities[keyOf(route)];
    if (there.table_entry().action().has_action_profile_action_set()) return;
    there = route;
    if (isSaved) model.old.insert(keyOf(route));
    at.writeRow("VaneIpv4Override",
                {uint64_t{random.below(9)}, uint64_t{random.below(99)}, true, uint32_t{0},
                 *Wire::IpGenPrefix::parse(fmt::format("10.{}.0.0/16", second)), int32_t{1},
                 route.table_entry().action().action_profile_member_id()});
  }
  void changePipeline() {
    using Request = p4::v1::SetForwardingPipelineConfigRequest;
    Request request;
    if (isSaved) {
      request.set_action(Request::COMMIT);
      model.commit();
    } else {
      static constexpr Request::Action actions[] = {
          Request::VERIFY_AND_COMMIT, Request::RECONCILE_AND_COMMIT, Request::VERIFY_AND_SAVE};
      request.set_action(actions[random.below(3)]);
      *request.mutable_config()->mutable_p4info() = makeP4Info(at.target().roles());
      if (request.action() == Request::VERIFY_AND_COMMIT) model.entities.clear();
      if (request.action() == Request::VERIFY_AND_SAVE) model.save();
    }
    isSaved = request.action() == Request::VERIFY_AND_SAVE;
    const auto status = at.pipelineIs(request);
    EXPECT_TRUE(status.ok()) << status.error_message();
  }

  Switch at{{.capacity = 256}};
  Model model;
  bool isSaved = false;  // a pipeline that is not committed yet
  Random random{GetParam()};
};

TEST_P(RandomWrites, LeaveModelAndTablesAgreeing) {
  for (int round = 0; round < 120; ++round) {
    const bool allOrNothing = random.oneIn(3);
    std::vector<Update> updates;
    std::vector<bool> spoilt;
    for (uint32_t i = random.below(20) + 1; i > 0; --i) {
      updates.push_back(random.update());
      spoilt.push_back(random.oneIn(allOrNothing ? 40 : 8));
      if (spoilt.back()) spoil(random, updates.back());
    }
    Model next = model;
    Codes expected;
    bool failed = false;
    for (size_t i = 0; i < updates.size(); ++i) {
      expected.push_back(spoilt[i] ? -1 : next.apply(updates[i]));
      failed = failed || expected.back() != 0;
    }
    const Codes codes = at.codes(
        updates, allOrNothing ? WriteRequest::ROLLBACK_ON_ERROR : WriteRequest::CONTINUE_ON_ERROR);
    ASSERT_EQ(codes.size(), expected.size());
    for (size_t i = 0; i < codes.size(); ++i) {
      ASSERT_NE(codes[i], StatusCode::INTERNAL);
      if (allOrNothing && failed) {
        ASSERT_NE(codes[i], 0) << updates[i].DebugString();
      } else if (expected[i] == -1) {
        ASSERT_NE(codes[i], 0) << updates[i].DebugString();
      } else {
        ASSERT_EQ(codes[i], expected[i]) << updates[i].DebugString();
      }
    }
    if (!allOrNothing || !failed) model = next;
    ASSERT_NO_FATAL_FAILURE(expectAgreement()) << "seed " << GetParam() << ", round " << round;
    if (random.oneIn(10)) writeForeign();
    if (random.oneIn(isSaved ? 5 : 20)) {
      changePipeline();
      ASSERT_NO_FATAL_FAILURE(expectAgreement()) << "after a pipeline";
    }
    if (random.oneIn(40)) {
      at.restart();
      model.forgetMetadata();
      model.old.clear();
      isSaved = false;  // which no agent but the last knew
      ASSERT_NO_FATAL_FAILURE(expectAgreement()) << "after a restart";
    }
  }
  expectSharedMemory();
}
INSTANTIATE_TEST_SUITE_P(Seeds, RandomWrites, testing::Range(1u, 9u));

// Bytes of a good message, some of them changed: whatever that means, it is applied or refused.
TEST_P(RandomWrites, OfGarbledMessagesAreNeverAnInternalError) {
  at.codes({insert(member(1)), insert(member(2)), insert(group(1, {{1}}))});
  int parsed = 0;
  for (int round = 0; round < 1500; ++round) {
    std::string wire = random.update().SerializeAsString();
    for (uint32_t i = random.below(4); i < 4; ++i) {
      wire[random.below(static_cast<uint32_t>(wire.size()))] = static_cast<char>(random.below(256));
    }
    Update update;
    if (!update.ParseFromString(wire)) continue;
    ++parsed;
    const auto sizeOf = [&] {
      uint64_t rows = 0;
      for (const auto& table : Agent::routingTables()) rows += at.size(std::string(table.name));
      return rows;
    };
    const uint64_t before = sizeOf();
    const int code = at.code(update);
    ASSERT_NE(code, StatusCode::INTERNAL) << update.DebugString();
    ASSERT_NE(code, StatusCode::UNKNOWN) << update.DebugString();
    if (code != 0) {
      ASSERT_EQ(sizeOf(), before);
    }
    p4::v1::ReadRequest request;
    *request.add_entities() = update.entity();
    for (const int each : at.read(request).codes) ASSERT_NE(each, StatusCode::INTERNAL);
  }
  EXPECT_GT(parsed, 100);
  const size_t count =
      at.read(allEntries()).size() + at.read(allMembers()).size() + at.read(allGroups()).size();
  at.restart();
  EXPECT_EQ(
      at.read(allEntries()).size() + at.read(allMembers()).size() + at.read(allGroups()).size(),
      count);
}

}  // namespace
}  // namespace P4Test
