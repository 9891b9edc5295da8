// What the table tests share: a private root, typed maps and their models, and children that are
// stopped or killed.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/ShoalMap.h"
#include "torture/Entries.h"

namespace ShoalTest {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

// A directory on a memory file system that goes with the test.
class TempRoot {
 public:
  TempRoot() {
    std::string name = "/dev/shm/shoal-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private directory");
    path_ = name;
  }
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }
  operator const std::filesystem::path&() const { return path_; }

 private:
  std::filesystem::path path_;
};

using Torture::Checked;
using Torture::collidingKeys;
using Torture::Group;
using Torture::Odd;
using Torture::Route;
using Torture::Tiny;

inline const std::string tableName = "a/b/table";

template <class Entry>
std::shared_ptr<Shoal::TableStore> writer(const std::filesystem::path& root, uint64_t capacity,
                                          const std::string& name = tableName) {
  return Shoal::attachWriter(root, name, Entry::layout(), capacity);
}
template <class Entry>
std::shared_ptr<Shoal::TableStore> reader(const std::filesystem::path& root,
                                          const std::string& name = tableName) {
  return Shoal::attachReader(root, name, Entry::layout());
}

// A typed map over a store.
template <class Entry>
struct MapOf : Entry::Map {
  explicit MapOf(std::shared_ptr<Shoal::TableStore> store) { this->storeIs(std::move(store)); }

  bool put(const Entry& entry) { return this->set(entry.id, entry); }
  bool has(const typename Entry::Key& key) const {
    bool found = false;
    this->safeLookup(key, found);
    return found;
  }
  // All entries, by a walk with a hint.
  std::vector<Entry> walk() const {
    std::vector<Entry> result;
    Shoal::IterHint hint;
    Entry entry{};
    for (bool more = this->first(hint, entry); more; more = this->next(entry.id, hint, entry)) {
      result.push_back(entry);
    }
    return result;
  }
};

// What a look-up of many keys at once answers. There is something in its places before.
template <class Entry>
struct Found {
  Found(const MapOf<Entry>& map, const std::vector<typename Entry::Key>& keys)
      : entries(keys.size()), isThere(new bool[keys.size()]) {
    std::ranges::fill(std::as_writable_bytes(std::span(entries)), std::byte{0x5a});
    std::fill_n(isThere.get(), keys.size(), true);
    map.lookupBatch(keys, entries, {isThere.get(), keys.size()});
  }
  std::vector<Entry> entries;
  std::unique_ptr<bool[]> isThere;
};

template <class Entry>
using Model = std::map<typename Entry::Key, Entry>;

// Compares a table with its model in every way that it can be read.
template <class Entry>
void expectSame(const MapOf<Entry>& map, const Model<Entry>& model) {
  ASSERT_EQ(map.size(), model.size());
  Model<Entry> seen;
  for (const Entry& entry : map.walk()) {
    ASSERT_TRUE(seen.emplace(entry.id, entry).second) << "an entry came twice";
  }
  ASSERT_TRUE(seen == model);
  std::vector<typename Entry::Key> keys;
  for (const auto& [key, entry] : model) {
    bool found = false;
    ASSERT_TRUE(map.safeLookup(key, found) == entry);
    ASSERT_TRUE(found);
    keys.push_back(key);
  }
  const Found<Entry> found(map, keys);
  for (size_t i = 0; i < keys.size(); ++i) {
    ASSERT_TRUE(found.isThere[i]);
    ASSERT_TRUE(found.entries[i] == model.at(keys[i]));
  }
}

// Runs `body` in a child process, which exits with its answer.
inline pid_t startChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  int result = 99;
  try {
    result = body();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "child: %s\n", error.what());
  }
  ::_exit(result);
}
inline int endOfChild(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}
inline int runChild(const std::function<int()>& body) {
  const int status = endOfChild(startChild(body));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A value that parent and children share.
template <class T>
class Shared {
 public:
  Shared() {
    void* memory =
        ::mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    value_ = new (memory) T{};
  }
  ~Shared() { ::munmap(value_, sizeof(T)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  T* operator->() const { return value_; }
  T& operator*() const { return *value_; }

 private:
  T* value_;
};

inline std::vector<char> contents(const std::filesystem::path& file) {
  std::error_code missing;
  const auto size = std::filesystem::file_size(file, missing);
  std::vector<char> bytes(missing ? 0 : size);
  std::ifstream(file, std::ios::binary)
      .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}
inline void contentsAre(const std::filesystem::path& file, const std::vector<char>& bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The text of the exception of class E that `call` throws; fails the test if it throws none.
template <class E>
std::string thrown(const std::function<void()>& call) {
  try {
    call();
  } catch (const E& error) {
    return error.what();
  } catch (const std::exception& error) {
    ADD_FAILURE() << "another exception: " << error.what();
    return {};
  }
  ADD_FAILURE() << "no exception";
  return {};
}

// The other build's test program, named by SHOAL_PEER, plays the part of a process of the other
// word size.
inline bool peerRuns(const char* test, const std::filesystem::path& root) {
  const std::string command = "SHOAL_PEER_ROOT=" + root.string() + ' ' + std::getenv("SHOAL_PEER") +
                              " --gtest_also_run_disabled_tests --gtest_filter=" + test +
                              " >/dev/null";
  return std::system(command.c_str()) == 0;
}

}  // namespace ShoalTest
