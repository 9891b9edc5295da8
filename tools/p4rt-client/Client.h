// A P4Runtime client: one channel, the stream that makes it primary, writes and reads.
#pragma once

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "p4/v1/p4runtime.grpc.pb.h"

namespace P4Client {

struct ClientOptions {
  std::string address = "127.0.0.1:9559";
  uint64_t deviceId = 1;
  uint64_t electionId = 1;  // the low half; the high one is 0
  std::string role;
  std::string tlsCertificate, tlsKey, tlsAuthority;  // files; empty: plain text
};

// How updates go out.
struct Sending {
  uint32_t batch = 1000;  // updates in a Write
  uint32_t inFlight = 4;  // Writes under way at a time
};

class Client {
 public:
  // Throws Tools::Failure for a certificate that cannot be read. Connects when first needed.
  explicit Client(ClientOptions options);
  ~Client();

  // Opens the stream and wins the election, or throws Tools::Failure saying who holds the place.
  void becomePrimary();

  // Puts the session's device, role and election id in a request.
  void begin(p4::v1::WriteRequest& request) const;

  void read(const p4::v1::ReadRequest& request,
            const std::function<void(const p4::v1::ReadResponse&)>& take);
  p4::v1::ReadRequest newRead() const;

  p4::v1::ForwardingPipelineConfig pipeline();
  std::string apiVersion();

 private:
  friend class Writes;
  std::unique_ptr<grpc::ClientContext> context() const;

  ClientOptions options_;
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub_;
  using Stream =
      grpc::ClientReaderWriter<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>;
  std::unique_ptr<grpc::ClientContext> streamContext_;
  std::unique_ptr<Stream> stream_;
};

// Writes of one client, several of them under way at a time: the agent reads the next while it
// applies one. It may apply them in any order, so what builds on a write is sent after finish().
class Writes {
 public:
  // What came of one write: a result per update, and the time from its sending.
  using Take = std::function<void(const std::vector<p4::v1::Error>& results,
                                  std::chrono::steady_clock::duration took)>;

  // requires: inFlight >= 1.
  Writes(Client& client, uint32_t inFlight, Take take);
  // Gives up those that are still under way.
  ~Writes();
  Writes(const Writes&) = delete;
  Writes& operator=(const Writes&) = delete;

  // Sends a batch, when fewer than that many are under way. Throw Tools::Failure if a call as a
  // whole was refused; a reply too large for its details is a failure that says so.
  void put(const p4::v1::WriteRequest& request);
  // Until all are done.
  void finish();

 private:
  struct Call;
  void takeOne();

  Client& client_;
  const uint32_t inFlight_;
  Take take_;
  grpc::CompletionQueue done_;
  std::vector<std::unique_ptr<Call>> calls_;  // under way
};

}  // namespace P4Client
