#include "platform/P4Runtime/PluginLibrary.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "tests/plugin/Agent.h"

namespace {

using P4Runtime::loadPluginLibrary;
using P4Runtime::P4RuntimePluginBase;
using P4Runtime::PluginContext;
using P4Runtime::PluginLoadException;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

class Started final : public P4RuntimePluginBase {
 public:
  explicit Started(Kit::Name name) : P4RuntimePluginBase(std::move(name)) {}
  void pluginInit(const Kit::Ptr<PluginContext>&) override {}
  void doMountsComplete(Hub::MountStatus, const Kit::Ptr<Hub::EntityManager>&) override {}
  void doCleanup(P4Runtime::PluginCleanupReason) override {}
};

// A plug-in that is part of the program.
class LinkedPlugin final : public PluginBase<PluginContext> {
 public:
  explicit LinkedPlugin(std::string name) : name_(std::move(name)) {
    using Loader = Plugin::Loader<PluginContext>;
    Loader& loader = P4Runtime::DefaultPluginLoader();
    loader.initCallers().push_back(
        std::make_unique<Loader::LoaderInitCallerWithContext>(&loader, initCaller()));
    loader.registerPlugin(name_, loader.source(), "feature", "profile",
                          loader.initCallers().back().get());
  }
  Kit::Ptr<P4RuntimePluginBase> init(PluginContext* context) override {
    given = context;
    if (fails) throw std::runtime_error("no");
    return new Started(name_);
  }

  const PluginContext* given = nullptr;
  bool fails = false;

 private:
  std::string name_;
};

LinkedPlugin first("first"), second("second"), third("third");

TEST(DefaultLoader, ListsWhatRegisteredInOrderAndWhereItCameFrom) {
  const auto& plugins = P4Runtime::registeredPlugins();
  ASSERT_GE(plugins.size(), 3u);
  EXPECT_EQ(plugins[0].name, "first");
  EXPECT_EQ(plugins[1].name, "second");
  EXPECT_EQ(plugins[1].source, "") << "part of the program: loaded from nowhere";
  EXPECT_EQ(plugins[1].feature, "feature");
  EXPECT_EQ(plugins[1].profile, "profile");
}

TEST(DefaultLoader, StartsPlugInsInOrderWithTheContext) {
  const Kit::Ptr<PluginContext> context(new PluginContext("c", nullptr, nullptr, nullptr));
  std::vector<Kit::Ptr<P4RuntimePluginBase>> started;
  startPlugins(context.get(), started);
  ASSERT_EQ(started.size(), 3u);
  EXPECT_EQ(started[0]->name(), Kit::Name("first"));
  EXPECT_EQ(started[2]->name(), Kit::Name("third"));
  EXPECT_EQ(second.given, context.get());
}

TEST(DefaultLoader, KeepsThoseStartedBeforeTheOneThatFails) {
  const Kit::Ptr<PluginContext> context(new PluginContext("c", nullptr, nullptr, nullptr));
  std::vector<Kit::Ptr<P4RuntimePluginBase>> started;
  second.fails = true;
  third.given = nullptr;
  EXPECT_THROW(startPlugins(context.get(), started), std::runtime_error);
  second.fails = false;
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(started[0]->name(), Kit::Name("first"));
  EXPECT_EQ(third.given, nullptr);
}

std::string loadFailure(const std::filesystem::path& file) {
  try {
    loadPluginLibrary(file);
  } catch (const PluginLoadException& e) {
    return e.message();
  }
  return "no failure";
}

TEST(PluginLibrary, ThatIsMissingIsRefusedByName) {
  EXPECT_THAT(
      loadFailure("/no/such/plugin.so"),
      AllOf(StartsWith("plug-in library \"/no/such/plugin.so\": "), HasSubstr("No such file")));
}

TEST(PluginLibrary, GivenByABareNameIsTakenFromHereAndNotFromTheLibraryPath) {
  EXPECT_THAT(loadFailure("libc.so.6"),
              AllOf(StartsWith("plug-in library \"libc.so.6\": "), HasSubstr("No such file")));
}

TEST(PluginLibrary, ThatIsNoLibraryIsRefused) {
  const auto file =
      std::filesystem::temp_directory_path() / ("no-library-" + std::to_string(::getpid()) + ".so");
  std::ofstream(file) << "just a text\n";
  EXPECT_THAT(loadFailure(file), StartsWith("plug-in library \"" + file.string() + "\": "));
  std::filesystem::remove(file);
}

TEST(PluginLibrary, ThatRegistersNothingIsRefused) {
  EXPECT_THAT(loadFailure(TEST_PLATFORM_FILE),
              StartsWith("plug-in library \"" TEST_PLATFORM_FILE
                         "\": it registered no plug-in when it was loaded"));
  EXPECT_EQ(P4Runtime::DefaultPluginLoader().source(), "");
}

// What is loaded stays: a child of this process loads it.
void inAChild(auto body) {
  EXPECT_EXIT(
      {
        body();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

TEST(PluginLibrary, RegistersItsPlugInsWithItsPathAsTheirSource) {
  inAChild([] {
    const size_t before = P4Runtime::registeredPlugins().size();
    loadPluginLibrary(TEST_PLUGIN_FILE);
    ASSERT_EQ(P4Runtime::registeredPlugins().size(), before + 1);
    const auto& plugin = P4Runtime::registeredPlugins().back();
    EXPECT_EQ(plugin.name, "RoutingVane");
    EXPECT_EQ(plugin.source, TEST_PLUGIN_FILE);
    EXPECT_EQ(plugin.feature, "RoutingVane");
    EXPECT_EQ(plugin.profile, "Routing");
    EXPECT_TRUE(Kit::typeNode("P4RuntimeRouting::P4RuntimeRoutingVanePlugin"));
    loadPluginLibrary(TEST_PLUGIN_FILE);
    EXPECT_EQ(P4Runtime::registeredPlugins().size(), before + 1) << "it is loaded already";
  });
}

TEST(PluginLibrary, ThatTheProcessHasAlreadyIsTakenAsItIs) {
  inAChild([] {
    ASSERT_TRUE(dlopen(TEST_PLUGIN_FILE, RTLD_NOW)) << dlerror();
    const size_t before = P4Runtime::registeredPlugins().size();
    EXPECT_EQ(P4Runtime::registeredPlugins().back().name, "RoutingVane");
    EXPECT_EQ(loadFailure(TEST_PLUGIN_FILE), "no failure");
    EXPECT_EQ(P4Runtime::registeredPlugins().size(), before);
  });
}

TEST(PluginLibrary, WhoseInitialisationThrowsIsRefusedAndThisProcessLives) {
  EXPECT_THAT(
      loadFailure(THROWING_PLUGIN_FILE),
      StartsWith("plug-in library \"" THROWING_PLUGIN_FILE "\": ends the process that loads it: "));
  EXPECT_EQ(P4Runtime::DefaultPluginLoader().source(), "");
}

TEST(PluginLibrary, ThatLacksAFunctionIsRefusedByItsName) {
  EXPECT_THAT(loadFailure(UNRESOLVED_PLUGIN_FILE), HasSubstr("aFunctionThatNobodyHas"));
}

// --- What is looked at before any of its code runs
// ------------------------------------------------

// A directory with a copy of the plug-in, which a child may load.
class PathOfAPlugin : public testing::Test {
 protected:
  PathOfAPlugin() {
    std::string name = "/tmp/plugin-path-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private directory");
    top_ = name;
    directory_ = top_ / "plugins";
    file_ = directory_ / "plugin.so";
    fs::create_directory(directory_);
    fs::permissions(directory_, fs::perms(0755));
    fs::copy_file(TEST_PLUGIN_FILE, file_);
    fs::permissions(file_, fs::perms(0644));
  }
  ~PathOfAPlugin() override {
    std::error_code ignored;
    fs::remove_all(top_, ignored);
  }

  static std::string refusal(const fs::path& file, const std::string& what) {
    return "plug-in library \"" + file.string() + "\": " + what;
  }
  // The plug-in's own initialisation would have registered it.
  void expectRefused(const std::string& what) { expectRefused(file_, what); }
  static void expectRefused(const fs::path& file, const std::string& what) {
    const size_t before = P4Runtime::registeredPlugins().size();
    EXPECT_EQ(loadFailure(file), refusal(file, what));
    EXPECT_EQ(P4Runtime::registeredPlugins().size(), before);
  }
  void expectTaken(const fs::path& file) {
    inAChild([&] { EXPECT_EQ(loadFailure(file), "no failure"); });
  }
  // A group that neither this process nor root is in.
  static constexpr gid_t strangers = 54321;

  fs::path top_, directory_, file_;
};

TEST_F(PathOfAPlugin, OfOurOwnOrRootsIsTaken) { expectTaken(file_); }

TEST_F(PathOfAPlugin, FileOpenToAllWritersIsRefused) {
  fs::permissions(file_, fs::perms(0646));
  expectRefused(file_.string() + " may be written to by everybody");
}

TEST_F(PathOfAPlugin, DirectoryOpenToAllWritersIsRefused) {
  fs::permissions(directory_, fs::perms(0757));
  expectRefused(directory_.string() + " may be written to by everybody");
}

TEST_F(PathOfAPlugin, DirectoryInWhichNobodyMayReplaceOthersFilesIsTaken) {
  fs::permissions(directory_, fs::perms(0777) | fs::perms::sticky_bit);
  expectTaken(file_);
}

TEST_F(PathOfAPlugin, GroupOfStrangersThatMayWriteIsRefused) {
  if (::chown(file_.c_str(), ::geteuid(), strangers) != 0) GTEST_SKIP() << "needs root";
  fs::permissions(file_, fs::perms(0664));
  expectRefused(file_.string() + " may be written to by group 54321");
  fs::permissions(file_, fs::perms(0644));
  expectTaken(file_);
}

TEST_F(PathOfAPlugin, StrangersFileOrDirectoryIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chown(file_.c_str(), 54321, 0), 0);
  expectRefused(file_.string() + " belongs to user 54321, expected 0 or 0");
  ASSERT_EQ(::chown(file_.c_str(), 0, 0), 0);
  ASSERT_EQ(::chown(directory_.c_str(), 54321, 0), 0);
  expectRefused(directory_.string() + " belongs to user 54321, expected 0 or 0");
}

TEST_F(PathOfAPlugin, SymbolicLinkIsFollowedToWhatIsLookedAtInTurn) {
  const fs::path link = top_ / "link.so", around = top_ / "around";
  fs::create_symlink("plugins/../plugins/plugin.so", link);
  fs::create_directory_symlink(directory_, around);
  expectTaken(link);
  expectTaken(around / "plugin.so");
  fs::permissions(directory_, fs::perms(0757));
  expectRefused(link, directory_.string() + " may be written to by everybody");
  expectRefused(around / "plugin.so", directory_.string() + " may be written to by everybody");
}

TEST_F(PathOfAPlugin, SymbolicLinkOfAStrangerIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  const fs::path link = top_ / "link.so";
  fs::create_symlink(file_, link);
  ASSERT_EQ(::lchown(link.c_str(), 54321, 0), 0);
  expectRefused(link, link.string() + " belongs to user 54321, expected 0 or 0");
}

TEST_F(PathOfAPlugin, LinksInALoopAreRefused) {
  fs::create_symlink("two", top_ / "one");
  fs::create_symlink("one", top_ / "two");
  expectRefused(top_ / "one", (top_ / "one").string() + " is one symbolic link too many");
}

TEST_F(PathOfAPlugin, WhatIsNoPlainFileIsRefusedAndNotWaitedFor) {
  const fs::path pipe = top_ / "pipe.so";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
  expectRefused(pipe, pipe.string() + " is not a regular file");
  expectRefused(directory_, directory_.string() + " is not a regular file");
  expectRefused(file_ / "x", file_.string() + " is not a directory");
}

TEST_F(PathOfAPlugin, LibraryOfTheOtherWordSizeIsRefused) {
  std::fstream out(file_, std::ios::binary | std::ios::in | std::ios::out);
  out.seekp(4);  // the class, behind the magic
  out.put(sizeof(void*) == 8 ? 1 : 2);
  out.close();
  EXPECT_THAT(loadFailure(file_), HasSubstr("wrong ELF class"));
}

// At the end of a process with a running plug-in whose library came by dlopen.
TEST(ProcessWithALoadedPlugIn, EndsCleanly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        P4Runtime::DefaultPluginLoader().initCallers().clear();  // those of this program
        const auto db = Vane::makeVaneDB();
        Vane::VaneDB::currentIs(db);
        static PluginTest::Agent agent(db);
        loadPluginLibrary(TEST_PLUGIN_FILE);
        agent.mountRoutingTables();
        agent.start();
        agent.loop.run();
        std::exit(db->tableNames().size() == 10 && agent.started.at(0)->mountsComplete() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
