// Where the server listens: addresses, Unix sockets, TLS.
#include "agent/rpc/Listen.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "agent/rpc/RunDirectory.h"
#include "tests/agent-rpc/Rpc.h"

namespace RpcTest {
namespace {

namespace fs = std::filesystem;
using Agent::Rpc::listenAddress;
using Agent::Rpc::ListenException;
using Agent::Rpc::Server;
using testing::AllOf;
using testing::HasSubstr;

class Folder {
 public:
  Folder() {
    std::string name = "/tmp/routing-rpc-XXXXXX";
    EXPECT_NE(::mkdtemp(name.data()), nullptr);
    path_ = name;
  }
  ~Folder() { fs::remove_all(path_); }
  fs::path operator/(const std::string& name) const { return path_ / name; }

 private:
  fs::path path_;
};

std::string contentOf(const fs::path& file) {
  std::ostringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

template <class Work>
std::string messageOf(const Work& work) {
  try {
    work();
  } catch (const ListenException& refusal) {
    return refusal.what();
  }
  return "no refusal";
}

Server::Settings on(const std::string& address) {
  Server::Settings settings;
  settings.addresses = {listenAddress(address)};
  return settings;
}

std::string refusalOf(const Server::Settings& settings) {
  return messageOf([&] { Server(settings, {}); });
}

TEST(ListenAddress, IsReadAndWrittenAlike) {
  for (const char* text : {"127.0.0.1:9559", "0.0.0.0:0", "[::1]:65535", "[2001:db8::1]:1",
                           "unix:/run/p4/agent.sock", "unix:relative"}) {
    EXPECT_EQ(listenAddress(text).text(), text);
  }
  EXPECT_EQ(listenAddress("localhost:1").text(), "127.0.0.1:1");
}

TEST(ListenAddress, ThatCannotBeOneIsRefusedWithItsText) {
  const std::string longPath = "unix:/" + std::string(200, 'x');
  for (const std::string text :
       {"", "9559", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:1x",
        "::1:9559", "[::1]", "[127.0.0.1]:1", "switch.example:1", ":1", "unix:", "1.2.3:4"}) {
    EXPECT_THAT(messageOf([&] { listenAddress(text); }),
                AllOf(HasSubstr("expected"), HasSubstr(text)))
        << text;
  }
  EXPECT_THAT(messageOf([&] { listenAddress(longPath); }), HasSubstr("at most 107 bytes"));
}

TEST(ListenAddress, KnowsWhoCanReachIt) {
  EXPECT_TRUE(listenAddress("127.0.0.1:1").isLoopback());
  EXPECT_TRUE(listenAddress("127.9.9.9:1").isLoopback());
  EXPECT_TRUE(listenAddress("[::1]:1").isLoopback());
  for (const char* text : {"0.0.0.0:1", "10.0.0.1:1", "[::]:1", "[::ffff:127.0.0.1]:1"}) {
    EXPECT_FALSE(listenAddress(text).isLoopback()) << text;
  }
}

TEST(Listening, OnPortZeroTellsThePortThatWasChosen) {
  Served served;
  EXPECT_GT(served.server->addresses().front().port, 0);
  EXPECT_TRUE(read(*served.client(), readOf()).ok());
}

TEST(Listening, WhereAnotherListensIsRefusedWithAddressAndReason) {
  Served first;
  EXPECT_THAT(refusalOf(on(first.address())),
              AllOf(HasSubstr(first.address()), HasSubstr("Address already in use")));
  EXPECT_TRUE(read(*first.client(), readOf()).ok());
}

TEST(Listening, OnAnAddressThatIsNotThisMachinesIsRefusedWithTheReason) {
  Server::Settings settings = on("192.0.2.1:9559");
  settings.isPlainTextRemoteAllowed = true;
  EXPECT_THAT(refusalOf(settings),
              AllOf(HasSubstr("192.0.2.1:9559"), HasSubstr("Cannot assign requested address")));
}

TEST(Listening, InPlainTextWhereOthersReachItNeedsLeave) {
  Server::Settings settings = on("0.0.0.0:0");
  EXPECT_THAT(refusalOf(settings), AllOf(HasSubstr("0.0.0.0:0"), HasSubstr("plain text")));
  settings.isPlainTextRemoteAllowed = true;
  FakeTarget target;
  Agent::Rpc::Calls calls{{}};
  Agent::P4::P4RuntimeService service(target, calls, {}, {});
  const Server server(settings, {&service});
  EXPECT_GT(server.addresses().front().port, 0);
}

TEST(Listening, OnSeveralAddressesServesAll) {
  const Folder folder;
  FakeTarget target;
  Agent::Rpc::Calls calls{{}};
  Agent::P4::P4RuntimeService service(target, calls, {}, {});
  Server::Settings settings = on("127.0.0.1:0");
  settings.addresses.push_back(listenAddress("unix:" + (folder / "socket").string()));
  Server server(settings, {&service});
  for (const auto& address : server.addresses()) {
    const auto stub = p4::v1::P4Runtime::NewStub(
        grpc::CreateChannel(address.text(), grpc::InsecureChannelCredentials()));
    EXPECT_TRUE(read(*stub, readOf()).ok()) << address.text();
  }
}

struct UnixSocket : testing::Test {
  Folder folder;
  const fs::path path = folder / "agent.sock";
  Offer offer() const {
    Offer offer;
    offer.listen = "unix:" + path.string();
    return offer;
  }
  static mode_t modeOf(const fs::path& file) {
    struct stat found {};
    EXPECT_EQ(::lstat(file.c_str(), &found), 0);
    return found.st_mode;
  }
};

TEST_F(UnixSocket, IsForOwnerAndGroupAndGoesWithTheServer) {
  {
    Served served(offer());
    EXPECT_EQ(modeOf(path), mode_t{S_IFSOCK | 0660});
    EXPECT_TRUE(read(*served.client(), readOf()).ok());
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(UnixSocket, OfADeadOwnerIsReplaced) {
  const int left = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.string().copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(left, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ::close(left);
  ASSERT_TRUE(fs::is_socket(path));
  Served served(offer());
  EXPECT_TRUE(read(*served.client(), readOf()).ok());
}

TEST_F(UnixSocket, OfALivingOwnerIsRefused) {
  Served first(offer());
  EXPECT_THAT(refusalOf(on(offer().listen)), AllOf(HasSubstr(path), HasSubstr("another process")));
  EXPECT_TRUE(read(*first.client(), readOf()).ok());
}

TEST_F(UnixSocket, DoesNotReplaceAFile) {
  std::ofstream(path) << "precious";
  EXPECT_THAT(refusalOf(on(offer().listen)), AllOf(HasSubstr(path), HasSubstr("no socket")));
  EXPECT_EQ(contentOf(path), "precious");
}

TEST_F(UnixSocket, InAFolderThatIsNotThereIsRefusedWithTheReason) {
  EXPECT_THAT(refusalOf(on("unix:" + (folder / "none/agent.sock").string())),
              HasSubstr("No such file"));
}

TEST(RunDirectory, IsMadeForOwnerAndGroupAndHoldsTheAddressesMeanwhile) {
  const Folder folder;
  const fs::path directory = folder / "a/run";
  {
    const Agent::Rpc::RunDirectory made(directory);
    const Agent::Rpc::AddressFile file(directory, "p4runtime.addr",
                                       {listenAddress("127.0.0.1:7"), listenAddress("unix:/x")});
    EXPECT_EQ(contentOf(directory / "p4runtime.addr"), "127.0.0.1:7\nunix:/x\n");
    EXPECT_EQ(fs::status(directory).permissions() & fs::perms::others_all, fs::perms::none);
  }
  EXPECT_FALSE(fs::exists(directory)) << "what was made for it goes with it";
}

TEST(RunDirectory, StaysWhenItWasThereBeforeOrSomethingElseIsInIt) {
  const Folder folder;
  fs::create_directory(folder / "before");
  { const Agent::Rpc::RunDirectory used(folder / "before"); }
  EXPECT_TRUE(fs::exists(folder / "before"));
  {
    const Agent::Rpc::RunDirectory made(folder / "made");
    std::ofstream(folder / "made/other") << "x";
  }
  EXPECT_EQ(contentOf(folder / "made/other"), "x");
}

TEST(RunDirectory, ThatIsAFileIsRefusedWithTheReason) {
  const Folder folder;
  std::ofstream(folder / "run") << "x";
  EXPECT_THAT(messageOf([&] { Agent::Rpc::RunDirectory(folder / "run"); }),
              AllOf(HasSubstr((folder / "run").string()), HasSubstr("Not a directory")));
}

// Certificates made on the spot by the openssl tool.
struct Tls : testing::Test {
  Folder folder;

  void SetUp() override {
    if (std::system("openssl version >/dev/null 2>&1") != 0) {
      GTEST_SKIP() << "the openssl tool is not installed";
    }
    authority("ca");
    authority("strangers");
    certificate("server", "ca");
    certificate("client", "ca");
    certificate("stranger", "strangers");
  }

  std::string file(const std::string& name) const { return (folder / name).string(); }
  void openssl(const std::string& arguments) const {
    const std::string command = "openssl " + arguments + " >>" + file("log") + " 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command << "\n" << contentOf(folder / "log");
  }
  void authority(const std::string& name) const {
    openssl("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=" +
            name + " -keyout " + file(name + ".key") + " -out " + file(name + ".pem"));
  }
  void certificate(const std::string& name, const std::string& signer) const {
    std::ofstream(folder / "extensions") << "subjectAltName=IP:127.0.0.1\n";
    openssl("req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=" + name +
            " -keyout " + file(name + ".key") + " -out " + file(name + ".csr"));
    openssl("x509 -req -days 2 -in " + file(name + ".csr") + " -CA " + file(signer + ".pem") +
            " -CAkey " + file(signer + ".key") + " -CAcreateserial -extfile " + file("extensions") +
            " -out " + file(name + ".pem"));
  }
  Server::Settings settings(const std::string& address = "127.0.0.1:0") const {
    Server::Settings settings = on(address);
    settings.tls = {folder / "server.pem", folder / "server.key", folder / "ca.pem"};
    return settings;
  }
  // What a call with these credentials comes to.
  StatusCode call(const Server& server, std::shared_ptr<grpc::ChannelCredentials> credentials) {
    const std::string target = "127.0.0.1:" + std::to_string(server.addresses().front().port);
    const auto stub =
        p4::v1::P4Runtime::NewStub(grpc::CreateChannel(target, std::move(credentials)));
    grpc::ClientContext context;  // a connection that fails is not tried again
    context.set_deadline(soon());
    p4::v1::CapabilitiesResponse response;
    return stub->Capabilities(&context, {}, &response).error_code();
  }
  std::shared_ptr<grpc::ChannelCredentials> as(const std::string& client) const {
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = contentOf(folder / "ca.pem");
    if (!client.empty()) {
      options.pem_private_key = contentOf(folder / (client + ".key"));
      options.pem_cert_chain = contentOf(folder / (client + ".pem"));
    }
    return grpc::SslCredentials(options);
  }

  FakeTarget target;
  Agent::Rpc::Calls calls{{}};
  Agent::P4::P4RuntimeService service{target, calls, {}, {}};
};

TEST_F(Tls, ServesClientsWithACertificateOfTheAuthoritysOnly) {
  const Server server(settings(), {&service});
  EXPECT_EQ(call(server, as("client")), StatusCode::OK);
  EXPECT_EQ(call(server, as("")), StatusCode::UNAVAILABLE);
  EXPECT_EQ(call(server, as("stranger")), StatusCode::UNAVAILABLE);
  EXPECT_EQ(call(server, grpc::InsecureChannelCredentials()), StatusCode::UNAVAILABLE);
}

TEST_F(Tls, NeedsNoLeaveForAnAddressThatOthersReach) {
  const Server server(settings("0.0.0.0:0"), {&service});
  EXPECT_EQ(call(server, as("client")), StatusCode::OK);
}

TEST_F(Tls, FilesThatAreMissingOrNoneAreNamed) {
  Server::Settings missing = settings();
  missing.tls->key = folder / "none.key";
  EXPECT_THAT(refusalOf(missing), AllOf(HasSubstr("none.key"), HasSubstr("No such file")));
  Server::Settings wrong = settings();
  wrong.tls->clientAuthority = folder / "extensions";
  EXPECT_THAT(refusalOf(wrong), AllOf(HasSubstr("extensions"), HasSubstr("PEM")));
}

TEST_F(Tls, AKeyOfAnotherCertificateIsRefused) {
  Server::Settings mixed = settings();
  mixed.tls->key = folder / "client.key";
  EXPECT_THAT(refusalOf(mixed), HasSubstr("do not go together"));
}

}  // namespace
}  // namespace RpcTest
