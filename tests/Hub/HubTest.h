// A reference hub with its tables in a directory of its own and its loop in the test's hands.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/Hub/Mount.h"
#include "platform/Hub/ReferenceHub.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/State/EcmpTypes.h"
#include "platform/State/RoutingTypes.h"

namespace HubTest {

class TempRoot {
 public:
  TempRoot() {
    std::string name = "/dev/shm/hub-test-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no private directory");
    path = name;
  }
  TempRoot(const TempRoot&) = delete;
  ~TempRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::filesystem::path path;
};

// Work that was posted, until the test runs it.
class Loop {
 public:
  Hub::Post post() {
    return [this](std::function<void()> work) { posted_.push_back(std::move(work)); };
  }
  size_t posted() const { return posted_.size(); }
  void run() {
    while (!posted_.empty()) {
      const auto work = std::move(posted_.front());
      posted_.pop_front();
      work();
    }
  }

 private:
  std::deque<std::function<void()>> posted_;
};

inline KitShoal::MountInfo tableOf(uint32_t size) {
  KitShoal::MountInfo info(KitShoal::KitShoalType::hashTable);
  info.collectionInfoIs({"entries", size});
  return info;
}

class Fixture : public testing::Test {
 protected:
  Kit::Ptr<Hub::EntityManager> makeManager() { return Hub::makeEntityManager(options()); }
  Hub::HubOptions options() {
    Hub::HubOptions options;
    options.shoalRoot = root.path;
    options.post = loop.post();
    options.capacities = {{"routing/big", 5000}};
    options.defaultCapacity = 64;
    return options;
  }
  bool fileThere(const std::string& path) const {
    return std::filesystem::exists(Shoal::tableFile(root.path, path));
  }

  TempRoot root;
  Loop loop;
  Kit::Ptr<Hub::EntityManager> manager = makeManager();
  KitShoal::Mount mount{manager};
};

inline constexpr auto memberType = "P4RuntimeRouting::EcmpMember";

}  // namespace HubTest
