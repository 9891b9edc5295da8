// Attaching: who may write, and what is refused.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <atomic>
#include <initializer_list>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "platform/Kit/FileDescriptor.h"
#include "platform/Shoal/Store.h"
#include "platform/Shoal/TableCheck.h"
#include "platform/Shoal/TableFormat.h"
#include "platform/Trace/Trace.h"
#include "tests/Shoal/TableTest.h"
#include "tests/adapters/MemoryStore.h"

namespace ShoalTest {
namespace {

using Shoal::AttachException;
using Shoal::WriterPresentException;

void expectPart(const std::string& text, const std::string& part) {
  EXPECT_NE(text.find(part), std::string::npos) << text << "\nhas no part: " << part;
}

// --- The one writer ------------------------------------------------------------------------------

TEST(OneWriter, SecondOneInTheSameProcessIsRefusedByName) {
  TempRoot root;
  const auto first = writer<Tiny>(root, 4);
  const std::string text = thrown<WriterPresentException>([&] { writer<Tiny>(root, 4); });
  expectPart(text, "\"a/b/table\"");
  expectPart(text, "process " + std::to_string(::getpid()) + " (this one)");
}

TEST(OneWriter, SecondOneInAnotherProcessIsRefusedByName) {
  TempRoot root;
  const auto first = writer<Tiny>(root, 4);
  const pid_t parent = ::getpid();
  EXPECT_EQ(runChild([&] {
              const auto text = thrown<WriterPresentException>([&] { writer<Tiny>(root, 4); });
              return text.find("process " + std::to_string(parent)) == std::string::npos;
            }),
            0);
}

TEST(OneWriter, IsRefusedByNamelessHolderWhileThatOneIsStillComing) {
  TempRoot root;
  { writer<Tiny>(root, 4); }
  const Kit::FileDescriptor lock(
      ::open((root.path() / "a/b/table.lock").c_str(), O_RDWR | O_CLOEXEC));
  struct flock whole {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(lock.get(), F_OFD_SETLK, &whole), 0);
  expectPart(thrown<WriterPresentException>([&] { writer<Tiny>(root, 4); }), "another process");
}

TEST(OneWriter, KilledOneFreesItsPlaceAtOnce) {
  TempRoot root;
  const Shared<std::atomic<bool>> attached;
  const pid_t child = startChild([&] {
    const auto store = writer<Tiny>(root, 4);
    attached->store(true);
    for (;;) ::pause();
    return 0;
  });
  while (!attached->load()) std::this_thread::yield();
  EXPECT_EQ(Shoal::tableStatus(root, tableName).writerPid, child);
  EXPECT_THROW(writer<Tiny>(root, 4), WriterPresentException);
  ::kill(child, SIGKILL);
  endOfChild(child);
  EXPECT_EQ(Shoal::tableStatus(root, tableName).writerPid, 0);
  EXPECT_EQ(writer<Tiny>(root, 4)->generation(), 2u);
}

TEST(OneWriter, KilledOneFreesItsPlaceAlsoWhenAChildOfItLivesOn) {
  TempRoot root;
  const Shared<std::atomic<pid_t>> grandchild;
  const pid_t child = startChild([&] {
    const auto store = writer<Tiny>(root, 4);
    // It tells of itself: it gives the lock up as it begins to run, a little after it is there.
    startChild([&] {
      grandchild->store(::getpid());
      for (;;) ::pause();
      return 0;
    });
    for (;;) ::pause();
    return 0;
  });
  while (grandchild->load() == 0) std::this_thread::yield();
  EXPECT_THROW(writer<Tiny>(root, 4), WriterPresentException);
  ::kill(child, SIGKILL);
  endOfChild(child);
  EXPECT_NO_THROW(writer<Tiny>(root, 4));
  ::kill(grandchild->load(), SIGKILL);
}

TEST(OneWriter, HasNoPartnerInAChildProcess) {
  TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 4));
  map.put(Tiny::make(1, 1));
  EXPECT_EQ(runChild([&] {
              const bool reads = map.has(Tiny::keyOf(1));
              const auto text = thrown<Guard::Exception>([&] { map.put(Tiny::make(2, 1)); });
              map.storeIs(nullptr);
              return !reads || text.find("is a child of the writer") == std::string::npos;
            }),
            0);
  EXPECT_EQ(Shoal::tableStatus(root, tableName).writerPid, ::getpid());
  EXPECT_TRUE(map.put(Tiny::make(2, 1)));
}

TEST(OneWriter, RaisesTheGenerationForThoseWhoAreAttached) {
  TempRoot root;
  writer<Tiny>(root, 4).reset();
  const auto watching = reader<Tiny>(root);
  EXPECT_EQ(watching->generation(), 1u);
  const auto second = writer<Tiny>(root, 4);
  EXPECT_EQ(watching->generation(), 2u);
}

TEST(OneWriter, FindsTheTableAsTheLastOneLeftIt) {
  TempRoot root;
  { MapOf<Tiny>(writer<Tiny>(root, 4)).put(Tiny::make(1, 7)); }
  const MapOf<Tiny> map(writer<Tiny>(root, 4));
  EXPECT_EQ(map.walk(), std::vector<Tiny>{Tiny::make(1, 7)});
}

TEST(OneWriter, KeepsALargerCapacityAndRefusesASmallerOne) {
  TempRoot root;
  writer<Tiny>(root, 8).reset();
  EXPECT_EQ(writer<Tiny>(root, 5)->capacity(), 8u);
  expectPart(thrown<AttachException>([&] { writer<Tiny>(root, 9); }),
             "capacity 8, expected at least 9");
}

TEST(OneWriter, IsTheOnlyOneWhoMayWrite) {
  TempRoot root;
  const auto first = writer<Tiny>(root, 4);
  MapOf<Tiny> map(reader<Tiny>(root));
  expectPart(thrown<Guard::Exception>([&] { map.put(Tiny::make(1, 1)); }),
             "set requires a writer, but it is attached as reader");
  EXPECT_THROW(map.erase(Tiny::keyOf(1)), Guard::Exception);
  EXPECT_THROW(map.clear(), Guard::Exception);
  EXPECT_THROW(map.store()->wakeFollowers(), Guard::Exception);
}

TEST(OneWriter, IsNotKeptOutByReaders) {
  TempRoot root;
  writer<Tiny>(root, 4).reset();
  const auto one = reader<Tiny>(root), two = reader<Tiny>(root);
  EXPECT_NO_THROW(writer<Tiny>(root, 4));
}

// --- Files that are no such table ----------------------------------------------------------------

class Refused : public ::testing::Test {
 protected:
  Refused() : file_(Shoal::tableFile(root_, tableName)) {
    MapOf<Tiny>(writer<Tiny>(root_, 4)).put(Tiny::make(1, 1));
  }
  Shoal::Header header() const {
    Shoal::Header result;
    std::memcpy(&result, contents(file_).data(), sizeof result);
    return result;
  }
  void headerIs(const Shoal::Header& header) const {
    auto bytes = contents(file_);
    std::memcpy(bytes.data(), &header, sizeof header);
    contentsAre(file_, bytes);
  }
  // Reader and writer refuse the file with a text that has this part.
  void expectText(const std::string& part) const {
    expectPart(thrown<AttachException>([&] { reader<Tiny>(root_); }), part);
    expectPart(thrown<AttachException>([&] { writer<Tiny>(root_, 4); }), part);
    expectPart(thrown<AttachException>([&] { Shoal::attachReader(root_, tableName); }), part);
  }
  template <class Change>
  void expectTextAfter(Change change, const std::string& part) const {
    Shoal::Header changed = header();
    change(changed);
    headerIs(changed);
    expectText(part);
  }

  TempRoot root_;
  std::filesystem::path file_;
};

TEST_F(Refused, MissingTable) {
  expectPart(thrown<AttachException>([&] { reader<Tiny>(root_, "a/b/other"); }), "no such table");
  expectPart(thrown<AttachException>([&] { reader<Tiny>(root_, "a/c/table"); }), "No such file");
}

TEST_F(Refused, EmptyFile) {
  contentsAre(file_, {});
  expectText("not a shared table: 0 bytes, expected at least 512");
}

TEST_F(Refused, SomethingElse) {
  contentsAre(file_, std::vector<char>(8192, 'x'));
  expectText("not a shared table: it begins with 7878787878787878, expected 53484f414c54424c");
}

TEST_F(Refused, OtherVersion) {
  expectTextAfter([](auto& h) { h.version = 2; }, "format version 2, expected 1");
}

TEST_F(Refused, OtherByteOrder) {
  expectTextAfter([](auto& h) { h.byteOrder = 0x04030201; },
                  "other byte order: byte order mark 67305985, expected 16909060");
}

// Three places or four: every part of the file is where it would be, but for the words of the
// index.
TEST_F(Refused, OtherCapacityOfTheSamePlaces) {
  expectTextAfter([](auto& h) { h.capacity = 3; }, "layout hash ");
}

TEST_F(Refused, EntryTypeNameThatIsNone) {
  const Shoal::Header good = header();
  expectTextAfter([](auto& h) { h.typeName.fill('x'); },
                  "entry type name without an end, expected at most 127 bytes");
  headerIs(good);
  expectTextAfter([](auto& h) { h.typeName[100] = 'x'; },
                  "bytes after the end of the entry type name, expected zeros");
}

TEST_F(Refused, TruncatedFile) {
  const auto whole = contents(file_);
  for (size_t size = whole.size() - 4096; size >= 4096; size -= 4096) {
    contentsAre(file_, {whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    expectText("file size " + std::to_string(size) + ", expected " + std::to_string(whole.size()));
  }
}

TEST_F(Refused, FileCutShortAnywhere) {
  const auto whole = contents(file_);
  for (size_t size = 512; size < whole.size(); size += 64) {
    std::filesystem::resize_file(file_, size);
    const std::string text = thrown<AttachException>([&] { reader<Tiny>(root_); });
    expectPart(
        text, ": file size " + std::to_string(size) + ", expected " + std::to_string(whole.size()));
    contentsAre(file_, whole);
  }
}

TEST_F(Refused, LongerFile) {
  auto bytes = contents(file_);
  bytes.resize(bytes.size() + 4096);
  contentsAre(file_, bytes);
  expectText("file size");
}

TEST_F(Refused, OtherEntryType) {
  Shoal::EntryLayout other = Tiny::layout();
  other.typeName = "Test::Other";
  expectPart(thrown<AttachException>([&] { Shoal::attachReader(root_, tableName, other); }),
             "entry type \"Test::Checked16\", expected \"Test::Other\"");
}

TEST_F(Refused, OtherSizes) {
  const auto refusal = [&](const Shoal::EntryLayout& layout) {
    return thrown<AttachException>([&] { Shoal::attachWriter(root_, tableName, layout, 4); });
  };
  Shoal::EntryLayout other = Tiny::layout();
  other.entrySize = 24;
  expectPart(refusal(other), "entry size 16, expected 24");
  other = Tiny::layout();
  other.keyOffset = 8;
  expectPart(refusal(other), "key offset 4, expected 8");
  other = Tiny::layout();
  other.keySize = 8;
  expectPart(refusal(other), "key size 4, expected 8");
}

TEST_F(Refused, ImpossibleLayouts) {
  const auto refusal = [&](uint32_t entry, uint32_t offset, uint32_t key, uint64_t capacity) {
    return thrown<AttachException>([&] {
      Shoal::attachWriter(root_, "new", {"T", entry, offset, key}, capacity);
    });
  };
  expectPart(refusal(0, 0, 4, 1), "entry size 0");
  expectPart(refusal(16385, 0, 4, 1), "entry size 16385");
  expectPart(refusal(16, 0, 0, 1), "key size 0");
  expectPart(refusal(16, 13, 4, 1), "key of 4 bytes at 13");
  expectPart(refusal(16, 0xFFFFFFFC, 4, 1), "key of 4 bytes at 4294967292");
  expectPart(refusal(16, 0, 4, 0), "capacity 0");
  expectPart(refusal(16, 0, 4, uint64_t{1} << 32), "capacity 4294967296");
  for (const std::string& name : {std::string(), std::string(128, 'T'), std::string("T\0T", 3)}) {
    expectPart(thrown<AttachException>([&] {
                 Shoal::attachWriter(root_, "new", {name, 16, 0, 4}, 1);
               }),
               "entry type name");
  }
  EXPECT_EQ(Shoal::tablesBelow(root_), std::vector<std::string>{tableName});
}

TEST_F(Refused, StateThatNoWriterLeaves) {
  const auto refusal = [&](auto change, const std::string& part) {
    const Shoal::Header good = header();
    Shoal::Header changed = good;
    change(changed);
    headerIs(changed);
    expectPart(thrown<AttachException>([&] { writer<Tiny>(root_, 4); }), "damaged: " + part);
    headerIs(good);
  };
  refusal([](auto& h) { h.highWater = 99; }, "high water 99");
  refusal([](auto& h) { h.live = 2; }, "entries 2, expected at most 1");
  refusal([](auto& h) { h.freeHead = 2; }, "free slot 2");
  refusal([](auto& h) { h.slotsClaimed = 5; }, "slots claimed 5");
  refusal([](auto& h) { h.indexLevel = 1; }, "index level 1");
  refusal([](auto& h) { h.ringClaimed = 1025; }, "change records claimed 1025");
  refusal([](auto& h) { h.operation.kind = 4; }, "unfinished operation 4");
  refusal([](auto& h) { h.operation.slot = 4; }, "slot of the unfinished operation 4");
}

// Every byte of the header, with four patterns: refused, or read without harm.
TEST_F(Refused, OrHarmlessIsAnyHeaderWithOneOtherByte) {
  const auto good = contents(file_);
  uint32_t refused = 0, read = 0, corrupt = 0;
  for (size_t at = 0; at < sizeof(Shoal::Header); ++at) {
    for (const uint8_t pattern : {0x01, 0x80, 0xFF, 0x55}) {
      auto bytes = good;
      bytes[at] = static_cast<char>(bytes[at] ^ pattern);
      contentsAre(file_, bytes);
      try {
        const MapOf<Tiny> map(reader<Tiny>(root_));
        map.has(Tiny::keyOf(1));
        map.has(Tiny::keyOf(2));
        EXPECT_LE(map.walk().size(), 4u);
        auto follower = Shoal::follow(map.store(), 0);
        Shoal::ChangeFollower::Changes changes;
        follower->take(changes, 10);
        EXPECT_LE(changes.size(), 10u);
        ++read;
      } catch (const AttachException&) {
        ++refused;
      } catch (const Guard::CorruptionDetectedException&) {
        ++corrupt;
      }
      try {
        MapOf<Tiny> map(writer<Tiny>(root_, 4));
        map.put(Tiny::make(1, 2));
        map.put(Tiny::make(2, 2));
        map.erase(Tiny::keyOf(1));
      } catch (const Guard::Exception&) {
        // Which of the classes is checked above, field by field.
      }
    }
  }
  EXPECT_GE(refused, 200u * 4) << "all of the fixed part is checked";
  EXPECT_GE(read, 100u * 4);
  EXPECT_GE(corrupt, 1u);
}

// --- Paths ---------------------------------------------------------------------------------------

TEST(TablePaths, AreNamesSeparatedBySingleSlashes) {
  TempRoot root;
  for (const char* path : {"", "/a", "a/", "a//b", ".", "..", "../a", "a/../b", "a/./b"}) {
    EXPECT_THROW(Shoal::tableFile(root, path), AttachException) << path;
    EXPECT_THROW(writer<Tiny>(root, 4, path), AttachException) << path;
  }
  EXPECT_THROW(Shoal::tableFile(root, "a/" + std::string(201, 'b')), AttachException);
  EXPECT_THROW(Shoal::tableFile(root, std::string("a\0b", 3)), AttachException);
  EXPECT_EQ(Shoal::tableFile(root, "a/b"), root.path() / "a/b.shoal");
}

TEST(TablePaths, OfAllTablesBelowARootAreListedInOrder) {
  TempRoot root;
  for (const char* path : {"c", "a/b/d", "a/a"}) writer<Tiny>(root, 4, path);
  contentsAre(root.path() / "stray", {'x'});
  std::filesystem::create_directory(root.path() / "directory.shoal");
  EXPECT_EQ(Shoal::tablesBelow(root), (std::vector<std::string>{"a/a", "a/b/d", "c"}));
  EXPECT_TRUE(Shoal::tablesBelow(root.path() / "missing").empty());
}

TEST(TablePaths, OfTablesBelowARootThatCannotBeReadAreAnErrorAndNotNone) {
  TempRoot root;
  contentsAre(root.path() / "stray", {'x'});
  const std::string path = (root.path() / "stray").string();
  EXPECT_EQ(thrown<AttachException>([&] { Shoal::tablesBelow(path); }),
            "tables below \"" + path + "\": cannot list them: Not a directory");
}

TEST(TablePaths, MakeDirectoriesAndFilesForOwnerAndGroupOnly) {
  TempRoot root;
  const auto store = writer<Tiny>(root, 4);
  const auto mode = [&](const char* part) {
    struct stat status {};
    EXPECT_EQ(::stat((root.path() / part).c_str(), &status), 0);
    return status.st_mode & 07777;
  };
  EXPECT_EQ(mode("a"), 0750u);
  EXPECT_EQ(mode("a/b"), 0750u);
  EXPECT_EQ(mode("a/b/table.shoal"), 0640u);
  EXPECT_EQ(mode("a/b/table.lock"), 0640u);
}

TEST(TablePaths, AreNotFollowedThroughSymbolicLinks) {
  TempRoot root, elsewhere;
  writer<Tiny>(elsewhere, 4).reset();
  std::filesystem::create_directory_symlink(elsewhere.path() / "a", root.path() / "a");
  EXPECT_THROW(reader<Tiny>(root), AttachException);
  EXPECT_THROW(writer<Tiny>(root, 4), AttachException);
  std::filesystem::create_symlink(elsewhere.path() / "a/b/table.shoal", root.path() / "x.shoal");
  EXPECT_THROW(reader<Tiny>(root, "x"), AttachException);
  EXPECT_THROW(writer<Tiny>(root, 4, "x"), AttachException);
  std::filesystem::create_directory_symlink(elsewhere.path(), root.path() / "root");
  EXPECT_THROW(reader<Tiny>(root.path() / "root"), AttachException);
}

TEST(TablePaths, LeadToPlainFilesOfOneNameOnly) {
  TempRoot root;
  std::filesystem::create_directory(root.path() / "directory.shoal");
  ASSERT_EQ(::mkfifo((root.path() / "fifo.shoal").c_str(), 0600), 0);
  writer<Tiny>(root, 4, "linked").reset();
  std::filesystem::create_hard_link(root.path() / "linked.shoal", root.path() / "also.shoal");
  for (const char* path : {"directory", "fifo", "linked", "also"}) {
    EXPECT_THROW(reader<Tiny>(root, path), AttachException) << path;
    EXPECT_THROW(writer<Tiny>(root, 4, path), AttachException) << path;
  }
}

TEST(TablePaths, ThroughADirectoryThatIsOpenToAllWritersAreRefused) {
  TempRoot root;
  writer<Tiny>(root, 4).reset();
  std::filesystem::permissions(root.path() / "a", std::filesystem::perms::all);
  expectPart(thrown<AttachException>([&] { reader<Tiny>(root); }), "open to all writers");
}

TEST(TablePaths, ToAFileThatIsOpenToAllWritersAreRefused) {
  TempRoot root;
  writer<Tiny>(root, 4).reset();
  std::filesystem::permissions(Shoal::tableFile(root, tableName), std::filesystem::perms::all);
  expectPart(thrown<AttachException>([&] { reader<Tiny>(root); }), "open to all writers");
}

TEST(TablePaths, ThroughADirectoryOrToAFileThatIsOpenToItsGroupsWritersAreRefused) {
  using std::filesystem::perms;
  TempRoot root;
  writer<Tiny>(root, 4).reset();
  for (const char* part : {"a", "a/b/table.shoal", "a/b/table.lock"}) {
    const auto before = std::filesystem::status(root.path() / part).permissions();
    std::filesystem::permissions(root.path() / part, before | perms::group_write);
    expectPart(thrown<AttachException>([&] { writer<Tiny>(root, 4); }),
               std::filesystem::path(part).filename().string() +
                   " is open to the writers of its group, expected its owner");
    std::filesystem::permissions(root.path() / part, before);
  }
  EXPECT_NO_THROW(writer<Tiny>(root, 4));
}

TEST(TablePaths, HaveTheirModesWhateverTheProcessMasks) {
  for (const mode_t mask : {0, 077}) {
    TempRoot root;
    const mode_t before = ::umask(mask);
    writer<Tiny>(root, 4).reset();
    ::umask(before);
    for (const char* part : {"a", "a/b", "a/b/table.shoal", "a/b/table.lock"}) {
      const auto mode = std::filesystem::status(root.path() / part).permissions();
      EXPECT_EQ(static_cast<unsigned>(mode), std::string_view(part).size() > 3 ? 0640u : 0750u)
          << part << " under " << mask;
    }
  }
}

TEST(TablePaths, BelowADirectoryInWhichAnybodyMayExchangeTheRootAreRefused) {
  TempRoot above;
  const auto root = above.path() / "root";
  writer<Tiny>(root, 4).reset();
  ::chmod(above.path().c_str(), 0777);
  for (const auto& call : std::vector<std::function<void()>>{[&] { writer<Tiny>(root, 4); },
                                                             [&] { reader<Tiny>(root); }}) {
    expectPart(thrown<AttachException>(call), "is open to all writers and not sticky");
  }
  ::chmod(above.path().c_str(), 01777);
  EXPECT_NO_THROW(reader<Tiny>(root));
}

// A lock file that is a pipe was opened for writing before it was looked at.
TEST(TablePaths, AreLookedAtBeforeAnythingIsOpened) {
  TempRoot root;
  writer<Tiny>(root, 4).reset();
  const auto lock = root.path() / "a/b/table.lock";
  std::filesystem::remove(lock);
  ASSERT_EQ(::mkfifo(lock.c_str(), 0600), 0);
  const Kit::FileDescriptor pipe(::open(lock.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  expectPart(thrown<AttachException>([&] { writer<Tiny>(root, 4); }),
             "the file table.lock is a named pipe, expected a regular file");
  // A pipe that had a writer once says so by its end; one that never had does not.
  pollfd end{pipe.get(), POLLIN, 0};
  ::poll(&end, 1, 0);
  EXPECT_EQ(end.revents & POLLHUP, 0);
}

// What lay in the place of a new table's file was removed, whatever it was.
TEST(TablePaths, OfANewTableAreFreedOfNothingButACreatorsLeftovers) {
  TempRoot root;
  writer<Tiny>(root, 4, "other").reset();
  const auto leftover = root.path() / "table.shoal.new";
  std::filesystem::create_hard_link(root.path() / "other.shoal", leftover);
  expectPart(thrown<AttachException>([&] { writer<Tiny>(root, 4, "table"); }),
             "the file table.shoal.new has 2 names, expected one");
  EXPECT_TRUE(std::filesystem::exists(leftover));
  std::filesystem::remove(leftover);
  std::filesystem::create_symlink("other.shoal", leftover);
  expectPart(thrown<AttachException>([&] { writer<Tiny>(root, 4, "table"); }),
             "the file table.shoal.new is a symbolic link, expected a regular file");
  EXPECT_TRUE(std::filesystem::is_symlink(leftover));
  std::filesystem::remove(leftover);
  contentsAre(leftover, {'x'});
  EXPECT_NO_THROW(writer<Tiny>(root, 4, "table"));
  EXPECT_FALSE(std::filesystem::exists(leftover));
}

TEST(TablePaths, OfAnotherUserAreNotTheWriters) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  for (const char* part : {"a", "a/b", "a/b/table.shoal", "a/b/table.lock"}) {
    TempRoot root;
    writer<Tiny>(root, 4).reset();
    ASSERT_EQ(::chown((root.path() / part).c_str(), 4242, 4242), 0);
    const std::string name = std::filesystem::path(part).filename().string();
    expectPart(thrown<AttachException>([&] { writer<Tiny>(root, 4); }),
               name + " belongs to user 4242, expected 0");
    if (name == "table.lock") continue;
    expectPart(thrown<AttachException>([&] { reader<Tiny>(root); }),
               name + " belongs to user 4242, expected 0");
  }
}

TEST(TablePaths, DefaultToADirectoryOfTheUsersOwn) {
  ::unsetenv("SHOAL_ROOT");
  EXPECT_EQ(Shoal::defaultRoot(), "/dev/shm/shoal-" + std::to_string(::getuid()));
  ::setenv("SHOAL_ROOT", "", 1);
  EXPECT_EQ(Shoal::defaultRoot(), "/dev/shm/shoal-" + std::to_string(::getuid()));
  ::setenv("SHOAL_ROOT", "/dev/shm/elsewhere", 1);
  EXPECT_EQ(Shoal::defaultRoot(), "/dev/shm/elsewhere");
  ::unsetenv("SHOAL_ROOT");
}

// --- Removal, status, snapshots, corruption ------------------------------------------------------

TEST(RemovingATable, IsDoneByItsWriterOrWhenItHasNone) {
  TempRoot root;
  Shoal::removeTable(root, tableName);  // nothing there: nothing happens
  {
    const auto store = writer<Tiny>(root, 4);
    Shoal::removeTable(root, tableName);
    EXPECT_TRUE(Shoal::tablesBelow(root).empty());
  }
  writer<Tiny>(root, 4).reset();
  Shoal::removeTable(root, tableName);
  EXPECT_THROW(reader<Tiny>(root), AttachException);
  EXPECT_EQ(writer<Tiny>(root, 4)->generation(), 1u) << "a new table";
}

TEST(RemovingATable, IsRefusedWhileAnotherProcessIsItsWriter) {
  TempRoot root;
  const auto store = writer<Tiny>(root, 4);
  const std::string holder = "process " + std::to_string(::getpid());
  EXPECT_EQ(runChild([&] {
              const auto text =
                  thrown<WriterPresentException>([&] { Shoal::removeTable(root, tableName); });
              return text.find(holder) == std::string::npos;
            }),
            0);
  EXPECT_EQ(Shoal::tablesBelow(root).size(), 1u);
}

TEST(RemovingATable, LeavesAttachedReadersWithWhatTheyHave) {
  TempRoot root;
  { MapOf<Tiny>(writer<Tiny>(root, 4)).put(Tiny::make(1, 1)); }
  const MapOf<Tiny> map(reader<Tiny>(root));
  Shoal::removeTable(root, tableName);
  EXPECT_TRUE(map.has(Tiny::keyOf(1)));
}

TEST(StatusOfATable, IsWhatItsHeaderAndItsFileSay) {
  TempRoot root;
  MapOf<Route> map(writer<Route>(root, 1000));
  for (uint32_t number = 0; number < 10; ++number) map.put(Route::make(number, 1));
  map.erase(Route::keyOf(3));
  const auto status = Shoal::tableStatus(root, tableName);
  EXPECT_EQ(status.path, tableName);
  EXPECT_TRUE(status.layout == Route::layout());
  EXPECT_FALSE(status.layout == Tiny::layout());
  EXPECT_EQ(status.entries, 9u);
  EXPECT_EQ(status.capacity, 1000u);
  EXPECT_EQ(status.generation, 1u);
  EXPECT_EQ(status.changes, 11u);
  EXPECT_EQ(status.writerPid, ::getpid());
  EXPECT_GT(status.bytes, 10u * 64);
  EXPECT_LT(status.bytes, 256u << 10);
}

TEST(StatusOfATable, ThatIsNotInItsDirectoryIsAnError) {
  TempRoot root;
  writer<Tiny>(root, 4, "a/here");
  expectPart(thrown<AttachException>([&] { Shoal::tableStatus(root, "a/missing"); }),
             "no such table");
}

TEST(StatusOfATable, WhoseLockCannotBeLookedAtIsAnErrorAndNotThatItHasNoWriter) {
  TempRoot root;
  const auto store = writer<Tiny>(root, 4);
  std::filesystem::rename(root.path() / "a/b/table.lock", root.path() / "a/b/elsewhere");
  std::filesystem::create_symlink("elsewhere", root.path() / "a/b/table.lock");
  expectPart(thrown<AttachException>([&] { Shoal::tableStatus(root, tableName); }),
             "cannot open the file table.lock: Too many levels of symbolic links");
}

TEST_F(Refused, OrNotAStatusNeverShowsMoreEntriesThanPlaces) {
  Shoal::Header changed = header();
  changed.live = 77;
  headerIs(changed);
  EXPECT_EQ(Shoal::tableStatus(root_, tableName).entries, 4u);
  EXPECT_EQ(reader<Tiny>(root_)->size(), 4u);
}

TEST(AddressInATable, LeadsToItsNameAsLongAsItIsAttached) {
  TempRoot root;
  auto store = std::dynamic_pointer_cast<Shoal::Store>(writer<Tiny>(root, 4));
  const auto other = writer<Tiny>(root, 4, "other");
  const std::byte* base = store->view().base;
  const uint64_t size = store->view().plan.fileSize;
  EXPECT_STREQ(Shoal::tableAtAddress(base), "a/b/table");
  EXPECT_STREQ(Shoal::tableAtAddress(base + size - 1), "a/b/table");
  EXPECT_EQ(Shoal::tableAtAddress(base - 1), nullptr);
  EXPECT_EQ(Shoal::tableAtAddress(base + size), nullptr);
  EXPECT_EQ(Shoal::tableAtAddress(&store), nullptr);
  store.reset();
  EXPECT_EQ(Shoal::tableAtAddress(base), nullptr);
}

// A process knows the names of 256 attachments; more of them do no harm.
TEST(AddressInATable, BeyondThePlacesForNamesLeadsToNone) {
  TempRoot root;
  writer<Tiny>(root, 4);
  std::vector<std::shared_ptr<Shoal::Store>> many;
  while (many.size() < 300) {
    many.push_back(std::dynamic_pointer_cast<Shoal::Store>(reader<Tiny>(root)));
  }
  EXPECT_STREQ(Shoal::tableAtAddress(many.front()->view().base), "a/b/table");
  EXPECT_EQ(Shoal::tableAtAddress(many.back()->view().base), nullptr);
  many.clear();
  const auto last = std::dynamic_pointer_cast<Shoal::Store>(reader<Tiny>(root));
  EXPECT_STREQ(Shoal::tableAtAddress(last->view().base), "a/b/table");
}

TEST(AddressInATable, HasAPageBeforeAndBehindItThatNobodyMayTouch) {
  TempRoot root;
  const auto store = std::dynamic_pointer_cast<Shoal::Store>(writer<Tiny>(root, 4));
  const std::byte* base = store->view().base;
  const std::byte* end = base + store->view().plan.fileSize;
  for (const volatile std::byte* at : {base - 1, base - 4096, end, end + 4095}) {
    const int status = endOfChild(startChild([&] {
      ::signal(SIGSEGV, SIG_DFL);
      return std::to_integer<int>(*at);
    }));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
  }
}

TEST(Snapshot, IsACopyAsOfAttach) {
  TempRoot root;
  MapOf<Route> map(writer<Route>(root, 100));
  for (uint32_t number = 0; number < 50; ++number) map.put(Route::make(number, 1));
  map.erase(Route::keyOf(0));
  const MapOf<Route> copy(Shoal::attachSnapshot(root, tableName, Route::layout()));
  const auto before = map.walk();
  map.clear();
  map.put(Route::make(99, 2));
  EXPECT_EQ(copy.mode(), Shoal::Mode::snapshot);
  EXPECT_EQ(copy.walk(), before);
  EXPECT_EQ(copy.size(), 49u);
  EXPECT_EQ(copy.capacity(), 100u);
  EXPECT_EQ(copy.store()->generation(), 1u);
  EXPECT_FALSE(copy.has(Route::keyOf(99)));
  expectPart(thrown<Guard::Exception>([&] { copy.store()->clear(); }), "attached as snapshot");
  EXPECT_THROW(Shoal::follow(copy.store()), Guard::Exception);
  EXPECT_THROW(Shoal::checkTable(*copy.store()), Guard::Exception);
}

TEST(Store, ThatIsNotInSharedMemoryHasNoChangesToFollowAndNothingToCheck) {
  const auto store = std::make_shared<adapter_tests::MemoryStore>(Tiny::layout());
  expectPart(thrown<Guard::Exception>([&] { Shoal::follow(store); }), "\"memory\"");
  expectPart(thrown<Guard::Exception>([&] { Shoal::follow(nullptr); }), "\"\"");
  EXPECT_THROW(Shoal::checkTable(*store), Guard::Exception);
}

TEST(Corruption, IsCountedAndNeverThrown) {
  TempRoot root;
  const auto store = writer<Tiny>(root, 4);
  EXPECT_EQ(store->corruptionsDetected(), 0u);
  store->corruptionDetected("as found by somebody");
  store->corruptionDetected("as found by somebody else");
  EXPECT_EQ(store->corruptionsDetected(), 2u);
}

TEST(Corruption, IsTracedWhereThatIsAskedFor) {
  TempRoot root;
  const auto store = writer<Tiny>(root, 4);
  std::ostringstream out;
  Trace::outputIs(&out);
  Trace::handle("Shoal").levelIs(0, true);
  store->corruptionDetected("as found by somebody");
  Trace::handle("Shoal").levelIs(0, false);
  store->corruptionDetected("as found by nobody");
  Trace::outputIs(nullptr);
  expectPart(out.str(), "as found by somebody");
  EXPECT_EQ(out.str().find("nobody"), std::string::npos);
}

// Changes words of the table's file behind its back.
void wordsAre(const std::filesystem::path& root,
              std::initializer_list<std::pair<std::streamoff, uint32_t>> words) {
  std::fstream file(Shoal::tableFile(root, tableName),
                    std::ios::binary | std::ios::in | std::ios::out);
  for (const auto& [at, value] : words) {
    file.seekp(at);
    file.write(reinterpret_cast<const char*>(&value), sizeof value);
  }
}

// The first slot's sequence stands at 4096; record 0 of the journal, with the entry that the second
// put replaces, at 512: sequence, slot, entry.
void putTwice(MapOf<Tiny>& map) {
  map.put(Tiny::make(1, 1));
  map.put(Tiny::make(1, 2));
}

TEST(Corruption, OfAJournalThatKeepsAnotherKeysEntryIsReported) {
  TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 4));
  putTwice(map);
  wordsAre(root, {{4096, 3}});  // as if the second put were under way
  EXPECT_EQ(map.walk(), std::vector<Tiny>{Tiny::make(1, 1)}) << "the entry that the journal keeps";
  wordsAre(root, {{512 + 8 + 4, 2}});
  expectPart(thrown<Guard::CorruptionDetectedException>([&] { map.has(Tiny::keyOf(1)); }),
             "the journal does not hold its entry");
  EXPECT_THROW(map.walk(), Guard::CorruptionDetectedException);
}

// As if the second put had been under way when its writer was killed. Operation at 416: kind, slot,
// entries before, sequence.
TEST(Corruption, OfAJournalThatKeepsAnotherKeysEntryStopsTheRepair) {
  TempRoot root;
  {
    MapOf<Tiny> map(writer<Tiny>(root, 4));
    putTwice(map);
  }
  wordsAre(
      root,
      {{4096, 3}, {416, Shoal::OperationRecord::replace}, {420, 0}, {428, 3}, {512 + 8 + 4, 2}});
  expectPart(thrown<Guard::CorruptionDetectedException>([&] { writer<Tiny>(root, 4); }),
             "the journal does not hold its entry");
}

TEST(Corruption, OfASlotThatIsRewrittenByNobodyIsReported) {
  TempRoot root;
  MapOf<Tiny> map(writer<Tiny>(root, 4));
  map.put(Tiny::make(1, 1));
  wordsAre(root, {{4096, 77}});
  expectPart(thrown<Guard::CorruptionDetectedException>([&] { map.has(Tiny::keyOf(1)); }),
             "the journal does not hold its entry");
  EXPECT_THROW(map.walk(), Guard::CorruptionDetectedException);
}

TEST(Sizes, OfKeysAndEntriesAreChecked) {
  TempRoot root;
  const auto store = writer<Tiny>(root, 4);
  std::array<std::byte, 16> entry{};
  const Shoal::Bytes key = Shoal::Bytes(entry).subspan(4, 4);
  expectPart(thrown<Guard::Exception>([&] { store->set(key, Shoal::Bytes(entry).first(15)); }),
             "entry of 15 bytes, expected 16");
  expectPart(thrown<Guard::Exception>([&] { store->erase(key.first(3)); }),
             "key of 3 bytes, expected 4");
}

}  // namespace
}  // namespace ShoalTest
