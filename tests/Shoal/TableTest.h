// What the table tests share: a private root, entries that can be told from torn ones, keys that
// collide, and children that are stopped or killed.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Shoal/KeyHash.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/ShoalMap.h"

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

// An entry of `size` bytes with a key of `keyBytes` bytes at `keyAt`. All bytes but the key follow
// from the key's number and a version, so that a mixture of two entries shows.
template <size_t size, size_t keyAt, size_t keyBytes>
struct Checked {
  static constexpr size_t entrySize = size;
  using Key = std::array<uint8_t, keyBytes>;
  using Map = Shoal::ShoalMap<Key, Checked>;

  std::array<uint8_t, keyAt> before;
  Key id;
  std::array<uint8_t, size - keyAt - keyBytes> after;

  static constexpr auto key = &Checked::id;

  static Shoal::EntryLayout layout() {
    return {"Test::Checked" + std::to_string(size), size, keyAt, keyBytes};
  }
  static Key keyOf(uint32_t number) {
    Key result{};
    for (size_t i = 0; i < keyBytes && i < 4; ++i)
      result[i] = static_cast<uint8_t>(number >> 8 * i);
    return result;
  }
  static Checked make(const Key& key, uint32_t version) {
    Checked entry;
    entry.id = key;
    uint32_t state = version;
    for (const uint8_t byte : key) state = state * 31 + byte;
    entry.each([&](uint8_t& byte, size_t at) {
      if (at % 16 < 4) {
        byte = static_cast<uint8_t>(version >> 8 * (at % 4));
      } else {
        byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
      }
    });
    return entry;
  }
  static Checked make(uint32_t number, uint32_t version) { return make(keyOf(number), version); }

  uint32_t version() const {
    uint32_t result = 0;
    const_cast<Checked*>(this)->each([&](uint8_t& byte, size_t at) {
      if (at < 4) result |= uint32_t{byte} << 8 * at;
    });
    return result;
  }
  bool sound() const { return *this == make(id, version()); }

  friend bool operator==(const Checked& a, const Checked& b) {
    return std::memcmp(&a, &b, sizeof(Checked)) == 0;
  }

 private:
  // All bytes outside the key, counted from 0.
  template <class Visit>
  void each(Visit visit) {
    size_t at = 0;
    for (uint8_t& byte : before) visit(byte, at++);
    for (uint8_t& byte : after) visit(byte, at++);
  }
};

using Route = Checked<56, 24, 20>;  // the usual kind
using Tiny = Checked<16, 4, 4>;
using Odd = Checked<23, 5, 3>;       // nothing aligned to anything
using Group = Checked<8232, 28, 4>;  // larger than a page
static_assert(sizeof(Route) == 56 && sizeof(Tiny) == 16 && sizeof(Odd) == 23 &&
              sizeof(Group) == 8232);

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
  for (const auto& [key, entry] : model) {
    bool found = false;
    ASSERT_TRUE(map.safeLookup(key, found) == entry);
    ASSERT_TRUE(found);
  }
}

// Numbers whose keys begin their search at the same place of the smallest index of at least 1024
// words, and have the same tag in its lowest bits.
template <class Entry>
std::vector<typename Entry::Key> collidingKeys(size_t count, uint32_t words, uint32_t tagBits) {
  std::vector<typename Entry::Key> keys;
  uint64_t wanted = 0;
  for (uint32_t number = 0; keys.size() < count; ++number) {
    const auto key = Entry::keyOf(number);
    const uint64_t hash =
        Shoal::keyHash(reinterpret_cast<const std::byte*>(key.data()), key.size());
    const uint64_t part =
        (hash >> 32 & (words - 1)) << 32 | (hash & ((uint64_t{1} << tagBits) - 1));
    if (keys.empty()) wanted = part;
    if (part == wanted) keys.push_back(key);
  }
  return keys;
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

 private:
  T* value_;
};

inline std::vector<char> contents(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
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

}  // namespace ShoalTest
