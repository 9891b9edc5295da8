// Writes and reads routes at full speed, from one client or several, and tells the rates.
#pragma once

#include <cstdint>

#include "tools/common/Output.h"
#include "tools/p4rt-client/Client.h"

namespace P4Client {

struct BenchSettings {
  uint64_t routes = 200000;  // in all, for each kind of batch
  Sending sending;           // of each client
  uint32_t clients = 1;      // connections, each with a thread and a share of the routes
};

// The agent's IPv4 override table must hold none of the routes: they are inserted, read, and
// deleted again. One record: rates and latencies of the Writes.
void bench(const ClientOptions& options, const BenchSettings& settings,
           const Tools::OutputOptions& output);

}  // namespace P4Client
