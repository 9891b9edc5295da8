// shoalctl check: a record for each table, and one for each thing that is wrong with it.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "platform/Guard/Exception.h"
#include "platform/Shoal/TableCheck.h"
#include "tools/common/Exit.h"
#include "tools/shoalctl/Commands.h"
#include "tools/shoalctl/Names.h"
#include "tools/shoalctl/Table.h"

namespace ShoalCtl {
namespace {

using Tools::absent;
using Tools::ExitCode;
using Tools::Failure;
using Tools::RecordWriter;
using Tools::Style;

// From the harmless to the worst; the worst of all tables decides the exit status.
enum class Verdict : uint8_t { sound, orphan, unfinished, refused, corrupt };
struct VerdictMeaning {
  const char* name;
  ExitCode code;
  const char* text;
};
constexpr std::array<VerdictMeaning, 5> meanings{{
    {"sound", ExitCode::done, ""},
    {"orphan", ExitCode::failed, "entries lead to what is not there"},
    {"unfinished", ExitCode::stalled, "a writer has not finished what it was doing"},
    {"refused", ExitCode::refused, "not every table could be read"},
    {"corrupt", ExitCode::corrupt, "there are corrupt tables"},
}};
const VerdictMeaning& meaningOf(Verdict verdict) { return meanings[static_cast<size_t>(verdict)]; }

// The tables that entries lead to; null if there are none.
class Targets {
 public:
  explicit Targets(const std::filesystem::path& root) {
    for (const std::string& path : tablePaths(root)) {
      auto& target = rowDatabaseName(path) == "VaneEcmpMember"  ? members_
                     : rowDatabaseName(path) == "VaneEcmpGroup" ? groups_
                                                                : none_;
      if (&target != &none_) target = attached(root, path);
    }
  }

  // What is missing: "member 7"; empty if nothing is. Types of destination other than member and
  // group mean nothing here.
  std::string missing(const std::vector<Reference>& references) const {
    for (const auto& [type, id] : references) {
      if (type == Reference::member && !has(members_, id)) return fmt::format("member {}", id);
      if (type == Reference::group && !has(groups_, id)) return fmt::format("group {}", id);
    }
    return {};
  }

 private:
  // One that cannot be read is reported when it is checked itself.
  static std::unique_ptr<Table> attached(const std::filesystem::path& root,
                                         const std::string& path) {
    try {
      auto table = std::make_unique<Table>(root, path);
      return table->store()->layout().keySize == sizeof(Reference::id) ? std::move(table) : nullptr;
    } catch (const Failure&) {
      return nullptr;
    }
  }
  static bool has(const std::unique_ptr<Table>& table, uint32_t id) {
    if (!table) return false;
    std::vector<std::byte> entry(table->store()->layout().entrySize);
    const auto key = std::as_bytes(std::span<const uint32_t, 1>(&id, 1));
    return patiently([&] { return table->store()->lookup(key, entry); });
  }

  std::unique_ptr<Table> members_, groups_, none_;
};

class TableChecker {
 public:
  TableChecker(const Targets& targets, RecordWriter& records, std::string name)
      : targets_(targets), records_(records), name_(std::move(name)) {}

  Verdict check(const std::filesystem::path& root, const std::string& path) {
    try {
      const Table table(root, path);
      const Shoal::TableCheck found = Shoal::checkTable(*table.store());
      for (const std::string& fault : found.faults) tell(Verdict::corrupt, {}, fault);
      found_[Verdict::corrupt] = found.faultCount;
      if (found.isUnfinished) {
        tell(Verdict::unfinished, {}, "an operation is half done; the next writer repairs it");
      }
      if (table.isKnown()) entries(table);
      conclude(found, table.isKnown());
    } catch (const Failure& failure) {
      const bool isCorrupt = failure.code() == ExitCode::corrupt;
      tell(isCorrupt ? Verdict::corrupt : Verdict::refused, {}, failure.what());
    } catch (const Guard::CorruptionDetectedException& corruption) {
      tell(Verdict::corrupt, {}, corruption.what());
    }
    return worst_;
  }

 private:
  // Told up to a bound, and counted.
  void tell(Verdict verdict, const std::optional<std::string>& key, const std::string& what) {
    worst_ = std::max(worst_, verdict);
    if (found_[verdict]++ >= Shoal::maxFaultsTold) return;
    write(verdict, key, what);
  }

  void write(Verdict verdict, const std::optional<std::string>& key, const std::string& what) {
    records_ << name_ << meaningOf(verdict).name
             << (verdict == Verdict::sound ? Style::good : Style::bad) << key << what;
    records_.endRecord();
  }

  void entries(const Table& table) {
    const Kind& kind = table.kind();
    table.walk([&](Shoal::Bytes entry) {
      std::string fault = kind.fault(entry);
      if (fault.empty() && kind.isRoute() && kind.route(entry).prefix.family != table.family()) {
        fault = "its prefix is of the other family";
      }
      const std::string key = fault.empty() ? "" : kind.keyText(table.keyOf(entry));
      if (!fault.empty()) {
        tell(Verdict::corrupt, key, fault);
      } else if (const std::string missing = orphanOf(table, entry); !missing.empty()) {
        tell(Verdict::orphan, kind.keyText(table.keyOf(entry)),
             fmt::format("leads to {}, which is not there", missing));
      }
      return true;
    });
  }

  // Looked at twice: the entry may have been changed, and then what it led to removed.
  std::string orphanOf(const Table& table, Shoal::Bytes entry) const {
    std::string missing = targets_.missing(table.kind().references(entry));
    if (missing.empty()) return {};
    const auto key = table.keyOf(entry);
    const auto now = table.find({key.begin(), key.end()});
    if (!now) return {};
    return targets_.missing(table.kind().references(*now));
  }

  void conclude(const Shoal::TableCheck& found, bool isKnown) {
    for (const auto& [verdict, count] : found_) {
      if (count <= Shoal::maxFaultsTold) continue;
      write(verdict, std::nullopt, fmt::format("and {} more", count - Shoal::maxFaultsTold));
    }
    if (worst_ != Verdict::sound) return;
    write(Verdict::sound, std::nullopt,
          fmt::format("{} entries, {} free slots, {} index words, {} changes{}{}", found.entries,
                      found.freeSlots, found.indexWords, found.changes,
                      found.isCounted ? "" : "; its writer is at work, so counts were not compared",
                      isKnown ? "" : "; entries of a type that is not known here"));
  }

  const Targets& targets_;
  RecordWriter& records_;
  std::string name_;
  Verdict worst_ = Verdict::sound;
  std::map<Verdict, uint64_t> found_;
};

}  // namespace

void checkTables(const Options& options, Tools::Output& out) {
  std::vector<std::string> paths;
  for (const std::string& name : options.tables) paths.push_back(findTable(options.root, name));
  if (paths.empty()) paths = tablePaths(options.root);
  RecordWriter records(out, options.output,
                       {Tools::text("table", 18), Tools::text("verdict", 10),
                        Tools::text("key", 18), Tools::text("what", 20)});
  const Targets targets(options.root);
  Verdict worst = Verdict::sound;
  for (const std::string& path : paths) {
    worst = std::max(
        worst, TableChecker(targets, records, rowDatabaseName(path)).check(options.root, path));
  }
  records.finish();
  if (worst != Verdict::sound) throw Failure(meaningOf(worst).code, meaningOf(worst).text);
}

}  // namespace ShoalCtl
