// The operations of a writer, each on a small table in the state that makes it do the most: what
// the campaigns interrupt.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "torture/Examination.h"

namespace Torture {

inline const std::string tableName = "a/b/table";

struct Operation {
  const char* name;
  Shape shape;
  // Puts the table into its state. None: there is no table, nor its directory.
  std::function<void(Shoal::TableStore&)> prepare;
  // What the writer does, one step after the other. With `attaches` it gets no table, and the whole
  // of its life is the one step: from attaching on, or a removal.
  std::vector<std::function<void(Shoal::TableStore&)>> steps;
  std::function<void(const std::filesystem::path& root)> attaches;
  bool removes = false;
};

const std::vector<Operation>& operations();

// Makes the directory hold what the operation begins with.
void prepare(const Operation& operation, const std::filesystem::path& root);

// The contents before the first step, after it, after the second, ..., and the changes told by
// then.
struct Course {
  std::vector<std::optional<Content>> contents;
  std::vector<uint64_t> changes;

  // Between the steps of which so many are done.
  Between between(size_t done) const {
    const size_t next = std::min(done + 1, contents.size() - 1);
    return {contents[done], contents[next], changes[done]};
  }
};
Course courseOf(const Operation& operation);

}  // namespace Torture
