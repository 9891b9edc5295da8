// Who may write: the election of a primary among the streams of each role.
//
// A stream states an election id, an unsigned number of 128 bits, for one role of the device. The
// stream whose id is the highest that its role has ever seen is the role's primary; the others are
// backups. The agent promotes nobody: a primary that steps down or goes away leaves its role
// without one, until some stream states an id that is at least the highest ever seen.
//
// A write names its role and election id and is admitted if these are the live primary's. It holds
// a ticket until it is done, and a new primary is accepted only when no ticket of the old one is
// out.
//
// Faults, in the order in which they are looked for; each ends the stream:
//
//   fault                                     first message       later ones
//   device unknown, or not the stream's       NOT_FOUND           FAILED_PRECONDITION
//   role not the stream's                     -                   FAILED_PRECONDITION
//   id in use by another stream of the role   INVALID_ARGUMENT    INVALID_ARGUMENT, but last
//   role.config set: none is understood       INVALID_ARGUMENT    INVALID_ARGUMENT
//   no room for a stream, or for a role       RESOURCE_EXHAUSTED  -
//
// Safe from any thread. Streams are told under the lock, so what tells them must not wait.
#pragma once

#include <compare>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "google/rpc/status.pb.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

struct ElectionId {
  uint64_t high = 0;
  uint64_t low = 0;
  auto operator<=>(const ElectionId&) const = default;
};

// A role is known by its name. Old clients give a number instead, which is then a role of its own;
// neither is the role without limits.
struct RoleKey {
  std::string name;
  uint64_t number = 0;
  auto operator<=>(const RoleKey&) const = default;
};
RoleKey roleKey(const std::string& name, uint64_t number);

class Arbitration {
 public:
  struct Limits {
    uint64_t deviceId = 1;
    size_t streamsPerRole = 16;
    // Roles are remembered for good, with the highest id they have seen.
    size_t roles = 1024;
    size_t roleNameLength = 1024;
  };
  using Notice = p4::v1::MasterArbitrationUpdate;
  using Tell = std::function<void(const Notice&)>;

  explicit Arbitration(Limits limits) : limits_(limits) {}
  Arbitration(const Arbitration&) = delete;
  Arbitration& operator=(const Arbitration&) = delete;

  class Stream;
  class Ticket;
  struct Admission;

  // Whether a call with this role and election id is the live primary's: PERMISSION_DENIED if not,
  // NOT_FOUND for another device. The ticket of an admitted call must not outlive this.
  Admission admit(uint64_t deviceId, const RoleKey& role, const std::optional<ElectionId>& id);

 private:
  struct Role;
  google::rpc::Status update(Stream& stream, const Notice& message);
  google::rpc::Status firstFault(const Notice& message);
  google::rpc::Status laterFault(const Stream& stream, const Notice& message);
  bool inUse(const RoleKey& key, const Notice& message, const Stream* asking) const;
  void elect(std::unique_lock<std::mutex>& lock, Role& role, Stream& stream, ElectionId id);
  void leave(Stream& stream);
  void release(Role& role);
  void tell(const Role& role, const Stream& stream, bool thereIsAPrimary) const;
  void tellAll(const Role& role) const;

  const Limits limits_;
  mutable std::mutex mutex_;  // guards the roles and what their streams hold
  std::condition_variable changed_;
  std::map<RoleKey, Role> roles_;
};

// One stream's part in the election of its role, which its first message names. Its messages come
// one at a time. It leaves with its destruction.
class Arbitration::Stream {
 public:
  Stream(Arbitration& arbitration, Tell tell) : arbitration_(arbitration), tell_(std::move(tell)) {}
  ~Stream() { arbitration_.leave(*this); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  // Takes a message of the client's. Not OK: the stream must end, with this.
  google::rpc::Status update(const Notice& message) { return arbitration_.update(*this, message); }
  bool isPrimary() const;

 private:
  friend Arbitration;
  Arbitration& arbitration_;
  Tell tell_;
  Role* role_ = nullptr;  // null until the first message is accepted
  p4::v1::Role
      given_;  // the role as the client says it: name and number, nothing else of its message
  bool roleGiven_ = false;
  std::optional<ElectionId> id_;
};

// What the streams of one role have agreed on.
struct Arbitration::Role {
  std::vector<Stream*> streams;
  Stream* primary = nullptr;
  std::optional<ElectionId> highest;  // ever seen; with a primary: its id
  size_t tickets = 0;                 // calls under way
  bool electing = false;              // a new primary waits for them; messages wait for it
};

// Held by an admitted call until it is done.
class Arbitration::Ticket {
 public:
  Ticket() = default;
  Ticket(Arbitration& arbitration, Role& role) : arbitration_(&arbitration), role_(&role) {}
  Ticket(Ticket&& other) noexcept
      : arbitration_(other.arbitration_), role_(std::exchange(other.role_, nullptr)) {}
  Ticket& operator=(Ticket&&) = delete;
  ~Ticket() {
    if (role_ != nullptr) arbitration_->release(*role_);
  }

 private:
  Arbitration* arbitration_ = nullptr;
  Role* role_ = nullptr;
};

struct Arbitration::Admission {
  google::rpc::Status status;
  Ticket ticket;
};

}  // namespace Agent::P4
