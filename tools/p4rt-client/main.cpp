// p4rt-client: a P4Runtime client for trying out an agent, and for measuring one.
#include <fmt/format.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/json_util.h>

#include "tools/common/CommandLine.h"
#include "tools/common/Exit.h"
#include "tools/p4rt-client/Bench.h"
#include "tools/p4rt-client/Catalog.h"
#include "tools/p4rt-client/Client.h"
#include "tools/p4rt-client/Program.h"

namespace {

using namespace P4Client;

Tools::About about() {
  return {
      .name = "p4rt-client",
      .says = "Speaks P4Runtime with an agent: programs routes, reads them back, measures",
      .examples = {{"p4rt-client pipeline", "what the agent offers, as a P4Info"},
                   {"p4rt-client program --prefixes prefixes.txt --group 1",
                    "routes to every prefix of a list, by a group of eight next hops"},
                   {"p4rt-client read ipv4.override", "the entries of a table, one a line"},
                   {"p4rt-client bench --batch 1000 --clients 4", "writes and reads a second"}},
      .chapters = {},
      .seeAlso = {"p4rt-agent(1)", "shoalctl(1)", "vanectl(1)"},
  };
}

void addClientOptions(CLI::App& app, ClientOptions& options) {
  app.add_option("--address", options.address, "HOST:PORT of the agent, or unix:PATH")
      ->capture_default_str();
  app.add_option("--device-id", options.deviceId, "The agent's device id")->capture_default_str();
  app.add_option("--election-id", options.electionId, "The greatest of a role may write")
      ->capture_default_str();
  app.add_option("--role", options.role, "Name of the role (default: the one without limits)");
  auto* authority = app.add_option("--tls-ca", options.tlsAuthority,
                                   "Certificate that the agent's is signed with; turns TLS on");
  auto* key = app.add_option("--tls-key", options.tlsKey, "Our key")->needs(authority);
  app.add_option("--tls-cert", options.tlsCertificate, "Our certificate")->needs(key);
}

void addSendingOptions(CLI::App& app, Sending& sending) {
  app.add_option("--batch", sending.batch, "Updates in one Write")
      ->check(CLI::Range(1u, 1000000u))
      ->capture_default_str();
  app.add_option("--in-flight", sending.inFlight, "Writes under way at a time")
      ->check(CLI::Range(1u, 64u))
      ->capture_default_str();
}

void addRouteOptions(CLI::App& app, RouteSettings& settings, std::string& prefixes) {
  app.add_option("--prefixes", prefixes, "A list of prefixes, one a line; - is standard input")
      ->required();
  app.add_option("--table", settings.kind, "override, fallback or vrf; of the prefix's family")
      ->check(CLI::IsMember({"override", "fallback", "vrf"}))
      ->capture_default_str();
  app.add_option("--vrf", settings.vrf, "Routing instance, with --table vrf")
      ->capture_default_str();
  app.add_option("--first-member", settings.firstMember, "Id of the first next hop")
      ->check(CLI::Range(1u, 1000000000u))
      ->capture_default_str();
  app.add_option("--members", settings.members, "Next hops, with ids one after the other")
      ->check(CLI::Range(1u, 65536u))
      ->capture_default_str();
  app.add_option("--group", settings.group, "Lead every route to this group of all next hops");
}

void report(const Tally& tally, const Tools::OutputOptions& options) {
  Tools::Output out;
  Tools::RecordWriter records(out, options, {Tools::number("done"), Tools::number("failed")});
  records << tally.applied << tally.failed;
  records.endRecord();
  records.finish();
  if (tally.failed != 0) {
    throw Tools::Failure(Tools::ExitCode::failed,
                         fmt::format("{} failed; the first: {}", tally.failed, tally.firstFailure));
  }
}

void program(Client& client, const RouteSettings& settings, const std::string& file,
             const Sending& sending, const Tools::OutputOptions& options) {
  const auto prefixes = readPrefixes(file);
  client.becomePrimary();
  const Catalog catalog(client.pipeline().p4info());
  Batches batches(client, sending);
  programMembers(catalog, settings, batches);
  for (size_t i = 0; i < prefixes.size(); ++i) {
    putRoute(catalog, settings, prefixes[i], i,
             *batches.next(p4::v1::Update::INSERT).mutable_table_entry());
  }
  batches.flush();
  report(batches.tally(), options);
}

void erase(Client& client, const RouteSettings& settings, const std::string& file,
           const Sending& sending, const Tools::OutputOptions& options) {
  const auto prefixes = readPrefixes(file);
  client.becomePrimary();
  const Catalog catalog(client.pipeline().p4info());
  Batches batches(client, sending);
  for (size_t i = 0; i < prefixes.size(); ++i) {
    putRoute(catalog, settings, prefixes[i], i,
             *batches.next(p4::v1::Update::DELETE).mutable_table_entry());
  }
  batches.flush();
  deleteMembers(catalog, settings, batches);
  report(batches.tally(), options);
}

void verify(Client& client, const RouteSettings& settings, const std::string& file,
            const Tools::OutputOptions& options) {
  const auto prefixes = readPrefixes(file);
  const Catalog catalog(client.pipeline().p4info());
  report(verifyRoutes(client, catalog, settings, prefixes), options);
}

void read(Client& client, const std::string& table, bool count) {
  auto query = client.newRead();
  if (table.empty()) {
    query.add_entities()->mutable_table_entry();
    query.add_entities()->mutable_action_profile_member();
    query.add_entities()->mutable_action_profile_group();
  } else {
    const Catalog catalog(client.pipeline().p4info());
    query.add_entities()->mutable_table_entry()->set_table_id(catalog.table(table).preamble().id());
  }
  Tools::Output out;
  uint64_t entities = 0;
  client.read(query, [&](const p4::v1::ReadResponse& answer) {
    entities += answer.entities_size();
    if (count) return;
    for (const auto& entity : answer.entities()) {
      std::string line;
      static_cast<void>(google::protobuf::util::MessageToJsonString(entity, &line));
      out.write(line + "\n");
    }
  });
  if (count) out.write(fmt::format("{}\n", entities));
  out.flush();
}

void run(int argc, char** argv) {
  Tools::CommandLine line(about());
  ClientOptions options;
  RouteSettings settings;
  BenchSettings benchSettings;
  std::string prefixes, table;
  Sending sending;
  bool count = false;
  addClientOptions(line.app(), options);

  const CLI::App& capabilities = line.command("capabilities", "The protocol version of the agent");
  const CLI::App& pipeline = line.command("pipeline", "The P4Info that the agent goes by");
  CLI::App& programming = line.command("program", "Insert next hops and routes");
  addRouteOptions(programming, settings, prefixes);
  addSendingOptions(programming, sending);
  CLI::App& erasing = line.command("delete", "Delete what program has inserted");
  addRouteOptions(erasing, settings, prefixes);
  addSendingOptions(erasing, sending);
  CLI::App& verifying = line.command("verify", "Check that what program has inserted is there");
  addRouteOptions(verifying, settings, prefixes);
  CLI::App& reading = line.command("read", "Print entities as JSON, one a line");
  reading.add_option("TABLE", table, "Only the entries of this table");
  reading.add_flag("--count", count, "Print only how many there are");
  CLI::App& benching = line.command("bench", "Insert, read and delete routes at full speed");
  benching.add_option("--routes", benchSettings.routes, "Routes in all")
      ->check(CLI::Range(uint64_t{1}, uint64_t{1} << 24))
      ->capture_default_str();
  addSendingOptions(benching, benchSettings.sending);
  benching.add_option("--clients", benchSettings.clients, "Connections that write at a time")
      ->check(CLI::Range(1u, 64u))
      ->capture_default_str();
  if (!line.parse(argc, argv)) return;

  if (benching) return bench(options, benchSettings, line.output());
  Client client(options);
  if (programming) return program(client, settings, prefixes, sending, line.output());
  if (erasing) return erase(client, settings, prefixes, sending, line.output());
  if (verifying) return verify(client, settings, prefixes, line.output());
  if (reading) return read(client, table, count);
  Tools::Output out;
  if (capabilities) out.write(client.apiVersion() + "\n");
  if (pipeline) {
    std::string text;
    google::protobuf::TextFormat::PrintToString(client.pipeline().p4info(), &text);
    out.write(text);
  }
  out.flush();
}

}  // namespace

int main(int argc, char** argv) {
  return Tools::runTool("p4rt-client", [&] { run(argc, argv); });
}
