// Writes down every call that the plug-in makes to its platform, in order, and can make any one of
// them fail.
//
// A call is one line of text: the function and all of its arguments. Calls are told apart from the
// moments at which something that the plug-in was given goes away; those cannot fail.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/P4Runtime/Plugin.h"

namespace Recording {

// What a failed call throws. Derived from nothing in the platform, so that whoever catches a
// platform exception does not catch it.
struct InjectedFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The standard assertion of this platform: it throws where another one aborts.
struct AssertionFailed {
  std::string condition;
  std::string file;
  int line;
  std::string function;
};

class Recorder {
 public:
  // Made on first use: the plug-in calls its platform while static objects are made.
  static Recorder& instance();

  // A call: written down, and failed if it is the one to fail.
  void call(const std::string& text);
  // What cannot fail.
  void event(const std::string& text);

  // Calls and events, in order.
  const std::vector<std::string>& lines() const { return lines_; }
  bool isCall(size_t line) const { return isCall_.at(line); }
  // The call that would be this line fails.
  void failAt(size_t line) { failAt_ = line; }
  // Forgets all lines and failures; those written while the program was loaded are kept apart.
  void reset();
  const std::vector<std::string>& loadLines() const { return loadLines_; }
  const std::vector<std::string>& loadTraceHandles() const { return loadTraceHandles_; }

  // When set, the plug-in base hands this to pluginInit in place of the context that it has stored.
  Kit::Ptr<P4Runtime::PluginContext> argument;
  // The names of the trace handles that were made, ever.
  std::vector<std::string> traceHandles;

 private:
  std::vector<std::string> lines_;
  std::vector<bool> isCall_;
  std::vector<std::string> loadLines_;
  std::vector<std::string> loadTraceHandles_;
  std::optional<size_t> failAt_;
  bool loaded_ = false;
};

inline void call(const std::string& text) { Recorder::instance().call(text); }
inline void event(const std::string& text) { Recorder::instance().event(text); }

}  // namespace Recording
