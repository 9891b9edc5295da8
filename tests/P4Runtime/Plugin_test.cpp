#include "platform/P4Runtime/Plugin.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

using P4Runtime::PluginCleanupReason;
using P4Runtime::PluginContext;

class TestPlugin final : public P4Runtime::P4RuntimePluginBase {
 public:
  explicit TestPlugin(bool fails = false) : P4RuntimePluginBase("testPlugin"), fails_(fails) {}

  void pluginInit(const Kit::Ptr<PluginContext>& context) override {
    hooks += "pluginInit ";
    EXPECT_TRUE(pluginContext() == context) << "stored before the hook runs";
    EXPECT_FALSE(initComplete());
    if (fails_) throw std::runtime_error("no");
  }
  void doMountsComplete(Hub::MountStatus status, const Kit::Ptr<Hub::EntityManager>&) override {
    EXPECT_FALSE(mountsComplete());
    hooks += "doMountsComplete " + std::to_string(static_cast<int>(status)) + " ";
  }
  void doCleanup(PluginCleanupReason reason) override {
    hooks += "doCleanup " + std::to_string(static_cast<uint32_t>(reason)) + " ";
    if (failsToCleanUp) throw std::runtime_error("no");
  }
  bool failsToCleanUp = false;
  std::string hooks;

 private:
  bool fails_;
};

const Kit::Ptr<PluginContext> context(new PluginContext("context", nullptr, nullptr, nullptr));

TEST(PluginBase, RunsItsHooks) {
  const Kit::Ptr<TestPlugin> plugin(new TestPlugin);
  plugin->init(context);
  EXPECT_TRUE(plugin->initComplete());
  EXPECT_FALSE(plugin->mountsComplete());
  plugin->handleMountStatus(Hub::MountStatus::timedOut, nullptr);
  EXPECT_TRUE(plugin->mountsComplete());
  plugin->cleanup(PluginCleanupReason::reconfigure);
  EXPECT_EQ(plugin->hooks, "pluginInit doMountsComplete 2 doCleanup 2 ");
}

TEST(PluginBase, ThatFailsToStartKeepsItsContextAndLeavesItsDirectory) {
  const Kit::Ptr<Kit::Dir> dir(new Kit::Dir("plugins"));
  const Kit::Ptr<TestPlugin> plugin(new TestPlugin(true));
  dir->entityIs(plugin);
  EXPECT_THROW(plugin->init(context), std::runtime_error);
  EXPECT_TRUE(plugin->pluginContext() == context);
  EXPECT_FALSE(plugin->initComplete());
  EXPECT_FALSE(dir->entity("testPlugin")) << "the name is free for another start";
}

TEST(PluginBase, ThatHasCleanedUpLeavesItsDirectory) {
  const Kit::Ptr<Kit::Dir> dir(new Kit::Dir("plugins"));
  const Kit::Ptr<TestPlugin> plugin(new TestPlugin);
  dir->entityIs(plugin);
  plugin->init(context);
  EXPECT_TRUE(dir->entity("testPlugin") == plugin);
  plugin->failsToCleanUp = true;
  EXPECT_THROW(plugin->cleanup(PluginCleanupReason::restart), std::runtime_error);
  EXPECT_TRUE(dir->entity("testPlugin") == plugin) << "it can be cleaned up again";
  plugin->failsToCleanUp = false;
  plugin->cleanup(PluginCleanupReason::restart);
  EXPECT_FALSE(dir->entity("testPlugin"));
}

TEST(PluginCleanupReason, HasATextForm) {
  const auto text = [](uint32_t reason) {
    std::ostringstream out;
    out << static_cast<PluginCleanupReason>(reason);
    return out.str();
  };
  EXPECT_EQ(text(0), "restart");
  EXPECT_EQ(text(1), "removal");
  EXPECT_EQ(text(2), "reconfigure");
  EXPECT_EQ(text(7), "PluginCleanupReason(7)");
}

}  // namespace
