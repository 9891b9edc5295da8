#include "torture/Campaign.h"

namespace Torture {

namespace {
constexpr size_t findingsKept = 20;
}

void Tally::found(uint64_t Tally::*head, const std::string& what) {
  ++(this->*head);
  if (findings.size() < findingsKept) findings.push_back(what);
}

Tally& Tally::operator+=(const Tally& other) {
  for (const auto head : {&Tally::rounds, &Tally::faults, &Tally::reads, &Tally::torn, &Tally::hung,
                          &Tally::lost, &Tally::leaked}) {
    this->*head += other.*head;
  }
  for (const std::string& finding : other.findings) {
    if (findings.size() < findingsKept) findings.push_back(finding);
  }
  return *this;
}

}  // namespace Torture
