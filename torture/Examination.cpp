#include "torture/Examination.h"

#include <fmt/format.h>

#include <set>
#include <stdexcept>
#include <utility>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableCheck.h"

namespace Torture {

namespace {

ByteString keyIn(const Shoal::EntryLayout& layout, const ByteString& entry) {
  const auto from = entry.begin() + layout.keyOffset;
  return {from, from + layout.keySize};
}

std::string hexOf(const ByteString& bytes) {
  std::string text;
  for (const std::byte byte : bytes) text += fmt::format("{:02x}", std::to_integer<int>(byte));
  return text;
}

const ByteString* entryIn(const std::optional<Content>& content, const ByteString& key) {
  if (!content) return nullptr;
  const auto at = content->find(key);
  return at == content->end() ? nullptr : &at->second;
}

const Content& contentOr(const std::optional<Content>& content) {
  static const Content nothing;
  return content ? *content : nothing;
}

bool alike(const ByteString* a, const ByteString* b) {
  return a == nullptr || b == nullptr ? a == b : *a == *b;
}

}  // namespace

Content contentOf(const Shoal::TableStore& table) {
  Content content;
  ByteString entry(table.layout().entrySize);
  Shoal::IterHint hint;
  for (bool more = table.first(hint, entry); more;) {
    const ByteString key = keyIn(table.layout(), entry);
    if (!content.emplace(key, entry).second) {
      throw std::runtime_error("a walk gives the key " + hexOf(key) + " twice");
    }
    more = table.next(key, hint, entry);
  }
  return content;
}

void Examiner::found(uint64_t Tally::*head, const std::string& what) {
  tally_.found(head, context_ + ": " + what);
}

void Examiner::either(const Content& seen, const Between& between, const std::string& who) {
  std::set<ByteString, InOrder> keys;
  for (const Content* content : {&seen, &contentOr(between.before), &contentOr(between.after)}) {
    for (const auto& [key, entry] : *content) keys.insert(key);
  }
  for (const ByteString& key : keys) {
    ++tally_.reads;
    const auto at = seen.find(key);
    const ByteString* entry = at == seen.end() ? nullptr : &at->second;
    const ByteString* old = entryIn(between.before, key);
    const ByteString* next = entryIn(between.after, key);
    if (alike(entry, old) || alike(entry, next)) continue;
    if (entry == nullptr) {
      found(&Tally::lost, who + " misses the key " + hexOf(key));
    } else if (old == nullptr && next == nullptr) {
      found(&Tally::lost, who + " has the key " + hexOf(key) + ", which nobody put there");
    } else {
      found(&Tally::torn, who + " has neither the old nor the new entry of " + hexOf(key));
    }
  }
}

void Examiner::reader(const Shoal::TableStore& table, const Between& between) {
  try {
    const Content walked = contentOf(table);
    either(walked, between, "a reader's walk");
    ByteString entry(shape_.layout.entrySize);
    for (const Content* content : {&contentOr(between.before), &contentOr(between.after)}) {
      for (const auto& [key, expected] : *content) {
        ++tally_.reads;
        const bool isThere = table.lookup(key, entry);
        const auto at = walked.find(key);
        if (isThere != (at != walked.end()) || (isThere && entry != at->second)) {
          found(&Tally::torn, "a reader's look-up differs from its walk for " + hexOf(key));
        }
      }
    }
  } catch (const Shoal::BusyException& busy) {
    found(&Tally::hung, "a reader, though nobody writes: " + busy.message());
  } catch (const std::exception& error) {
    found(&Tally::torn, fmt::format("a reader: {}", error.what()));
  }
}

void Examiner::newReader(const std::filesystem::path& root, const std::string& name,
                         const Between& between) {
  Store table;
  try {
    table = Shoal::attachReader(root, name, shape_.layout);
  } catch (const Shoal::AttachException& refused) {
    if (between.before && between.after) {
      found(&Tally::lost, "a reader cannot attach: " + refused.message());
    }
    return;
  }
  if (!between.before && !between.after) return found(&Tally::lost, "a table is there");
  reader(*table, between);
}

void Examiner::nextWriter(const std::filesystem::path& root, const std::string& name,
                          const Between& between, const Shoal::TableStore* watching) {
  try {
    const Store table = Shoal::attachWriter(root, name, shape_.layout, shape_.capacity);
    const Content now = contentOf(*table);
    either(now, between, "the next writer");
    whole(*table, now);
    if (watching != nullptr) reader(*watching, {now, now});
    changes(table, now, between);
    goOn(*table, now);
    if (std::filesystem::exists(Shoal::tableFile(root, name).string() + ".new")) {
      found(&Tally::leaked, "the file that a creator began is still there");
    }
  } catch (const std::exception& error) {
    found(&Tally::lost, fmt::format("the next writer: {}", error.what()));
  }
}

// The table's own account of itself.
void Examiner::whole(const Shoal::TableStore& table, const Content& content) {
  if (table.size() != content.size()) {
    found(&Tally::torn,
          fmt::format("{} entries by count, {} by walk", table.size(), content.size()));
  }
  const Shoal::TableCheck check = Shoal::checkTable(table);
  for (const std::string& fault : check.faults) found(&Tally::torn, "its check: " + fault);
  if (!check.isCounted) found(&Tally::torn, "its check finds an operation under way");
}

// Followers that knew the table as it was are told of every key that is different now, what they
// are told last of a key is how it is, and of one step they are told once.
void Examiner::changes(const Store& table, const Content& now, const Between& between) {
  const bool isOneStep = between.before && between.after;
  const auto follower = Shoal::follow(table, isOneStep ? between.changesBefore : 0);
  Shoal::ChangeFollower::Changes taken;
  if (follower->take(taken, size_t{1} << 20) == Shoal::ChangeFollower::Result::missed) {
    return found(&Tally::lost, "the change ring does not tell of the last changes");
  }
  std::map<ByteString, bool, InOrder> removed;
  for (const auto& change : taken) {
    const ByteString key(change.key.begin(), change.key.end());
    const bool isNew = removed.insert_or_assign(key, change.removed).second;
    if (!isNew && isOneStep) {
      found(&Tally::torn, "the change ring tells of one step twice, of " + hexOf(key));
    }
  }
  for (const auto& [key, isRemoved] : removed) {
    if (isRemoved == (now.count(key) == 1)) {
      found(&Tally::lost, fmt::format("the change ring says that {} was {}", hexOf(key),
                                      isRemoved ? "removed" : "set"));
    }
  }
  const auto told = [&](const ByteString& key) { return removed.count(key) == 1; };
  for (const auto& [key, entry] : now) {
    if (!alike(&entry, entryIn(between.before, key)) && !told(key)) {
      found(&Tally::lost, "the change ring does not tell of the entry set for " + hexOf(key));
    }
  }
  for (const auto& [key, entry] : contentOr(between.before)) {
    if (now.count(key) == 0 && between.after && !told(key)) {
      found(&Tally::lost, "the change ring does not tell of the removal of " + hexOf(key));
    }
  }
}

// The table can be filled, emptied and filled again: to the last place if that is not far.
void Examiner::goOn(Shoal::TableStore& table, Content content) {
  const bool toTheEnd = table.capacity() <= 16;
  for (uint32_t round = 0; round < 2; ++round) {
    const uint64_t count = toTheEnd ? table.capacity() - content.size() : 4;
    for (uint32_t number = 0; number < count; ++number) {
      const ByteString entry = shape_.stranger(number);
      const ByteString key = keyIn(shape_.layout, entry);
      if (!table.set(key, entry)) found(&Tally::torn, "a new key is not new");
      content[key] = entry;
    }
    if (toTheEnd) {
      try {
        const ByteString oneMore = shape_.stranger(1000);
        table.set(keyIn(shape_.layout, oneMore), oneMore);
        found(&Tally::torn, "a full table takes one more");
      } catch (const Guard::MemoryResourceException&) {
      }
    }
    same(table, content, round == 0 ? "after it was filled" : "after it was filled again");
    whole(table, content);
    if (round == 1) break;
    for (const auto& [key, entry] : std::exchange(content, {})) {
      if (!table.erase(key)) found(&Tally::lost, "a key cannot be removed: " + hexOf(key));
    }
    same(table, content, "after it was emptied");
  }
}

void Examiner::same(const Shoal::TableStore& table, const Content& content,
                    const std::string& when) {
  if (contentOf(table) != content) found(&Tally::torn, "other entries than put, " + when);
}

}  // namespace Torture
