#include "tools/vanectl/Options.h"

#include <utility>

#include "tools/common/TableCommands.h"
#include "tools/vanectl/Client.h"
#include "tools/vanectl/Commands.h"

namespace VaneCtl {
namespace {

using Tools::Words;

class Declaration : public Tools::TableCommands<Options> {
 public:
  Declaration(Tools::CommandLine& line, Options& options) : TableCommands(line, options) {
    options_.socket = defaultSocket();
    CLI::Option* socket =
        line_.app()
            .add_option("--socket", options_.socket, "The agent's socket for the row database")
            ->type_name("PATH");
    line_.complete(socket, Words::files());
    reading();
    writing();
    watching();
    moving();
    running();
  }

 private:
  void addKey(CLI::App& app) {
    app.add_option("KEY", options_.key,
                   "The values of the key columns with commas between them, or a JSON object")
        ->required();
  }

  void reading() {
    add("tables", "What each table is, and how far its changes have come", &listTables);
    addTable(add("describe", "The columns of a table's rows", &describeTable,
                 {{"vanectl describe VaneIpv4VrfPrefix", "its columns, and which are its key"}}));
    CLI::App& get = add("get", "The row of a key", &getRow,
                        {{"vanectl get VaneIpv4VrfPrefix 5,10.0.0.0/8", "one route"}});
    addTable(get);
    addKey(get);
    CLI::App& scan = add("scan", "The rows of a table, in its own order", &scanRows,
                         {{"vanectl scan VaneEcmpMember --limit 10", "ten members"}});
    addTable(scan);
    scan.add_option("--after", options_.after,
                    "Begin behind the row of this key, which may be gone")
        ->type_name("KEY");
    scan.add_option("--limit", options_.limit, "At most so many rows")->type_name("N");
  }

  void writing() {
    CLI::App& set = add("set", "Insert a row, or replace the one with its key", &setRow,
                        {{"vanectl set VaneIpv4Override destinationPrefix=10.0.0.0/8 "
                          "destinationId=5",
                          "columns that are not given become zero"},
                         {"vanectl set VaneEcmpGroup id=7 members=1,2,3", "a list"}});
    addTable(set);
    set.add_option("COLUMN=VALUE", options_.row, "Columns and their values, or one JSON object")
        ->required();
    CLI::App& del = add("del", "Remove the row of a key; that it is absent is no failure",
                        &deleteRow, {{"vanectl del VaneIpv4Override 10.0.0.0/8", "one route"}});
    addTable(del);
    addKey(del);
    addTable(add("clear", "Remove every row of a table", &clearTable));
  }

  void watching() {
    CLI::App& watch =
        add("watch", "Changes of tables as they happen", &watchTables,
            {{"vanectl watch VaneEcmpGroup --snapshot --json", "its rows, then every change"},
             {"vanectl watch --reconnect", "also over a restart of the agent"}});
    addTables(watch);
    watch.add_option("--since", options_.since, "Begin behind the change with this index")
        ->type_name("N");
    watch.add_option("--limit", options_.limit, "End after so many changes")->type_name("N");
    watch.add_flag("--snapshot", options_.snapshot,
                   "Show the rows first, and again after every resync");
    watch.add_flag("--reconnect", options_.reconnect,
                   "Wait for the agent when it has gone, and go on");
  }

  void moving() {
    addTables(add("dump", "Every row as a line of JSON", &dumpTables,
                  {{"vanectl dump > rows.jsonl", "all tables"}}));
    CLI::App& load = add("load", "Apply rows from lines of JSON, as dump writes them", &loadRows,
                         {{"vanectl load rows.jsonl", "bad lines are told and skipped"},
                          {"vanectl dump | vanectl load --socket OTHER", "a copy"}});
    options_.file = "-";
    line_.complete(load.add_option("FILE", options_.file, "The lines; - is standard input"),
                   Words::files());
    load.add_flag("--strict", options_.strict, "Stop at the first line that is refused");
  }

  void running() {
    add("status", "How the agent, its tables and their observers are", &showStatus,
        {{"vanectl status --json", "all of it in one object"}});
    CLI::App& level = add("log-level", "What the agent logs from now on", &logLevel,
                          {{"vanectl log-level debug", "everything"}});
    level
        .add_option("LEVEL", options_.level,
                    "error, warning, info or debug; without one it is only told")
        ->check(CLI::IsMember(std::vector<std::string>{"error", "warning", "info", "debug"}));
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
      .name = "vanectl",
      .says = "Looks at and changes the running agent's row database",
      .examples = {{"vanectl tables", "what there is"},
                   {"vanectl scan VaneIpv4Override | head", "its first rows"},
                   {"vanectl set VaneIpv4Override destinationPrefix=10.0.0.0/8", "a row"},
                   {"vanectl watch --json", "every change of every table"},
                   {"vanectl status", "whether all is well"}},
      .chapters =
          {{"the agent",
            {"The agent is reached over a Unix socket: that of --socket, else rowdb.sock in "
             "$P4RT_RUN_DIR, else in the directory that is named like the root of the shared "
             "tables ($SHOAL_ROOT, else /dev/shm/shoal-UID) with .run behind it. Its group may "
             "use it too. shoalctl shows the same tables without the agent."}},
           {"output",
            {"Records go to standard output, everything else to standard error. In a table, "
             "columns are aligned; in plain form, a tab stands between two values. JSON is one "
             "object a line. dump writes JSON in any case, in the form that load and p4rt-agent "
             "--load read."}},
           {"watching",
            {"A record of watch is of one kind: set or removed, a change, with its index, the key "
             "and the row as it is now (of a removed one the key alone); entry, a row of the "
             "snapshot; entries, the end of the snapshot: changes above its index follow; resync, "
             "changes have been missed, for the reason noted: forget the table and read it afresh, "
             "or let --snapshot do it. Several changes of one key since it was last told may be "
             "told as one.",
             "An agent that has gone ends the watch with status 8, unless --reconnect is given: "
             "then it goes on when there is an agent again. Indices begin anew in each run of the "
             "agent, so each table begins with a resync then."}}},
      .seeAlso = {"p4rt-agent", "shoalctl"},
  };
}

}  // namespace VaneCtl
