#include "platform/Shoal/Store.h"

#include <unistd.h>

#include <optional>
#include <sstream>
#include <utility>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/CrashPoint.h"
#include "platform/Shoal/TableFile.h"
#include "platform/Shoal/TableReader.h"
#include "platform/Shoal/TableWriter.h"
#include "platform/Trace/Trace.h"

namespace Shoal {

// The memory that even an empty table needs is claimed before the header says so.
void format(Memory& memory, const EntryLayout& layout, const Plan& plan) {
  memory.claim(0, plan.slotsOffset);
  memory.claim(plan.levelOffset[0], uint64_t{plan.levelWords[0]} * sizeof(uint32_t));
  crashPoint<"create: memory claimed">();
  const Header header = headerFor(layout, plan);
  std::memcpy(memory.base(), &header, sizeof header);
  crashPoint<"create: header written">();
}

namespace {

template <class Shape>
class ShapedStore final : public Store {
 public:
  ShapedStore(Mode mode, EntryLayout layout, const Plan& plan, std::unique_ptr<Memory> memory,
              FileDescriptor lock, std::string path)
      : Store(mode, std::move(layout), plan, std::move(memory), std::move(lock), std::move(path)),
        table_(view()),
        reader_(table_) {
    if (mode != Mode::writer) return;
    writer_.emplace(table_, this->memory());
    writer_->repair();
    crashPoint<"attach: table whole">();
    noteWriter();
  }
  // A child process that inherited the store is not the writer and leaves everything as it is.
  ~ShapedStore() override {
    if (!isWriter()) return;
    put(table_.header().writerPid, 0);
    crashPoint<"detach: no process noted">();
    writer_->wakeFollowers();
  }

  bool lookup(Bytes key, MutableBytes entry) const override {
    needKeys(key);
    needEntries(entry);
    return reader_.lookup(key.data(), entry.data());
  }
  void lookupBatch(Bytes keys, MutableBytes entries, std::span<bool> found) const override {
    needKeys(keys, found.size());
    needEntries(entries, found.size());
    reader_.lookupBatch(keys.data(), entries.data(), found);
  }
  bool first(IterHint& hint, MutableBytes entry) const override {
    needEntries(entry);
    return reader_.next(nullptr, hint, entry.data(), 1) != 0;
  }
  bool next(Bytes key, IterHint& hint, MutableBytes entry) const override {
    needKeys(key);
    needEntries(entry);
    return reader_.next(key.data(), hint, entry.data(), 1) != 0;
  }
  size_t nextBatch(Bytes after, IterHint& hint, MutableBytes entries) const override {
    if (!after.empty()) needKeys(after);
    const size_t room = entries.size() / table_.shape.entrySize;
    return reader_.next(after.empty() ? nullptr : after.data(), hint, entries.data(), room);
  }

  bool set(Bytes key, Bytes entry) override {
    needKeys(key);
    needEntries(entry);
    return writer("set").set(key.data(), entry.data());
  }
  void reserve(uint64_t entries) override { writer("reserve").reserve(entries); }
  bool erase(Bytes key) override {
    needKeys(key);
    return writer("erase").erase(key.data());
  }
  void clear() override { writer("clear").clear(); }
  void wakeFollowers() override { writer("wakeFollowers").wakeFollowers(); }

 private:
  TableWriter<Shape>& writer(const char* call) {
    needWriter(call);
    return *writer_;
  }
  void needKeys(Bytes keys, size_t count = 1) const {
    need("key", keys.size(), table_.shape.keySize * count);
  }
  void needEntries(Bytes entries, size_t count = 1) const {
    need("entry", entries.size(), table_.shape.entrySize * count);
  }

  const ShapedView<Shape> table_;
  const TableReader<Shape> reader_;
  std::optional<TableWriter<Shape>> writer_;
};

}  // namespace

std::shared_ptr<Store> Store::make(Mode mode, EntryLayout layout, const Plan& plan,
                                   std::unique_ptr<Memory> memory, FileDescriptor lock,
                                   std::string path) {
  return withShapeOf(plan, [&](auto shape) -> std::shared_ptr<Store> {
    return std::make_shared<ShapedStore<decltype(shape)>>(
        mode, std::move(layout), plan, std::move(memory), std::move(lock), std::move(path));
  });
}

void Store::noteWriter() {
  Header& header = view_.header();
  const auto pid = static_cast<uint32_t>(::getpid());
  put(header.writerStart, processStart(pid, path()).value_or(0));
  crashPoint<"attach: start noted">();
  put(header.writerPid, pid);
  crashPoint<"attach: process noted">();
  put(header.generation, header.generation + 1);
  crashPoint<"attach: generation raised">();
}

void Store::corruptionDetected(const std::string& message) {
  corruptions_.fetch_add(1);
  {
    const std::lock_guard guard(corruptionMutex_);
    lastCorruption_ = message;
  }
  const Trace::Handle& handle = Trace::handle("Shoal");
  if (handle.enabled(0)) DualLog::trace(handle, 0, {"platform/Shoal/Store", __LINE__}, message);
}

std::shared_ptr<Store> Store::snapshotOf(const Store& source) {
  const Plan& plan = source.view_.plan;
  auto memory = std::make_unique<Memory>(plan.fileSize, source.path());
  format(*memory, source.layout_, plan);
  const TableView view{memory->base(), plan, source.path()};
  withShapeOf(plan, [&](auto shape) {
    const ShapedView<decltype(shape)> table(view);
    TableWriter<decltype(shape)> filler(table, *memory);
    source.forEach([&](Bytes entry) { filler.set(entry.data() + shape.keyOffset, entry.data()); });
  });
  put(view.header().generation, source.generation());
  return make(Mode::snapshot, source.layout_, plan, std::move(memory), FileDescriptor(),
              source.path());
}

void Store::throwNotWriter(const char* call) const {
  const char* const found = mode_ == Mode::reader     ? "it is attached as reader"
                            : mode_ == Mode::snapshot ? "it is attached as snapshot"
                                                      : "this process is a child of the writer";
  std::ostringstream text;
  text << "shared table \"" << path() << "\": " << call << " requires a writer, but " << found;
  throw Guard::Exception(text.str());
}

void Store::throwSize(const char* what, size_t found, size_t expected) const {
  std::ostringstream text;
  text << "shared table \"" << path() << "\": " << what << " of " << found << " bytes, expected "
       << expected;
  throw Guard::Exception(text.str());
}

}  // namespace Shoal
