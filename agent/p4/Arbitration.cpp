#include "agent/p4/Arbitration.h"

#include <fmt/format.h>
#include <grpc/status.h>

#include <algorithm>
#include <utility>

#include "agent/Command.h"

namespace Agent::P4 {
namespace {

google::rpc::Status fault(grpc_status_code code, std::string text) {
  google::rpc::Status status;
  status.set_code(code);
  status.set_message(std::move(text));
  return status;
}

bool isOk(const google::rpc::Status& status) { return status.code() == GRPC_STATUS_OK; }

std::optional<ElectionId> electionId(const Arbitration::Notice& message) {
  if (!message.has_election_id()) return std::nullopt;
  return ElectionId{message.election_id().high(), message.election_id().low()};
}

RoleKey roleKey(const p4::v1::Role& role) { return P4::roleKey(role.name(), role.id()); }

std::string described(const RoleKey& role) {
  if (!role.name.empty()) return "role " + inQuotes(role.name);
  if (role.number != 0) return fmt::format("role number {}", role.number);
  return "the role without a name";
}

google::rpc::Status configFault() {
  return fault(GRPC_STATUS_INVALID_ARGUMENT,
               "role.config: expected none, as roles have no configuration here");
}

google::rpc::Status inUseFault(const RoleKey& role) {
  return fault(GRPC_STATUS_INVALID_ARGUMENT,
               fmt::format("election_id: in use by another stream of {}", described(role)));
}

google::rpc::Status unknownDevice(uint64_t found, uint64_t expected) {
  return fault(GRPC_STATUS_NOT_FOUND,
               fmt::format("device_id: expected {}, found {}", expected, found));
}

}  // namespace

RoleKey roleKey(const std::string& name, uint64_t number) {
  return name.empty() ? RoleKey{{}, number} : RoleKey{name, 0};
}

bool Arbitration::Stream::isPrimary() const {
  const std::lock_guard lock(arbitration_.mutex_);
  return role_ != nullptr && role_->primary == this;
}

google::rpc::Status Arbitration::update(Stream& stream, const Notice& message) {
  const RoleKey key = roleKey(message.role());
  std::unique_lock lock(mutex_);
  // One message of a role at a time: what an election decides must hold until it is over.
  changed_.wait(lock, [&] {
    const auto found = roles_.find(key);
    return found == roles_.end() || !found->second.electing;
  });
  const bool first = stream.role_ == nullptr;
  const google::rpc::Status found = first ? firstFault(message) : laterFault(stream, message);
  if (!isOk(found)) return found;

  Role& role = roles_[key];
  if (first) {
    stream.role_ = &role;
    role.streams.push_back(&stream);
  }
  stream.given_.set_name(message.role().name());
  stream.given_.set_id(message.role().id());
  stream.roleGiven_ = message.has_role();
  const std::optional<ElectionId> before = std::exchange(stream.id_, electionId(message));
  if (stream.id_ && (!role.highest || *stream.id_ >= *role.highest)) {
    // The same primary again, in the same words: nothing ends, and there is nothing to wait for.
    if (role.primary == &stream && before == stream.id_) {
      tellAll(role);
    } else {
      elect(lock, role, stream, *stream.id_);
    }
  } else if (role.primary == &stream) {
    role.primary = nullptr;
    tellAll(role);
  } else {
    tell(role, stream, role.primary != nullptr);
  }
  return {};
}

google::rpc::Status Arbitration::firstFault(const Notice& message) {
  if (message.device_id() != limits_.deviceId) {
    return unknownDevice(message.device_id(), limits_.deviceId);
  }
  const RoleKey key = roleKey(message.role());
  if (inUse(key, message, nullptr)) return inUseFault(key);
  if (message.role().has_config()) return configFault();
  if (key.name.size() > limits_.roleNameLength) {
    return fault(GRPC_STATUS_INVALID_ARGUMENT,
                 fmt::format("role.name: expected at most {} bytes, found {}",
                             limits_.roleNameLength, key.name.size()));
  }
  const auto role = roles_.find(key);
  if (role == roles_.end() && roles_.size() >= limits_.roles) {
    return fault(GRPC_STATUS_RESOURCE_EXHAUSTED,
                 fmt::format("{}: there are {} roles already", described(key), limits_.roles));
  }
  const size_t streams = role == roles_.end() ? 0 : role->second.streams.size();
  if (streams >= limits_.streamsPerRole) {
    return fault(GRPC_STATUS_RESOURCE_EXHAUSTED,
                 fmt::format("{} has {} streams already", described(key), streams));
  }
  return {};
}

google::rpc::Status Arbitration::laterFault(const Stream& stream, const Notice& message) {
  if (message.device_id() != limits_.deviceId) {
    return fault(GRPC_STATUS_FAILED_PRECONDITION,
                 fmt::format("device_id: expected the stream's, {}, found {}", limits_.deviceId,
                             message.device_id()));
  }
  const RoleKey key = roleKey(message.role());
  if (const RoleKey own = roleKey(stream.given_); key != own) {
    return fault(
        GRPC_STATUS_FAILED_PRECONDITION,
        fmt::format("role: expected the stream's, {}, found {}", described(own), described(key)));
  }
  if (message.role().has_config()) return configFault();
  if (inUse(key, message, &stream)) return inUseFault(key);
  return {};
}

bool Arbitration::inUse(const RoleKey& key, const Notice& message, const Stream* asking) const {
  const auto role = roles_.find(key);
  const auto id = electionId(message);
  if (!id || role == roles_.end()) return false;
  return std::ranges::any_of(role->second.streams, [&](const Stream* other) {
    return other != asking && other->id_ == id;
  });
}

// From here on the old primary's writes are refused; the new one's are admitted at the end, when
// those that had begun are done.
void Arbitration::elect(std::unique_lock<std::mutex>& lock, Role& role, Stream& stream,
                        ElectionId id) {
  role.electing = true;
  role.primary = nullptr;
  role.highest = id;
  for (const Stream* other : role.streams) {
    if (other != &stream) tell(role, *other, true);
  }
  changed_.wait(lock, [&] { return role.tickets == 0; });
  role.primary = &stream;
  tell(role, stream, true);
  role.electing = false;
  changed_.notify_all();
}

void Arbitration::leave(Stream& stream) {
  std::unique_lock lock(mutex_);
  if (stream.role_ == nullptr) return;
  Role& role = *stream.role_;
  changed_.wait(lock, [&] { return !role.electing; });
  std::erase(role.streams, &stream);
  if (role.primary == &stream) {
    role.primary = nullptr;
    tellAll(role);
  }
  // Nothing to remember: it was held by backups without an id only.
  if (role.streams.empty() && !role.highest) roles_.erase(roleKey(stream.given_));
}

void Arbitration::tellAll(const Role& role) const {
  for (const Stream* stream : role.streams) {
    if (stream != role.primary) tell(role, *stream, role.primary != nullptr);
  }
  if (role.primary != nullptr) tell(role, *role.primary, true);
}

void Arbitration::tell(const Role& role, const Stream& stream, bool thereIsAPrimary) const {
  Notice notice;
  notice.set_device_id(limits_.deviceId);
  if (stream.roleGiven_) *notice.mutable_role() = stream.given_;
  if (role.highest) {
    notice.mutable_election_id()->set_high(role.highest->high);
    notice.mutable_election_id()->set_low(role.highest->low);
  }
  // Present for OK too: some clients read it unasked.
  google::rpc::Status& status = *notice.mutable_status();
  if (!thereIsAPrimary) {
    status = fault(GRPC_STATUS_NOT_FOUND, "there is no primary");
  } else if (role.primary != &stream) {
    status = fault(GRPC_STATUS_ALREADY_EXISTS, "another stream is the primary");
  }
  stream.tell_(notice);
}

Arbitration::Admission Arbitration::admit(uint64_t deviceId, const RoleKey& role,
                                          const std::optional<ElectionId>& id) {
  if (deviceId != limits_.deviceId) return {unknownDevice(deviceId, limits_.deviceId), {}};
  const std::lock_guard lock(mutex_);
  const auto found = roles_.find(role);
  if (found == roles_.end() || found->second.primary == nullptr) {
    return {fault(GRPC_STATUS_PERMISSION_DENIED,
                  fmt::format("{} has no primary at present", described(role))),
            {}};
  }
  if (!id || id != found->second.primary->id_) {
    return {fault(GRPC_STATUS_PERMISSION_DENIED,
                  fmt::format("election_id: not the primary's of {}", described(role))),
            {}};
  }
  ++found->second.tickets;
  return {{}, Ticket(*this, found->second)};
}

void Arbitration::release(Role& role) {
  const std::lock_guard lock(mutex_);
  if (--role.tickets == 0) changed_.notify_all();
}

}  // namespace Agent::P4
