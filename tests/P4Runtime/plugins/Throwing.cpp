// A library whose initialisation throws, which ends the process that loads it.
#include <stdexcept>

namespace {

struct Throwing {
  Throwing() { throw std::runtime_error("not in this process"); }
};
const Throwing throwing;

}  // namespace
