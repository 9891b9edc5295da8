#include "agent/p4/ActiveReads.h"

#include <algorithm>
#include <utility>

namespace Agent::P4 {
namespace {

constexpr size_t absentBytes = sizeof(EntityKey) + sizeof(Image) + 64;

}  // namespace

class ActiveReads::Filling {
 public:
  Filling(Read& read, const RowStore& store, const Limits& limits)
      : read_(read), store_(store), limits_(limits) {}

  Piece run() {
    while (!isFull() && read_.at < read_.steps.size()) {
      const Step& step = read_.steps[read_.at];
      if (step.key.isNull() ? !nextRow(step) : !oneRow(step)) {
        read_.row.reset();
        ++read_.at;
      }
    }
    while (!isFull() && !read_.kept.empty()) giveKept();
    piece_.isLast = read_.at == read_.steps.size() && read_.kept.empty();
    return std::move(piece_);
  }

 private:
  bool isFull() const { return piece_.found.size() >= limits_.rows || bytes_ >= limits_.bytes; }

  void give(size_t query, Image image) {
    bytes_ += image.bytes();
    piece_.found.push_back({query, std::move(image)});
  }
  void giveUnlessKept(const Step& step, Vane::BaseRow row) {
    if (!read_.kept.empty() && read_.kept.contains(keyOf(*step.role, row))) return;
    give(step.query, store_.image(*step.role, std::move(row)));
  }

  // False when there is no more. The iterator is moved on only now: it would give the row that it
  // came to in the piece before as it was then.
  bool nextRow(const Step& step) {
    if (read_.row) {
      ++*read_.row;
    } else {
      read_.row = store_.table(*step.role).begin(0);
    }
    if (!*read_.row) return false;
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
      for (const Step& step : read_.steps) {
        if (asksFor(step, *first->second->role, first->first)) give(step.query, *first->second);
      }
    }
    read_.kept.erase(first);
  }

  Read& read_;
  const RowStore& store_;
  const Limits& limits_;
  Piece piece_;
  size_t bytes_ = 0;
};

ActiveReads::Id ActiveReads::begin(std::vector<Step> steps) {
  dropAbandoned();
  reads_.emplace(++last_, Read{.steps = std::move(steps)});
  return last_;
}

ActiveReads::Piece ActiveReads::next(Id id) {
  const auto at = reads_.find(id);
  try {
    if (at->second.fault) throw Fault(*at->second.fault);
    Piece piece = Filling(at->second, store_, limits_).run();
    if (piece.isLast) reads_.erase(at);
    return piece;
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

bool ActiveReads::asksFor(const Step& step, const Role& role, const EntityKey& key) {
  return step.role == &role && (step.key.isNull() || keyOf(role, step.key) == key);
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
  const auto toCome = std::span(read.steps).subspan(read.at);
  const bool asked =
      std::ranges::any_of(toCome, [&](const Step& step) { return asksFor(step, role, key); });
  if (!asked || read.kept.contains(key)) return;
  std::optional<Image> image;
  if (!before.isNull()) image = store_.image(role, before);
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
