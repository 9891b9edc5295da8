#include "platform/Kit/Entity.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>
#include <new>
#include <set>
#include <stdexcept>

#include "platform/Guard/Exception.h"
#include "tests/Kit/Entities.h"

namespace {
bool memoryHasRunOut = false;
}

// The entity allocator's way to memory, so that a test can let it run out.
void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  if (memoryHasRunOut) return nullptr;
  try {
    return ::operator new(bytes);
  } catch (...) {
    return nullptr;
  }
}

namespace {

using Kit::Dir;
using Kit::Name;
using Kit::Ptr;
using KitTest::Probe;

const Kit::TypeNode& probeType() {
  static const Kit::TypeNode& type = []() -> const Kit::TypeNode& {
    Kit::TypeNode node;
    node.name = "KitTest::Probe";
    node.factory = [](Name name) { return Ptr<Kit::Entity>(new Probe(std::move(name))); };
    return Kit::typeNodeIs(std::move(node));
  }();
  return type;
}

// Registered while static objects are made, whatever their order.
[[maybe_unused]] const Kit::TypeNode& registeredEarly = probeType();

TEST(EntityName, IsOnePartOfAPath) {
  EXPECT_EQ(Name("RoutingVane").str(), "RoutingVane");
  EXPECT_THROW(Name(""), Guard::RangeException);
  try {
    Name("a/b");
    FAIL();
  } catch (const Guard::RangeException& e) {
    EXPECT_STREQ(e.what(), "entity name \"a/b\": expected a non-empty text without '/'");
  }
}

TEST(Entity, FullNameGoesFromTheRootDown) {
  const Ptr<Dir> root(new Dir("hub")), routing(new Dir("routing"));
  root->entityIs(routing);
  const Ptr<Kit::Entity> probe(new Probe("table"));
  EXPECT_EQ(probe->fullName(), "table");
  routing->entityIs(probe);
  EXPECT_EQ(probe->fullName(), "hub/routing/table");
  EXPECT_EQ(probe->parent(), routing.get());
}

TEST(Directory, CreatesAnEntityOfARegisteredType) {
  const Ptr<Dir> dir(new Dir("plugins"));
  const auto made = dir->createEntity("one", "KitTest::Probe");
  EXPECT_TRUE(Kit::dynamicCast<Probe>(made));
  EXPECT_EQ(made->name(), Name("one"));
  EXPECT_TRUE(dir->entity("one") == made);
  EXPECT_EQ(made->parent(), dir.get());
}

TEST(Directory, RefusesATakenNameAndAnUnknownType) {
  const Ptr<Dir> dir(new Dir("plugins"));
  const auto first = dir->createEntity("one", "KitTest::Probe");
  try {
    dir->createEntity("one", "KitTest::Probe");
    FAIL();
  } catch (const Guard::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "creating entity \"one\" of type \"KitTest::Probe\" in \"plugins\": "
                 "the name is taken");
  }
  EXPECT_TRUE(dir->entity("one") == first);
  try {
    dir->createEntity("two", "KitTest::Unheard");
    FAIL();
  } catch (const Guard::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "creating entity \"two\" of type \"KitTest::Unheard\" in \"plugins\": "
                 "the type is unknown");
  }
  EXPECT_EQ(dir->entities().size(), 1u);
}

TEST(Directory, IsUnchangedWhenTheFactoryThrows) {
  Kit::TypeNode node;
  node.name = "KitTest::Throws";
  node.factory = [](Name) -> Ptr<Kit::Entity> { throw std::runtime_error("no"); };
  Kit::typeNodeIs(std::move(node));
  const Ptr<Dir> dir(new Dir("plugins"));
  EXPECT_THROW(dir->createEntity("one", "KitTest::Throws"), std::runtime_error);
  EXPECT_TRUE(dir->entities().empty());
}

TEST(Directory, HoldsWhatItIsGivenInPlaceOfOneOfTheSameName) {
  const Ptr<Dir> dir(new Dir("d"));
  const Ptr<Kit::Entity> old(new Probe("same")), fresh(new Probe("same"));
  dir->entityIs(old);
  dir->entityIs(fresh);
  EXPECT_TRUE(dir->entity("same") == fresh);
  EXPECT_EQ(old->parent(), nullptr);
  EXPECT_EQ(old->references(), 1u);
}

TEST(Directory, EntityLivesInOneDirectory) {
  const Ptr<Dir> a(new Dir("a")), b(new Dir("b"));
  const auto probe = a->createEntity("p", "KitTest::Probe");
  b->entityIs(a->entities().begin()->second);
  EXPECT_FALSE(a->entity("p"));
  EXPECT_TRUE(b->entity("p") == probe);
  EXPECT_EQ(probe->fullName(), "b/p");
}

TEST(Directory, LetsAnEntityGo) {
  const Ptr<Dir> dir(new Dir("d"));
  bool gone = false;
  dir->entityIs(Ptr<Probe>(new Probe("p", &gone)));
  dir->entityDel("absent");
  EXPECT_FALSE(gone);
  dir->entityDel("p");
  EXPECT_TRUE(gone);
  EXPECT_FALSE(dir->entity("p"));
}

TEST(Directory, ThatGoesLeavesWhatIsHeldElsewhereOutsideAnyTree) {
  Ptr<Dir> dir(new Dir("d"));
  const auto probe = dir->createEntity("p", "KitTest::Probe");
  dir = nullptr;
  EXPECT_EQ(probe->parent(), nullptr);
  EXPECT_EQ(probe->fullName(), "p");
}

TEST(TypeRegistry, KnowsATypeByName) {
  EXPECT_EQ(Kit::typeNode("KitTest::Probe"), &probeType());
  EXPECT_EQ(Kit::typeNode("KitTest::Unheard"), nullptr);
}

TEST(TypeRegistry, SecondRegistrationReplacesAndTheFirstNodeStaysReadable) {
  Kit::TypeNode node;
  node.name = "KitTest::Twice";
  node.attributeNames = {"first"};
  const Kit::TypeNode& first = Kit::typeNodeIs(node);
  node.attributeNames = {"second"};
  const Kit::TypeNode& second = Kit::typeNodeIs(node);
  EXPECT_EQ(Kit::typeNode("KitTest::Twice"), &second);
  EXPECT_EQ(second.attributeNames.at(0), "second");
  EXPECT_EQ(first.attributeNames.at(0), "first");
}

TEST(TypeRegistry, NodesStayWhereTheyAreAsOthersCome) {
  const Kit::TypeNode* before = Kit::typeNode("KitTest::Probe");
  for (int i = 0; i < 1000; ++i) {
    Kit::TypeNode node;
    node.name = "KitTest::Many" + std::to_string(i);
    Kit::typeNodeIs(std::move(node));
  }
  EXPECT_EQ(Kit::typeNode("KitTest::Probe"), before);
  EXPECT_EQ(before->name, "KitTest::Probe");
}

TEST(AllocationTracker, CountsWhatIsAliveAndWhatEverWas) {
  Kit::AllocationTracker tracker;
  tracker.allocated(100);
  tracker.allocated(50);
  tracker.released(100);
  EXPECT_EQ(tracker.live(), 1u);
  EXPECT_EQ(tracker.bytes(), 50u);
  EXPECT_EQ(tracker.total(), 2u);
}

TEST(EntityAllocator, GivesAlignedMemory) {
  void* memory = Kit::allocateEntity(24);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % alignof(std::max_align_t), 0u);
  Kit::freeEntity(memory);
  Kit::freeEntity(nullptr);
}

TEST(EntityAllocator, SaysWhenMemoryHasRunOut) {
  memoryHasRunOut = true;
  if (void* const block = ::operator new(1, std::nothrow)) {
    memoryHasRunOut = false;
    ::operator delete(block);
    GTEST_SKIP() << "operator new is not ours: valgrind puts its own in the place of any";
  }
  std::string message;
  try {
    Kit::allocateEntity(4321);
  } catch (const Guard::MemoryResourceException& e) {
    message = e.what();
  }
  memoryHasRunOut = false;
  EXPECT_EQ(message, "allocating an entity of 4321 bytes: no memory");
}

// The published algorithm, written a second time: the four-byte block of a message, then the final
// mix without the length.
uint32_t murmurOfOneWord(uint32_t seed, uint32_t k) {
  k *= 0xcc9e2d51;
  k = (k << 15) | (k >> 17);
  k *= 0x1b873593;
  uint32_t h = seed ^ k;
  h = (h << 13) | (h >> 19);
  h = h * 5 + 0xe6546b64;
  h = (h ^ (h >> 16)) * 0x85ebca6b;
  h = (h ^ (h >> 13)) * 0xc2b2ae35;
  return h ^ (h >> 16);
}

TEST(HashSingleAttr, IsOneBlockStepAndTheAvalanche) {
  for (const uint32_t seed : {0u, 1u, 0xFFFFFFFFu}) {
    for (const uint32_t value : {0u, 1u, 2u, 0xFFFFu, 0x10000u, 0xFFFFFFFFu}) {
      EXPECT_EQ(Kit::hashSingleAttr(seed, value), murmurOfOneWord(seed, value));
    }
  }
}

TEST(HashSingleAttr, SpreadsNeighboursOverAllBits) {
  std::set<uint32_t> seen;
  uint32_t ones = 0, zeros = 0;
  for (uint32_t id = 0; id < 1024; ++id) {
    const uint32_t hash = Kit::hashSingleAttr(0, id);
    seen.insert(hash);
    ones |= hash;
    zeros |= ~hash;
  }
  EXPECT_EQ(seen.size(), 1024u);
  EXPECT_EQ(std::popcount(ones), 32);
  EXPECT_EQ(std::popcount(zeros), 32);
}

TEST(Text, StringsCompareAndJoinByContents) {
  const Kit::String dir("routing/"), name("table");
  EXPECT_EQ(dir + name, Kit::String("routing/table"));
  EXPECT_LT(dir, name);
  EXPECT_TRUE(Kit::String().empty());
}

}  // namespace
