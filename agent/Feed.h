// Feeds the agent's inputs to the tables, one input after the other, in pieces that the loop runs.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "agent/ByteSource.h"
#include "agent/EventLoop.h"
#include "agent/LineLoader.h"
#include "agent/LineSplitter.h"

namespace Agent {

class Feed {
 public:
  // Makes the consumer of an input's lines when its turn has come.
  using MakeLoader = std::function<std::unique_ptr<LineConsumer>(const std::string& inputName)>;
  struct Input {
    std::string name;  // a file, or "-"
    MakeLoader makeLoader;
  };
  struct Callbacks {
    std::function<void()> afterBatch;             // some lines have been applied
    std::function<void()> atEnd;                  // every input has ended
    std::function<void(const std::string&)> bad;  // an input could not be read to its end
    std::function<void()> stopped;                // a consumer wants no more: the feed has ended
  };

  Feed(EventLoop& loop, std::deque<Input> inputs, Callbacks callbacks)
      : loop_(loop), inputs_(std::move(inputs)), callbacks_(std::move(callbacks)) {}
  ~Feed() { close(); }
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  // Begins the first input; the loop does the rest.
  void start() { openNext(); }

 private:
  void openNext();
  void step();
  // Applies one piece of the present input; whether there may be more.
  bool stepInput();
  void stepLater();
  void close();

  EventLoop& loop_;
  std::deque<Input> inputs_;
  Callbacks callbacks_;
  std::unique_ptr<ByteSource> source_;
  std::unique_ptr<LineConsumer> consumer_;
  std::unique_ptr<LineSplitter> splitter_;
  std::string piece_;
  bool watched_ = false;  // the loop says when there is more to read
  bool posted_ = false;   // a step is posted already
  bool ended_ = false;    // a consumer wanted no more
};

}  // namespace Agent
