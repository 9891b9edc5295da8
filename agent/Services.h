// What clients reach over sockets, as the agent sees it: started once the tables are mounted, and
// stopped before they are cleaned up.
//
// A build has one implementation: that of agent/rpc, or one without services where gRPC is missing.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "agent/EventLoop.h"
#include "agent/Options.h"
#include "platform/Vane/VaneDB.h"

namespace Agent {

class Services {
 public:
  virtual ~Services() = default;  // stops

  // What services need of the agent; all on the loop's thread.
  struct Needs {
    EventLoop& loop;
    std::shared_ptr<Vane::VaneDB> database;
    std::function<void()> afterBatch;  // to be called after each batch that may have changed tables
    std::function<uint64_t(const std::string& path)> capacityOf;  // of a table; 0: not known
  };

  // On the loop's thread, as all calls. Throws what listening throws; nothing is served then.
  virtual void start(Needs needs) = 0;
  // Turns away calls that wait for the loop, ends the others, and returns when none is left.
  virtual void stop() = 0;
  // The P4Info that is offered to controllers, as text. Needs the plug-ins, but no tables.
  virtual std::string p4InfoText() const = 0;
};

// Throws for options that the build cannot serve, or that name no address.
std::unique_ptr<Services> makeServices(const Options& options);

}  // namespace Agent
