// A library that needs a function which nobody has.
void aFunctionThatNobodyHas();

namespace {

struct Calling {
  Calling() { aFunctionThatNobodyHas(); }
};
const Calling calling;

}  // namespace
