// Programs next hops, groups and routes as a controller does: by the names of the pipeline, in
// batches.
#pragma once

#include <google/protobuf/arena.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/p4rt-client/Catalog.h"
#include "tools/p4rt-client/Client.h"

namespace P4Client {

// Where routes go and where they lead.
struct RouteSettings {
  std::string kind = "override";  // or "fallback", or "vrf"
  uint32_t vrf = 1;
  uint32_t firstMember = 1;  // ids of the next hops; route i leads to firstMember + i % members
  uint32_t members = 8;
  uint32_t group = 0;  // if not 0: every route leads to this group of all members
};

struct Tally {
  uint64_t applied = 0;
  uint64_t failed = 0;
  std::string firstFailure;
};

// Updates, gathered into Writes.
class Batches {
 public:
  Batches(Client& client, Sending sending);
  p4::v1::Entity& next(p4::v1::Update::Type type);
  // Sends what there is and waits for all.
  void flush();
  const Tally& tally() const { return tally_; }

 private:
  void send();

  Client& client_;
  const uint32_t size_;
  google::protobuf::Arena arena_;  // of the request and all its parts, which go at once
  p4::v1::WriteRequest* request_ = nullptr;
  Tally tally_;
  Writes writes_;
};

void programMembers(const Catalog& catalog, const RouteSettings& settings, Batches& batches);
void deleteMembers(const Catalog& catalog, const RouteSettings& settings, Batches& batches);
void putRoute(const Catalog& catalog, const RouteSettings& settings,
              const Wire::IpGenPrefix& prefix, uint64_t number, p4::v1::TableEntry& entry);

// Reads the tables that the routes are in and counts the routes that are there as programmed; the
// text names the first that is not, if any.
Tally verifyRoutes(Client& client, const Catalog& catalog, const RouteSettings& settings,
                   const std::vector<Wire::IpGenPrefix>& prefixes);

// One prefix a line, "-" is standard input; blank lines and those that begin with '#' are skipped.
// Throws Tools::Failure for a line that is no prefix.
std::vector<Wire::IpGenPrefix> readPrefixes(const std::string& file);

}  // namespace P4Client
