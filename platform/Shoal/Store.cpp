#include "platform/Shoal/Store.h"

#include <unistd.h>

#include <sstream>
#include <utility>
#include <vector>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/CrashPoint.h"
#include "platform/Shoal/TableFile.h"
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

Store::Store(Mode mode, EntryLayout layout, const Plan& plan, std::unique_ptr<Memory> memory,
             FileDescriptor lock, std::string path)
    : mode_(mode),
      layout_(std::move(layout)),
      lock_(std::move(lock)),
      memory_(std::move(memory)),
      view_{memory_->base(), plan, std::move(path)},
      reader_(view_) {
  if (mode_ != Mode::writer) return;
  writer_.emplace(view_, *memory_);
  writer_->repair();
  crashPoint<"attach: table whole">();
  Header& header = view_.header();
  const auto pid = static_cast<uint32_t>(::getpid());
  put(header.writerStart, processStart(pid).value_or(0));
  crashPoint<"attach: start noted">();
  put(header.writerPid, pid);
  crashPoint<"attach: process noted">();
  put(header.generation, header.generation + 1);
  crashPoint<"attach: generation raised">();
}

// A child process that inherited the store is not the writer and leaves everything as it is.
Store::~Store() {
  if (!lock_.isHeld()) return;
  put(view_.header().writerPid, 0);
  crashPoint<"detach: no process noted">();
  writer_->wakeFollowers();
}

bool Store::lookup(Bytes key, MutableBytes entry) const {
  checkKey(key);
  checkEntry(entry);
  return reader_.lookup(key.data(), entry.data());
}

bool Store::first(IterHint& hint, MutableBytes entry) const {
  checkEntry(entry);
  return reader_.first(hint, entry.data());
}

bool Store::next(Bytes key, IterHint& hint, MutableBytes entry) const {
  checkKey(key);
  checkEntry(entry);
  return reader_.next(key.data(), hint, entry.data());
}

bool Store::set(Bytes key, Bytes entry) {
  checkKey(key);
  checkEntry(entry);
  return writer("set").set(key.data(), entry.data());
}

bool Store::erase(Bytes key) {
  checkKey(key);
  return writer("erase").erase(key.data());
}

void Store::clear() { writer("clear").clear(); }

void Store::wakeFollowers() { writer("wakeFollowers").wakeFollowers(); }

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
  auto copy = std::make_shared<Store>(Mode::snapshot, source.layout_, plan, std::move(memory),
                                      FileDescriptor(), source.path());
  TableWriter filler(copy->view_, *copy->memory_);
  std::vector<std::byte> entry(plan.entrySize);
  IterHint hint;
  for (bool more = source.reader_.first(hint, entry.data()); more;
       more = source.reader_.next(entry.data() + plan.keyOffset, hint, entry.data())) {
    filler.set(entry.data() + plan.keyOffset, entry.data());
  }
  put(copy->view_.header().generation, source.generation());
  return copy;
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
