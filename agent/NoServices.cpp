// A build without remote services says so when they are asked for.
#include "agent/Services.h"
#include "platform/Guard/Exception.h"

namespace Agent {
namespace {

class NotBuilt final : public Guard::Throwable<NotBuilt> {
 public:
  using Throwable::Throwable;
};

class NoServices final : public Services {
 public:
  void start(Needs) override {}
  void stop() override {}
  std::string p4InfoText() const override {
    NotBuilt::throwException("--print-p4info: this build has no remote services");
  }
};

}  // namespace

std::unique_ptr<Services> makeServices(const Options& options) {
  if (options.remote.isListenGiven && !options.remote.listen.empty()) {
    NotBuilt::throwException("--listen " + options.remote.listen.front() +
                             ": this build has no remote services; expected none");
  }
  if (options.remote.isRowSocketGiven && !options.remote.rowSocket.empty()) {
    NotBuilt::throwException("--rowdb-socket " + options.remote.rowSocket.string() +
                             ": this build has no remote services; expected none");
  }
  return std::make_unique<NoServices>();
}

}  // namespace Agent
