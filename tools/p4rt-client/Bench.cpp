#include "tools/p4rt-client/Bench.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "tools/common/Exit.h"
#include "tools/p4rt-client/Catalog.h"
#include "tools/p4rt-client/Program.h"

namespace P4Client {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

const RouteSettings settings;

// Distinct /32 routes in an address block of their own.
Wire::IpGenPrefix routeOf(uint64_t number) {
  constexpr uint32_t block = 0x0A000000;
  return Wire::IpGenPrefix::ipv4(block + static_cast<uint32_t>(number), 32);
}

struct Share {
  std::vector<p4::v1::WriteRequest> inserts;
  std::vector<p4::v1::WriteRequest> deletes;
  std::vector<double> latencies;  // seconds of each Write
  std::exception_ptr failure;
};

void prepare(const Client& client, const Catalog& catalog, uint64_t first, uint64_t end,
             uint32_t batch, p4::v1::Update::Type type,
             std::vector<p4::v1::WriteRequest>& requests) {
  for (uint64_t i = first; i < end; ++i) {
    if ((i - first) % batch == 0) client.begin(requests.emplace_back());
    auto& update = *requests.back().add_updates();
    update.set_type(type);
    putRoute(catalog, settings, routeOf(i), i, *update.mutable_entity()->mutable_table_entry());
  }
}

void send(Client& client, uint32_t inFlight, const std::vector<p4::v1::WriteRequest>& requests,
          Share& share) {
  try {
    Writes writes(client, inFlight, [&](const auto& results, const auto took) {
      for (const auto& result : results) {
        if (result.canonical_code() != 0) {
          throw Tools::Failure(Tools::ExitCode::failed, result.message());
        }
      }
      share.latencies.push_back(Seconds(took).count());
    });
    for (const auto& request : requests) writes.put(request);
    writes.finish();
  } catch (...) {
    share.failure = std::current_exception();
  }
}

// Every client sends its requests; the wall-clock seconds that all of them took.
double sendAll(std::vector<std::unique_ptr<Client>>& clients, uint32_t inFlight,
               std::vector<Share>& shares, std::vector<p4::v1::WriteRequest> Share::*requests) {
  const auto begun = Clock::now();
  std::vector<std::thread> threads;
  for (size_t i = 0; i < clients.size(); ++i) {
    threads.emplace_back([&, i] { send(*clients[i], inFlight, shares[i].*requests, shares[i]); });
  }
  for (auto& thread : threads) thread.join();
  const double seconds = Seconds(Clock::now() - begun).count();
  for (const Share& share : shares) {
    if (share.failure) std::rethrow_exception(share.failure);
  }
  return seconds;
}

double quantile(std::vector<double>& values, double part) {
  const auto at = values.begin() + static_cast<ptrdiff_t>(part * (values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

uint64_t whole(double value) { return static_cast<uint64_t>(std::llround(value)); }
uint64_t rate(uint64_t count, double seconds) {
  return whole(static_cast<double>(count) / seconds);
}

}  // namespace

void bench(const ClientOptions& options, const BenchSettings& bench,
           const Tools::OutputOptions& output) {
  Client primary(options);
  primary.becomePrimary();
  const Catalog catalog(primary.pipeline().p4info());
  Batches members(primary, bench.sending);
  programMembers(catalog, settings, members);

  std::vector<std::unique_ptr<Client>> clients;
  std::vector<Share> shares(bench.clients);
  for (uint32_t i = 0; i < bench.clients; ++i) {
    clients.push_back(std::make_unique<Client>(options));
    const uint64_t first = bench.routes * i / bench.clients;
    const uint64_t end = bench.routes * (i + 1) / bench.clients;
    prepare(*clients[i], catalog, first, end, bench.sending.batch, p4::v1::Update::INSERT,
            shares[i].inserts);
    prepare(*clients[i], catalog, first, end, bench.sending.batch, p4::v1::Update::DELETE,
            shares[i].deletes);
    clients[i]->apiVersion();  // connected
  }

  const double inserting = sendAll(clients, bench.sending.inFlight, shares, &Share::inserts);
  std::vector<double> latencies;
  for (const Share& share : shares) {
    latencies.insert(latencies.end(), share.latencies.begin(), share.latencies.end());
  }

  auto query = primary.newRead();
  query.add_entities()->mutable_table_entry()->set_table_id(
      catalog.table("ipv4.override").preamble().id());
  uint64_t read = 0;
  const auto begun = Clock::now();
  primary.read(query, [&](const p4::v1::ReadResponse& answer) { read += answer.entities_size(); });
  const double reading = Seconds(Clock::now() - begun).count();

  const double deleting = sendAll(clients, bench.sending.inFlight, shares, &Share::deletes);
  deleteMembers(catalog, settings, members);

  Tools::Output out;
  using Tools::number;
  Tools::RecordWriter records(
      out, output,
      {number("clients", 7), number("batch", 6), number("in_flight", 9), number("routes", 8),
       number("inserts_per_s", 13), number("deletes_per_s", 13), number("reads_per_s", 11),
       number("write_p50_us", 12), number("write_p99_us", 12)});
  records << bench.clients << bench.sending.batch << bench.sending.inFlight << bench.routes
          << rate(bench.routes, inserting) << rate(bench.routes, deleting) << rate(read, reading)
          << whole(quantile(latencies, 0.5) * 1e6) << whole(quantile(latencies, 0.99) * 1e6);
  records.endRecord();
  records.finish();
  if (read < bench.routes) {
    throw Tools::Failure(
        Tools::ExitCode::failed,
        fmt::format("read back {} entities, expected at least {}", read, bench.routes));
  }
}

}  // namespace P4Client
