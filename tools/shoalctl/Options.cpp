#include "tools/shoalctl/Options.h"

#include <charconv>
#include <concepts>
#include <utility>

#include "platform/Shoal/SharedTable.h"
#include "tools/common/TableCommands.h"
#include "tools/shoalctl/Commands.h"

namespace ShoalCtl {
namespace {

using Tools::Words;

// A number in the range of its type, read strictly: CLI11 takes "-1" for a large unsigned one.
template <std::integral T>
void addNumber(CLI::App& app, const char* name, std::optional<T>& to, const char* says) {
  const auto parse = [&to](const CLI::results_t& words) {
    T value = 0;
    const std::string& word = words.front();
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc() && stop == word.data() + word.size()) to = value;
    return to.has_value();
  };
  app.add_option(name, parse, says)->type_name("N");
}

class Declaration : public Tools::TableCommands<Options> {
 public:
  Declaration(Tools::CommandLine& line, Options& options) : TableCommands(line, options) {
    options_.root = Shoal::defaultRoot();
    CLI::Option* root = line_.app()
                            .add_option("--root", options_.root, "Directory of the shared tables")
                            ->type_name("DIR");
    line_.complete(root, Words::directories());
    tables();
    show();
    lookup();
    watch();
    check();
  }

 private:
  void tables() {
    add("tables", "What each table is, and how full", &listTables);
    add("summary", "What the entries of each table are, counted", &summarize);
  }

  void show() {
    Filter& filter = options_.filter;
    CLI::App& show = add("show", "The entries of a table as they are read", &showEntries,
                         {{"shoalctl show VaneIpv4Override --prefix 10.0.0.0/8 --longer",
                           "10.0.0.0/8 and all inside"},
                          {"shoalctl show VaneIpv4VrfPrefix --vrf 5 --limit 10", "ten routes"}});
    addTable(show);
    show.add_option("KEY", options_.key,
                    "Only the entry of this key: a prefix; VRF,PREFIX; or the number of a member, "
                    "group or encap");
    CLI::Option* prefix =
        show.add_option("--prefix", filter.prefix, "Only this prefix")->type_name("P");
    show.add_flag("--longer", filter.longer, "Also the prefixes inside it")->needs(prefix);
    addNumber(show, "--vrf", filter.vrf, "Only routes of this routing instance");
    addNumber(show, "--type", filter.type,
              "Only routes with this type of destination: 1 is a member, 2 a group");
    addNumber(show, "--limit", filter.limit, "At most so many entries");
    show.add_option("--after", filter.after, "Begin behind the entry of this key")
        ->type_name("KEY");

    CLI::App& get = add("get", "The entry of a key", &getEntry,
                        {{"shoalctl get VaneIpv4VrfPrefix 5,10.0.0.0/8", "one route"}});
    addTable(get);
    get.add_option("KEY", options_.key,
                   "A prefix; VRF,PREFIX; or the number of a member, group or encap")
        ->required();
  }

  void lookup() {
    CLI::App& lookup =
        add("lookup", "Where packets to an address go: longest match, group, members, encaps",
            &lookUp, {{"shoalctl lookup 2001:db8::1 --vrf 5", "also in routing instance 5"}});
    lookup.add_option("ADDRESS", options_.address, "An IPv4 or IPv6 address")->required();
    addNumber(lookup, "--vrf", options_.filter.vrf,
              "Look into this routing instance, between the override and the fallback table");
  }

  void watch() {
    WatchOptions& watch = options_.watch;
    CLI::App& app =
        add("watch", "Changes of tables as they happen", &watchChanges,
            {{"shoalctl watch VaneEcmpGroup --snapshot --json", "its entries, then every change"}});
    addTables(app);
    addNumber(app, "--since", watch.since, "Begin behind the change of this number; 0: the first");
    addNumber(app, "--limit", watch.limit, "End after so many changes");
    app.add_flag("--snapshot", watch.snapshot,
                 "Show the entries first, and again after every resync");
    app.add_flag("--needs-writer", watch.needsWriter,
                 "End with status 8 when a table has no writer");
  }

  void check() {
    addTables(
        add("check", "Whether the tables are sound, and lead to what is there", &checkTables));
    addTables(add("dump", "Every row, as p4rt-agent --load reads it", &dumpTables,
                  {{"shoalctl dump | p4rt-agent --load - --shoal-root DIR", "a copy"}}));
  }
};

}  // namespace

Command parseOptions(Tools::CommandLine& line, Options& options, int argc, char** argv) {
  const Declaration declared(line, options);
  if (!line.parse(argc, argv)) return nullptr;
  options.output = line.output();
  return declared.chosen();
}

Tools::About about() {
  return {
      .name = "shoalctl",
      .says = "Shows the switch's routing tables, straight from shared memory",
      .examples = {{"shoalctl tables", "what there is"},
                   {"shoalctl show VaneIpv4Override | head", "its first routes"},
                   {"shoalctl lookup 192.0.2.1 --vrf 5", "where packets to an address go"},
                   {"shoalctl watch --json", "every change of every table"},
                   {"shoalctl check", "whether all is well"}},
      .chapters = {{"tables",
                    {"The tables are files below one directory: that of --root, else of "
                     "$SHOAL_ROOT, else /dev/shm/shoal-UID. They are read without the agent, which "
                     "need not run, and without any lock: reading never holds up the writer.",
                     "A table is called by its name in the row database, such as "
                     "VaneIpv4Override, by its path, or by the last part of that, "
                     "ipv4OverrideTable."}},
                   {"output",
                    {"Records go to standard output, everything else to standard error. In a "
                     "table, columns are aligned; in plain form, a tab stands between two values, "
                     "and a backslash, tab, line break or other control character inside a value "
                     "is written as in C. CSV is that of RFC 4180. JSON is one object a line, with "
                     "every column of the row under its own name and type."}},
                   {"watching",
                    {"A record of watch is of one kind: set or removed, a change, with its number, "
                     "the key, and the row as it is now, which is empty if the entry has gone "
                     "since; entry, an entry of the snapshot; writer or noWriter, whether there is "
                     "a process that may change the table, told at the beginning and whenever that "
                     "changes; resync, changes have been missed: forget the table and read it "
                     "afresh, or let --snapshot do it; gone, the table has been removed: watching "
                     "goes on, and ends with a resync when there is a new one."}}},
      .seeAlso = {"p4rt-agent"},
  };
}

}  // namespace ShoalCtl
