#include "agent/p4/Forwarding.h"

#include <algorithm>
#include <utility>

namespace Agent::P4 {
namespace {

using grpc::StatusCode;
using Op = Update::Op;

std::string called(const Role& role, const Vane::BaseRow& row) {
  const EntityKey key = keyOf(role, row);
  switch (role.kind) {
    case Kind::member:
      return fmt::format("member {}", key.id);
    case Kind::group:
      return fmt::format("group {}", key.id);
    case Kind::encap:
      return fmt::format("table \"{}\": encap {}", role.name, key.id);
    case Kind::route:
      break;
  }
  if (role.keys.size() == 1) return fmt::format("table \"{}\": {}", role.name, key.prefix.text());
  return fmt::format("table \"{}\": VRF {}, {}", role.name, key.id, key.prefix.text());
}

const Vane::BaseRow none;

bool isOneShot(const Role& role, const Vane::BaseRow& row) {
  return role.kind == Kind::route && !row.isNull() && destinationOf(role, row).isOneShot();
}

}  // namespace

void Forwarding::apply(Update& update, const Pipeline& pipeline) {
  const size_t mark = store_.mark();
  try {
    switch (update.op) {
      case Op::insert:
        return insert(update, pipeline);
      case Op::modify:
        return modify(update, pipeline);
      case Op::del:
        break;
    }
    const Vane::BaseRow before = store_.row(*update.role, update.row);
    if (before.isNull())
      fail(StatusCode::NOT_FOUND, "{} is not there", called(*update.role, update.row));
    remove(*update.role, before);
  } catch (...) {
    const Fault fault = currentFault();
    if (store_.undo(mark)) throw fault;
    throw Fault(StatusCode::DATA_LOSS,
                std::string("this could not be taken back; it failed with: ") + fault.what());
  }
}

// An old entry is as good as gone: it is replaced.
void Forwarding::insert(Update& update, const Pipeline& pipeline) {
  const Role& role = *update.role;
  const Vane::BaseRow before = store_.row(role, update.row);
  if (!before.isNull() && !store_.isOld(role, before)) {
    fail(StatusCode::ALREADY_EXISTS, "{} is there already", called(role, update.row));
  }
  set(update, before, pipeline);
}

void Forwarding::modify(Update& update, const Pipeline& pipeline) {
  const Role& role = *update.role;
  const Vane::BaseRow before = store_.row(role, update.row);
  if (before.isNull()) fail(StatusCode::NOT_FOUND, "{} is not there", called(role, update.row));
  if (update.keepsAction) keepAction(update, before, pipeline);
  needSameMaxSize(update, before);
  set(update, before, pipeline);
}

void Forwarding::set(Update& update, const Vane::BaseRow& before, const Pipeline& pipeline) {
  const Role& role = *update.role;
  const Vane::BaseRow& counted = before.isNull() || store_.isOld(role, before) ? none : before;
  needRoom(update, counted, pipeline);
  if (!update.keepsAction) {
    needReferences(update);
    needOneStyle(update, counted);
    needSlots(update, counted, pipeline);
  }
  Held held;
  if (isOneShot(role, before) && !update.keepsAction) {
    store_.announce(role, before);
    held = heldBy(role, before);
  }
  if (update.oneShot) putOneShot(update, held, pipeline);
  put(role, update.row, before, std::move(update.side));
  removeUnused(held);
}

void Forwarding::remove(const Role& role, const Vane::BaseRow& before) {
  if (!role.isTable()) {
    const uint32_t id = idOf(role, before);
    const References& references = store_.references();
    const uint64_t uses =
        role.kind == Kind::member ? references.usesOfMember(id) : references.usesOfGroup(id);
    if (uses != 0) {
      fail(StatusCode::FAILED_PRECONDITION, "{} is in use: {} references", called(role, before),
           uses);
    }
  }
  const Held held = isOneShot(role, before) ? heldBy(role, before) : Held{};
  store_.del(role, before);
  removeUnused(held);
}

// `counted` is the row that makes place for the new one; null: none.
void Forwarding::needRoom(const Update& update, const Vane::BaseRow& counted,
                          const Pipeline& pipeline) const {
  const Role& role = *update.role;
  const uint64_t room = pipeline.part(role).size;
  if (counted.isNull() && role.isTable() && store_.stayingSize(role) >= room) {
    fail(StatusCode::RESOURCE_EXHAUSTED, "table \"{}\" is full: it has {} entries", role.name,
         room);
  }
}

// Ids of ours are never there for clients.
void Forwarding::needReferences(const Update& update) {
  const Role& role = *update.role;
  const auto need = [&](const Role& of, uint32_t id) {
    if (isReservedId(id) || !store_.has(of, id)) {
      fail(StatusCode::NOT_FOUND, "{}: {} {} is not there", called(role, update.row),
           of.kind == Kind::member ? "member" : "group", id);
    }
  };
  if (role.kind == Kind::group) {
    uint32_t last = 0;
    for (const uint32_t member : role.get(update.row, role.members)) {
      if (member != last) need(roles_.member(), member);
      last = member;
    }
  } else if (role.kind == Kind::route && !update.oneShot) {
    const Destination to = destinationOf(role, update.row);
    need(to.type == DestinationType::member ? roles_.member() : roles_.group(), to.id);
  }
}

// The routes of all tables use the profile in one style or in the other.
void Forwarding::needOneStyle(const Update& update, const Vane::BaseRow& counted) {
  const Role& role = *update.role;
  if (role.kind != Kind::route) return;
  const bool wasOneShot = isOneShot(role, counted);
  if (update.oneShot) {
    const bool wasPlain = !counted.isNull() && !wasOneShot &&
                          destinationOf(role, counted).type != DestinationType::none;
    if (store_.stayingReferences().plainRoutes() > (wasPlain ? 1 : 0)) {
      invalid(
          "{}: other entries use members or groups of the action profile; one-shot action sets "
          "cannot be mixed with them",
          called(role, update.row));
    }
  } else if (store_.mayHaveOneShots() &&
             store_.stayingReferences().oneShotRoutes() > (wasOneShot ? 1 : 0)) {
    invalid(
        "{}: other entries use one-shot action sets; members or groups of the action profile "
        "cannot be mixed with them",
        called(role, update.row));
  }
}

void Forwarding::needSlots(const Update& update, const Vane::BaseRow& counted,
                           const Pipeline& pipeline) {
  const Role& role = *update.role;
  const Role& group = roles_.group();
  uint64_t more = 0;
  uint64_t fewer = 0;
  if (update.oneShot) {
    for (const uint32_t weight : update.oneShot->weights) more += weight;
    if (isOneShot(role, counted)) {
      const Held held = heldBy(role, counted);
      if (isOnlyUse(held) && !store_.isOld(group, held.group)) {
        fewer = group.get(held.group, group.members).size();
      }
    }
  } else if (role.kind == Kind::group) {
    more = role.get(update.row, role.members).size();
    if (!counted.isNull()) fewer = role.get(counted, role.members).size();
  }
  if (more <= fewer) return;
  const uint64_t slots = store_.stayingReferences().slots();
  const uint64_t room = pipeline.part(group).size;
  if (slots - std::min(slots, fewer) + more > room) {
    fail(StatusCode::RESOURCE_EXHAUSTED, "action profile \"{}\" is full: its groups have {} of {}",
         group.name, slots, room);
  }
}

// Of a group that others wrote, or that was there before this run, it is not known; then any is
// taken.
void Forwarding::needSameMaxSize(const Update& update, const Vane::BaseRow& before) const {
  const Role& role = *update.role;
  if (role.kind != Kind::group) return;
  const SidePtr side = store_.side(role, before);
  if (side && side->maxSize != update.side->maxSize) {
    invalid("{}: max_size {} cannot be changed, found {}", called(role, before), side->maxSize,
            update.side->maxSize);
  }
}

void Forwarding::keepAction(Update& update, const Vane::BaseRow& before,
                            const Pipeline& pipeline) const {
  const SidePtr had = store_.side(*update.role, before);
  update.row = before;
  stamp(*update.role, update.row, pipeline);
  if (!had) return;
  SideData side = *had;
  side.metadata = update.side ? update.side->metadata : std::string();
  side.controllerMetadata = update.side ? update.side->controllerMetadata : 0;
  update.side = side.isDefault() ? nullptr : std::make_shared<SideData>(std::move(side));
}

Forwarding::Held Forwarding::heldBy(const Role& role, const Vane::BaseRow& route) const {
  Held held{.group = store_.row(roles_.group(), destinationOf(role, route).id), .shares = {}};
  if (!held.group.isNull()) held.shares = sharesOf(roles_.group(), held.group);
  return held;
}

bool Forwarding::isOnlyUse(const Held& held) {
  return !held.group.isNull() &&
         store_.references().usesOfGroup(idOf(roles_.group(), held.group)) == 1;
}
bool Forwarding::isOnlyUse(const Share& share) {
  return isReservedId(share.member) &&
         store_.references().usesOfMember(share.member) == share.weight;
}

void Forwarding::putOneShot(Update& update, const Held& before, const Pipeline& pipeline) {
  const Role& group = roles_.group();
  OneShot& shot = *update.oneShot;
  std::vector<uint32_t> free;  // ids of members that are put over
  if (isOnlyUse(before)) {
    for (const Share& share : before.shares) {
      if (isOnlyUse(share)) free.push_back(share.member);
    }
  }
  std::vector<uint32_t> members;
  std::vector<uint32_t> ports;
  for (size_t i = 0; i < shot.members.size(); ++i) {
    const uint32_t id = putMember(shot.members[i], i < free.size() ? free[i] : 0);
    members.insert(members.end(), shot.weights[i], id);
    ports.insert(ports.end(), shot.weights[i], shot.ports[i]);
  }
  const Vane::BaseRow& over = isOnlyUse(before) ? before.group : none;
  const uint32_t id = over.isNull() ? store_.newReservedId(group) : idOf(group, over);
  std::vector<Vane::ColumnValue> values;
  for (const auto& column : group.layout.columns()) values.push_back(Vane::zeroValue(column.type));
  values[group.keys.front().index] = id;
  values[group.members.index] = std::move(members);
  values[group.watchPorts.index] = std::move(ports);
  Vane::BaseRow row = group.layout.row(group.rowTypeId, values);
  stamp(group, row, pipeline);
  put(group, row, over, nullptr);
  update.role->set(update.row, update.role->destinationId, id);
}

// `over`: the id of the member to be replaced; 0: none.
uint32_t Forwarding::putMember(Vane::BaseRow& row, uint32_t over) {
  const Role& member = roles_.member();
  const uint32_t id = over != 0 ? over : store_.newReservedId(member);
  member.layout.set(row, member.layout.columns()[member.keys.front().index], id);
  put(member, row, store_.row(member, id), nullptr);
  return id;
}

// requires: the route is gone, or changed. Others may have written rows that use the same.
void Forwarding::removeUnused(const Held& held) {
  if (held.group.isNull()) return;
  const Role& group = roles_.group();
  const Role& member = roles_.member();
  if (store_.references().usesOfGroup(idOf(group, held.group)) == 0) {
    store_.del(group, store_.row(group, idOf(group, held.group)));
  }
  for (const Share& share : held.shares) {
    const Vane::BaseRow each = store_.row(member, share.member);
    if (!isReservedId(share.member) || each.isNull()) continue;
    if (store_.references().usesOfMember(share.member) == 0) store_.del(member, each);
  }
}

// An entity keeps its handle for as long as it is there.
void Forwarding::put(const Role& role, Vane::BaseRow& row, const Vane::BaseRow& before,
                     SidePtr side) {
  uint64_t handle = before.isNull() ? 0 : role.get(before, role.entryHandle);
  if (handle == 0) handle = store_.newHandle();
  role.set(row, role.entryHandle, handle);
  store_.put(role, row, before, std::move(side));
}

void Forwarding::stamp(const Role& role, Vane::BaseRow& row, const Pipeline& pipeline) {
  role.set(row, role.genId, pipeline.number);
  role.set(row, role.valid, true);
  role.set(row, role.entryId, role.id);
}

template <class F>
void Forwarding::removeRows(const Role& role, F unwanted) {
  auto& table = store_.table(role);
  const uint64_t there = table.size();
  uint64_t visited = 0;
  for (const auto at = table.begin(0); *at; ++*at, ++visited) {
    const Vane::BaseRow row = **at;
    if (!unwanted(row)) continue;
    store_.del(role, row);
    store_.emptyJournal();
  }
  if (visited < there) {
    fail(StatusCode::DATA_LOSS, "table {}: {} of {} rows could be read", role.rowTable, visited,
         there);
  }
}

void Forwarding::removeOld() {
  const auto recent = store_.endRecent();
  const auto isOld = [&](const Role& role, const Vane::BaseRow& row) {
    return !recent || !recent->has(role, row);
  };
  for (const Role& role : roles_.tables()) {
    removeRows(role, [&](const Vane::BaseRow& row) { return isOld(role, row); });
  }
  const References& references = store_.references();
  removeRows(roles_.group(), [&](const Vane::BaseRow& row) {
    const uint32_t id = idOf(roles_.group(), row);
    return references.usesOfGroup(id) == 0 && (isOld(roles_.group(), row) || isReservedId(id));
  });
  removeRows(roles_.member(), [&](const Vane::BaseRow& row) {
    const uint32_t id = idOf(roles_.member(), row);
    return references.usesOfMember(id) == 0 && (isOld(roles_.member(), row) || isReservedId(id));
  });
}

void Forwarding::needRoomFor(const Pipeline& pipeline) const {
  for (const Role& role : roles_.all()) {
    const Pipeline::Part& part = pipeline.part(role);
    const uint64_t there = store_.size(role);
    if (there != 0 && !(part.isOffered && part.hasAction)) {
      invalid("\"{}\" is not in the P4Info, or has no action there, and holds {} entries",
              role.name, there);
    }
    if (role.isTable() && there > part.size) {
      invalid("table \"{}\" holds {} entries, more than the P4Info's {}", role.name, there,
              part.size);
    }
  }
  const uint64_t slots = store_.references().slots();
  if (slots > pipeline.part(roles_.group()).size) {
    invalid("the groups of action profile \"{}\" have {} slots, more than the P4Info's {}",
            roles_.group().name, slots, pipeline.part(roles_.group()).size);
  }
  store_.forEachRow(roles_.group(), [&](const Vane::BaseRow& row) {
    const auto shares = sharesOf(roles_.group(), row);
    uint64_t size = 0;
    for (const Share& share : shares) size += share.weight;
    if (size > pipeline.maxGroupSize || (pipeline.areWeightsDisallowed && size != shares.size())) {
      invalid("{} has weights that add up to {}, which the P4Info does not allow",
              called(roles_.group(), row), size);
    }
    const SidePtr side = store_.side(roles_.group(), row);
    if (side && side->maxSize > static_cast<int32_t>(pipeline.maxGroupSize)) {
      invalid("{} has a max_size of {}, more than the P4Info's {}", called(roles_.group(), row),
              side->maxSize, pipeline.maxGroupSize);
    }
  });
}

}  // namespace Agent::P4
