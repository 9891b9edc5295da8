// The reference entity manager: a tree of directories in this process, whose table entities are
// attached to shared-memory tables below one root directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>

#include "platform/Guard/Exception.h"
#include "platform/Hub/EntityManager.h"

namespace Hub {

// A mount that the tree refuses: the path cannot be one, is taken by something else, or the type is
// not that of a table. The text names the path and the cause.
class MountException final : public Guard::Throwable<MountException> {
 public:
  using Throwable::Throwable;
};

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

// Mounts are done when they are asked for, so a group is complete when it is closed, whatever its
// timeout (in seconds, not negative); its report is posted then. It is `failed` when a mount failed
// between the group's opening and its closing, unless it may be partial. Closing it again does
// nothing; a group that is dropped unclosed is never reported. A report that is under way keeps the
// mounter and the manager alive.
//
// A table entity that outlives its mount is left with a table that is empty and refuses writes with
// a MountException.
Kit::Ptr<EntityManager> makeEntityManager(HubOptions options);

// Ends the process with `status` and a line on standard error when a table that is mounted is cut
// short under it, as Shoal::endWhenCutShort tells. requires: called once.
void endWhenCutShort(const char* program, int status);

// The directory at the root of the manager's tree.
Kit::Ptr<Kit::Dir> rootDir(const Kit::Ptr<EntityManager>& entityManager);

// How many entries the table that is mounted at this path has room for; 0 if none is.
uint64_t mountedCapacity(const Kit::Ptr<EntityManager>& entityManager, const std::string& path);

// Wakes the followers of every mounted table; the loop calls it when it has finished a batch.
void flushMounts(const Kit::Ptr<EntityManager>& entityManager);

}  // namespace Hub
