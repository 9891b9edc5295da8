#include "agent/p4/ActiveReads.h"

#include <utility>

namespace Agent::P4 {
namespace {

constexpr size_t absentBytes = sizeof(EntityKey) + sizeof(Image) + 64;

}  // namespace

class ActiveReads::Filling {
 public:
  Filling(Read& read, const RowStore& store, const Limits& limits, Piece& piece)
      : read_(read), store_(store), limits_(limits), piece_(piece) {}

  void run() {
    piece_.found.clear();
    const auto steps = read_.plan.steps();
    while (!isFull() && read_.at < steps.size()) {
      const Step& step = steps[read_.at];
      ++visits_;
      if (step.key.isNull() ? !nextRow(step) : !oneRow(step)) {
        read_.row.reset();
        ++read_.at;
      }
    }
    for (; !isFull() && !read_.kept.empty(); ++visits_) giveKept();
    piece_.isLast = read_.at == steps.size() && read_.kept.empty();
  }

 private:
  bool isFull() const { return visits_ >= limits_.visits || bytes_ >= limits_.bytes; }

  void give(size_t step, Image&& image) {
    bytes_ += image.bytes();
    piece_.found.push_back({step, std::move(image)});
  }
  void giveUnlessKept(const Step& step, Vane::BaseRow&& row) {
    if (!read_.kept.empty() && read_.kept.contains(keyOf(*step.role, row))) return;
    give(read_.at, store_.image(*step.role, std::move(row)));
  }

  // False when there is no more. The iterator is moved on only now: it would give the row that it
  // came to in the piece before as it was then.
  bool nextRow(const Step& step) {
    if (read_.row) {
      ++*read_.row;
    } else {
      auto& table = store_.table(*step.role);
      read_.walk.emplace(table);
      read_.row = table.begin(0);
    }
    if (!*read_.row) {
      read_.walk->needAll(step.role->rowTable);
      return false;
    }
    read_.walk->visited();
    giveUnlessKept(step, **read_.row);
    return true;
  }
  bool oneRow(const Step& step) {
    if (auto row = store_.row(*step.role, step.key); !row.isNull()) {
      giveUnlessKept(step, std::move(row));
    }
    return false;
  }

  void giveKept() {
    const auto first = read_.kept.begin();
    if (first->second) {
      const Image& image = *first->second;
      for (const size_t step : {read_.plan.ofRole(*image.role), read_.plan.ofKey(first->first)}) {
        if (step != Plan::none) give(step, Image(image));
      }
    }
    read_.kept.erase(first);
  }

  Read& read_;
  const RowStore& store_;
  const Limits& limits_;
  Piece& piece_;
  size_t visits_ = 0;
  size_t bytes_ = 0;
};

size_t ActiveReads::Plan::step(const Role& role, Vane::BaseRow key) {
  size_t* at = nullptr;
  if (key.isNull()) {
    if (ofRole_.size() <= role.index) ofRole_.resize(role.index + 1, none);
    at = &ofRole_[role.index];
  } else {
    at = &ofKey_.try_emplace(keyOf(role, key), none).first->second;
  }
  if (*at == none) {
    *at = steps_.size();
    steps_.push_back({&role, std::move(key)});
  }
  return *at;
}

size_t ActiveReads::Plan::ofRole(const Role& role) const {
  return role.index < ofRole_.size() ? ofRole_[role.index] : none;
}
size_t ActiveReads::Plan::ofKey(const EntityKey& key) const {
  const auto found = ofKey_.find(key);
  return found == ofKey_.end() ? none : found->second;
}

ActiveReads::Id ActiveReads::begin(Plan plan) {
  dropAbandoned();
  reads_.emplace(++last_, Read{.plan = std::move(plan)});
  return last_;
}

void ActiveReads::next(Id id, Piece& piece) {
  const auto at = reads_.find(id);
  try {
    if (at->second.fault) throw Fault(*at->second.fault);
    Filling(at->second, store_, limits_, piece).run();
    if (piece.isLast) reads_.erase(at);
  } catch (...) {
    reads_.erase(at);
    throw;
  }
}

void ActiveReads::abandon(Id id) {
  const std::lock_guard lock(mutex_);
  abandoned_.push_back(id);
}

void ActiveReads::dropAbandoned() {
  const std::lock_guard lock(mutex_);
  for (const Id id : abandoned_) reads_.erase(id);
  abandoned_.clear();
}

void ActiveReads::endAll(const Fault& fault) {
  dropAbandoned();
  for (auto& [id, read] : reads_) read.fault = fault;
}

void ActiveReads::beforeChange(const Role& role, const Vane::BaseRow& key,
                               const Vane::BaseRow& before) {
  if (reads_.empty()) return;
  dropAbandoned();
  for (auto& [id, read] : reads_) {
    if (!read.fault) keep(read, role, key, before);
  }
}

void ActiveReads::keep(Read& read, const Role& role, const Vane::BaseRow& keyRow,
                       const Vane::BaseRow& before) {
  const EntityKey key = keyOf(role, keyRow);
  const auto isToCome = [&](size_t step) { return step != Plan::none && step >= read.at; };
  if (!isToCome(read.plan.ofRole(role)) && !isToCome(read.plan.ofKey(key))) return;
  if (read.kept.contains(key)) return;
  std::optional<Image> image;
  if (!before.isNull()) image = store_.image(role, Vane::BaseRow(before));
  read.keptBytes += absentBytes + (image ? image->bytes() : 0);
  if (read.keptBytes > limits_.keptBytes) {
    read.kept.clear();
    read.fault =
        Fault(grpc::StatusCode::RESOURCE_EXHAUSTED,
              fmt::format("too much was written while this was being read: its copies of what has "
                          "changed take more than {} bytes",
                          limits_.keptBytes));
    return;
  }
  read.kept.emplace(key, std::move(image));
}

}  // namespace Agent::P4
