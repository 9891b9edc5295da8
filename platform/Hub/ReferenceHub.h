// The reference entity manager: a tree of directories in this process, whose table entities are
// attached to shared-memory tables below one root directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>

#include "platform/Hub/EntityManager.h"

namespace Hub {

// Runs a piece of work later, on the agent's loop, after the present call has returned.
using Post = std::function<void(std::function<void()>)>;

struct HubOptions {
  std::filesystem::path shoalRoot;  // the tables' files lie below
  Post post;
  // Room asked for by table path, instead of what a mount asks for; a mount of size 0 gets
  // `defaultCapacity`.
  std::map<std::string, uint64_t> capacities;
  uint64_t defaultCapacity = 1024;
};

Kit::Ptr<EntityManager> makeEntityManager(HubOptions options);

// The directory at the root of the manager's tree.
Kit::Ptr<Kit::Dir> rootDir(const Kit::Ptr<EntityManager>& entityManager);

// Wakes the followers of every mounted table; the loop calls it when it has finished a batch.
void flushMounts(const Kit::Ptr<EntityManager>& entityManager);

}  // namespace Hub
