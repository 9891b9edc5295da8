// Follows every table of the row database as a reader does, and accounts for what it sees.
//
// Two accounts of one stream of changes: what the table told its observer as it happened, and what
// a reader that asks by index was given. A reader sees only the latest of several changes of one
// key since it last asked.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Vane/ChangeReader.h"
#include "platform/Vane/VaneDB.h"

namespace Agent {

class Follower {
 public:
  // Follows from before everything: a table that holds rows already is read afresh first.
  explicit Follower(Vane::VaneDB& database);
  ~Follower();

  // Takes what has changed since the last call.
  void take();
  // The account of one table as a JSON object; "null" for a table that is not followed.
  std::string report(const std::string& tableName) const;

 private:
  struct Account;
  std::vector<std::unique_ptr<Account>> accounts_;
};

}  // namespace Agent
