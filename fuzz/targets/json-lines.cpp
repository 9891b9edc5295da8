// The agent's inputs: rows as JSON Lines, and lists of prefixes. Cut into pieces anywhere, packed
// or not, an input has one meaning: every good line is applied and every bad one is reported by its
// number, as a second, slow reading of the same lines has it.
//
//   | how | length of a piece | bytes of the input ... |
//
//   how: bit 0: prefixes, not JSON; bit 1: strict; bit 2: gzip's
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "agent/ByteSource.h"
#include "agent/LineSplitter.h"
#include "agent/PrefixRows.h"
#include "agent/RowCommands.h"
#include "agent/Tables.h"
#include "fuzz/Fuzz.h"
#include "fuzz/RowTypes.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingEcmpTypesVaneWrappers.h"
#include "src-includes/P4RuntimeVane/P4RuntimeRoutingTypesVaneWrappers.h"
#include "tests/adapters/MemoryStore.h"

namespace {

using Fuzz::need;

// What the agent says to people, kept instead of written.
class LogTap {
 public:
  // The logger takes standard error as it finds it at the first line.
  LogTap() {
    FILE* const before = std::exchange(
        stderr, ::fopencookie(
                    this, "w",
                    {.read = nullptr, .write = &LogTap::take, .seek = nullptr, .close = nullptr}));
    std::setvbuf(stderr, nullptr, _IONBF, 0);
    Agent::Log::error("tapped", {}, "tapped");
    stderr = before;
    need(text_.find("tapped") != std::string::npos, "the log is tapped");
  }
  std::string taken() { return std::exchange(text_, {}); }

 private:
  static ssize_t take(void* tap, const char* text, size_t size) {
    static_cast<LogTap*>(tap)->text_.append(text, size);
    return static_cast<ssize_t>(size);
  }
  std::string text_;
};

// Of each line of the log the first: what stands behind it may be the input's own words.
std::set<uint64_t> numbersIn(const std::string& log) {
  std::set<uint64_t> numbers;
  constexpr std::string_view field = " line=";
  for (size_t at = log.find(field); at != std::string::npos; at = log.find(field, at)) {
    numbers.insert(std::stoull(log.substr(at + field.size(), 20)));
    at = std::min(log.find('\n', at), log.size());
  }
  return numbers;
}

// The row database of an agent whose tables are in this process's memory.
class Agents {
 public:
  Agents() {
    using namespace P4RuntimeRouting;
    add<IpDestinationTableVaneWrappers::IpDestinationVaneWrapper,
        IpDestinationTableVaneWrappers::IpDestinationTraits>(
        {"VaneIpv4Override", "VaneIpv4Fallback", "VaneIpv6Override", "VaneIpv6Fallback"});
    add<IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationVaneWrapper,
        IpVrfPrefixTableVaneWrappers::VrfPrefixDestinationTraits>(
        {"VaneIpv4VrfPrefix", "VaneIpv6VrfPrefix"});
    add<EcmpMemberVaneWrappers::NexthopInfoVaneWrapper, EcmpMemberVaneWrappers::NexthopInfoTraits>(
        {"VaneEcmpMember"});
    add<EcmpGroupVaneWrappers::EcmpMemberListVaneWrapper,
        EcmpGroupVaneWrappers::EcmpMemberListTraits>({"VaneEcmpGroup"});
    using namespace NexthopGroup::L2NexthopGroupEncapTableVaneWrappers;
    add<L2NexthopGroupEncapVaneWrapper, L2NexthopGroupEncapTraits>(
        {"VaneIpv4Encap", "VaneIpv6Encap"});
  }

  // What the tables hold, as text; and they are empty again.
  std::string emptied() {
    std::string all;
    for (const std::string& name : database()->tableNames()) {
      const auto table = database()->table(name);
      all += name + "\n";
      const auto toJson = Vane::rowMetadata(table->rowTypeName())->toJson;
      for (const auto at = table->begin(0); *at; ++*at) all += toJson(**at) + "\n";
      table->rowDelAll();
    }
    return all;
  }
  Agent::RowTables& tables() { return tables_; }

 private:
  static std::shared_ptr<Vane::VaneDB> database() {
    Fuzz::needRowDatabase();
    return Vane::VaneDB::current();
  }
  template <class Adapter, class Traits>
  void add(std::initializer_list<const char*> names) {
    for (const char* name : names) {
      const Kit::Ptr<typename Traits::Table> table = new typename Traits::Table(name);
      table->storeIs(
          std::make_shared<adapter_tests::MemoryStore>(table->layout(), Shoal::Mode::writer, 40));
      database()->registerTable(name, Traits::Row::rowTypeName(), Vane::TableType::adapter, 0, 0,
                                "", {});
      database()->tableImplementationIs(
          name, std::make_shared<Adapter>(table, database(), nullptr, true));
    }
  }

  Agent::RowTables tables_{database()};
};

struct Outcome {
  Agent::LoadCounts counts;
  std::set<uint64_t> refused;  // by line number
  std::string tables;
  std::vector<uint64_t> syncs;
  bool isReadable = true;

  bool operator==(const Outcome& other) const {
    return counts.ok == other.counts.ok && counts.failed == other.counts.failed &&
           refused == other.refused && tables == other.tables && syncs == other.syncs;
  }
};

class Load {
 public:
  Load(uint8_t how, Agents& agents, LogTap& log) : how_(how), agents_(agents), log_(log) {}

  // As the agent does it: from a file, in pieces, with one loader for all lines.
  Outcome asTheAgent(const std::string& file, size_t piece) {
    const auto loader = make();
    Agent::LineSplitter splitter(*loader);
    try {
      Agent::ByteSource source(file);
      std::string bytes;
      bool wanted = true;
      while (wanted && source.read(bytes)) wanted = feed(splitter, bytes, piece);
      if (wanted) splitter.finish();
    } catch (const Agent::InputException&) {
      outcome_.isReadable = false;
    }
    return finished();
  }

  // Line by line, each with a loader of its own that knows nothing of the lines before.
  Outcome byLines(std::string_view input) {
    for (uint64_t number = 1; !input.empty(); ++number) {
      const size_t end = input.find('\n');
      std::string_view line = input.substr(0, end);
      input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
      if (line.ends_with('\r')) line.remove_suffix(1);
      if (!make()->line(number, line)) break;
    }
    return finished();
  }

 private:
  static bool feed(Agent::LineSplitter& splitter, std::string_view bytes, size_t piece) {
    while (!bytes.empty()) {
      const auto next = bytes.substr(0, piece);
      if (!splitter.feed(next)) return false;
      bytes.remove_prefix(next.size());
    }
    return true;
  }
  std::unique_ptr<Agent::LineConsumer> make() {
    const bool strict = (how_ & 2) != 0;
    if (how_ & 1) {
      return std::make_unique<Agent::PrefixRows>("input", strict, outcome_.counts, agents_.tables(),
                                                 progress_);
    }
    return std::make_unique<Agent::RowCommands>(
        "input", strict, outcome_.counts, agents_.tables(),
        [this](uint64_t id) { outcome_.syncs.push_back(id); });
  }
  Outcome finished() {
    outcome_.refused = numbersIn(log_.taken());
    need(outcome_.refused.size() == outcome_.counts.failed, "each bad line is reported once");
    outcome_.tables = agents_.emptied();
    return outcome_;
  }

  uint8_t how_;
  Agents& agents_;
  LogTap& log_;
  Agent::PrefixRows::Progress progress_;
  Outcome outcome_;
};

// A file without a name that holds these bytes.
class File {
 public:
  File() : fd_(::memfd_create("input", MFD_CLOEXEC)) {}
  std::string holding(std::string_view bytes) const {
    need(::ftruncate(fd_, 0) == 0 &&
             ::pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
         "the input's file can be written");
    return "/proc/self/fd/" + std::to_string(fd_);
  }

 private:
  int fd_;
};

std::string packed(const std::string& bytes) {
  z_stream stream{};
  constexpr int gzipWindow = 15 + 16;
  need(deflateInit2(&stream, 1, Z_DEFLATED, gzipWindow, 8, Z_DEFAULT_STRATEGY) == Z_OK,
       "zlib works");
  std::string out(deflateBound(&stream, bytes.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  need(deflate(&stream, Z_FINISH) == Z_STREAM_END, "zlib packs");
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static LogTap log;
  static Agents agents;
  static const File file;
  Fuzz::Input input(data, size);
  const auto how = input.take<uint8_t>();
  const size_t piece = 1 + input.take<uint8_t>();
  const std::string text = input.text(input.size());

  const std::string bytes = how & 4 ? packed(text) : text;
  const Outcome told = Load(how, agents, log).asTheAgent(file.holding(bytes), piece);
  const bool looksPacked = (how & 4) == 0 && text.starts_with("\x1f\x8b");
  need(told.isReadable || looksPacked, "what is not packed can be read");
  if (looksPacked) return 0;
  const Outcome expected = Load(how, agents, log).byLines(text);
  need(told == expected, "every line has its outcome, however the input is cut");
  return 0;
}
