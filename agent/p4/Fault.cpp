#include "agent/p4/Fault.h"

#include <new>

namespace Agent::P4 {

Fault currentFault() {
  try {
    throw;
  } catch (const Fault& fault) {
    return fault;
  } catch (const Guard::MemoryResourceException& full) {
    return {grpc::StatusCode::RESOURCE_EXHAUSTED, full.what()};
  } catch (const Guard::CorruptionDetectedException& corrupt) {
    return {grpc::StatusCode::DATA_LOSS, corrupt.what()};
  } catch (const std::bad_alloc&) {
    return {grpc::StatusCode::RESOURCE_EXHAUSTED, "the agent is out of memory"};
  } catch (const std::exception& failure) {
    return {grpc::StatusCode::INTERNAL, failure.what()};
  }
}

}  // namespace Agent::P4
