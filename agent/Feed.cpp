#include "agent/Feed.h"

namespace Agent {

void Feed::openNext() {
  close();
  if (inputs_.empty()) return callbacks_.atEnd();
  const Input input = std::move(inputs_.front());
  inputs_.pop_front();
  try {
    source_ = std::make_unique<ByteSource>(input.name);
    watched_ = loop_.watch(source_->fd(), [this] { step(); });
  } catch (const std::exception& failure) {
    callbacks_.bad(failure.what());
    return loop_.post([this] { openNext(); });
  }
  consumer_ = input.makeLoader(source_->name());
  splitter_ = std::make_unique<LineSplitter>(*consumer_);
  if (!watched_) stepLater();
}

void Feed::step() {
  if (!source_) return;  // posted before the input ended
  bool more = false;
  try {
    more = stepInput();
  } catch (const InputException& failure) {
    callbacks_.bad(failure.what());
  }
  callbacks_.afterBatch();
  if (ended_) {
    close();
    return callbacks_.stopped();
  }
  if (!more) return openNext();
  if (!watched_ || source_->hasPending()) stepLater();
}

bool Feed::stepInput() {
  const bool more = source_->read(piece_);
  if (!splitter_->feed(piece_) || (!more && !splitter_->finish())) {
    ended_ = true;
    return false;
  }
  return more;
}

void Feed::stepLater() {
  if (std::exchange(posted_, true)) return;
  loop_.post([this] {
    posted_ = false;
    step();
  });
}

void Feed::close() {
  if (watched_) loop_.unwatch(source_->fd());
  watched_ = false;
  splitter_.reset();
  consumer_.reset();
  source_.reset();
}

}  // namespace Agent
