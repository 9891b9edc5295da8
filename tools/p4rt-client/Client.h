// A P4Runtime client: one channel, the stream that makes it primary, writes and reads.
#pragma once

#include <grpcpp/grpcpp.h>

#include <functional>
#include <memory>
#include <optional>
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

class Client {
 public:
  // Throws Tools::Failure for a certificate that cannot be read. Connects when first needed.
  explicit Client(ClientOptions options);
  ~Client();

  // Opens the stream and wins the election, or throws Tools::Failure saying who holds the place.
  void becomePrimary();

  // Applies a batch. Returns one result per update, or throws Tools::Failure if the call as a whole
  // was refused. A reply too large for its details is a failure that says so.
  std::vector<p4::v1::Error> write(const p4::v1::WriteRequest& request);
  // A request with the session's device, role and election id, and no updates.
  p4::v1::WriteRequest newWrite() const;

  void read(const p4::v1::ReadRequest& request,
            const std::function<void(const p4::v1::ReadResponse&)>& take);
  p4::v1::ReadRequest newRead() const;

  p4::v1::ForwardingPipelineConfig pipeline();
  std::string apiVersion();

 private:
  std::unique_ptr<grpc::ClientContext> context() const;

  ClientOptions options_;
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub_;
  using Stream =
      grpc::ClientReaderWriter<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>;
  std::unique_ptr<grpc::ClientContext> streamContext_;
  std::unique_ptr<Stream> stream_;
};

}  // namespace P4Client
