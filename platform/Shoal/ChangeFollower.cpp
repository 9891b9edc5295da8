// Following a table's changes: reading its ring, and sleeping on its futex word.
//
// The writer overwrites the oldest record without asking. A follower copies a record and then looks
// at its number again; a number that is not the expected one means that the follower is too far
// behind.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <utility>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/SharedTable.h"
#include "platform/Shoal/Store.h"

namespace Shoal {

namespace {

using std::chrono::milliseconds;

// The writer wakes sleepers after a batch; whoever comes to sleep in the middle of one that is then
// never finished still looks again after this.
constexpr milliseconds longestSleep{20};

// The kernel's own form of a time span for the futex call, whatever the C library's is.
struct KernelSpan {
  long seconds;
  long nanoseconds;
};

template <class Shape>
class Follower final : public ChangeFollower {
 public:
  Follower(std::shared_ptr<const Store> store, std::optional<uint64_t> since)
      : store_(std::move(store)), table_(store_->view()) {
    position_ = since.value_or(latest());
  }

  Result take(Changes& out, size_t limit) override {
    const uint64_t end = latest();
    if (position_ > end || end - position_ > table_.plan.ringRecords) return missed();
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(end - position_, limit));
    if (wanted == 0) return Result::none;
    const size_t taken = copyRecords(out, wanted);
    if (taken == 0) return missed();
    position_ += taken;
    return Result::changes;
  }

  bool wait(milliseconds limit) override {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
      const uint32_t wakes = look(table_.header().wakes);
      if (latest() != position_) return true;
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= left.zero()) return false;
      sleep(wakes, std::min<std::chrono::nanoseconds>(left, longestSleep));
    }
  }

  uint64_t position() const override { return position_; }

 private:
  uint64_t latest() const { return look(table_.header().changes); }

  Result missed() {
    position_ = latest();
    return Result::missed;
  }

  // Appends the records of so many changes, up to the first that has been overwritten. In order of
  // their places, as they are, the processor fetches the next ones by itself.
  size_t copyRecords(Changes& out, size_t wanted) const {
    const size_t stride = table_.ringStride();
    std::byte* to = out.room(table_.shape.keySize, stride, wanted);
    size_t taken = 0;
    for (uint64_t number = position_ + 1; taken < wanted; ++number, ++taken, to += stride) {
      const ChangeHead& record = table_.change(number);
      if (look(record.number) != number) break;
      copyOut(to, reinterpret_cast<const std::byte*>(&record), stride);
      if (look(record.number) != number) break;
    }
    out.added(taken);
    return taken;
  }

  void sleep(uint32_t wakes, std::chrono::nanoseconds span) const {
    const KernelSpan kernelSpan{0, static_cast<long>(span.count())};
    ::syscall(SYS_futex, &table_.header().wakes, FUTEX_WAIT, wakes, &kernelSpan, nullptr, 0);
  }

  std::shared_ptr<const Store> store_;
  const ShapedView<Shape> table_;
  uint64_t position_ = 0;
};

}  // namespace

std::unique_ptr<ChangeFollower> follow(const std::shared_ptr<TableStore>& store,
                                       std::optional<uint64_t> since) {
  auto mapped = std::dynamic_pointer_cast<const Store>(store);
  if (!mapped || mapped->mode() == Mode::snapshot) {
    throw Guard::Exception("shared table \"" + (store ? store->path() : std::string()) +
                           "\": only an attached table has changes to follow");
  }
  return withShapeOf(mapped->view().plan, [&](auto shape) -> std::unique_ptr<ChangeFollower> {
    return std::make_unique<Follower<decltype(shape)>>(std::move(mapped), since);
  });
}

}  // namespace Shoal
