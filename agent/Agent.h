// The agent: mounts the tables, starts the plug-ins, feeds rows, serves, and cleans up.
//
// Rows are read and written through the row database alone. Everything runs on the loop's thread.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "agent/EventLoop.h"
#include "agent/Feed.h"
#include "agent/Follower.h"
#include "agent/LineLoader.h"
#include "agent/Options.h"
#include "agent/PrefixRows.h"
#include "agent/RowTable.h"
#include "agent/Services.h"
#include "platform/Hub/EntityManager.h"
#include "platform/P4Runtime/Plugin.h"

namespace Agent {

class P4rtAgent {
 public:
  P4rtAgent(Options options, std::unique_ptr<Services> services);
  ~P4rtAgent();
  P4rtAgent(const P4rtAgent&) = delete;
  P4rtAgent& operator=(const P4rtAgent&) = delete;

  // Serves until a signal, or with --once until the inputs have ended, and cleans up. Returns the
  // exit status. Throws what starting throws: then nothing has been served.
  int run();

 private:
  void loadPlugins();
  void start();
  void mountTables();
  void logLateMounts();
  // Does nothing until every plug-in has reported its mounts; called again when one may have.
  void serveWhenMounted();
  void serve();
  std::deque<Feed::Input> inputs();
  void afterBatch();
  void inputsEnded();
  void cleanUp();
  // One line of JSON on standard output: `head`, the counts and every table.
  void report(const std::string& head);

  Options options_;
  EventLoop loop_;
  Kit::Ptr<Hub::EntityManager> entityManager_;
  std::shared_ptr<Vane::VaneDB> database_;
  Kit::Ptr<P4Runtime::PluginContext> context_;
  std::vector<Kit::Ptr<P4Runtime::P4RuntimePluginBase>> plugins_;
  RowTables tables_;
  std::unique_ptr<Follower> follower_;
  LoadCounts counts_;
  PrefixRows::Progress prefixes_;
  std::unique_ptr<Services> services_;
  std::unique_ptr<Feed> feed_;  // once serving
  Descriptor mountTimer_;       // until serving
  std::chrono::steady_clock::time_point begun_;
  bool failed_ = false;
};

}  // namespace Agent
