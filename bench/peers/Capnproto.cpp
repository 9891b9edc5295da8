#include <capnp/message.h>
#include <capnp/serialize.h>

#include "bench/Formats.h"
#include "route.capnp.h"

namespace Bench {
namespace {

struct Capnproto {
  static constexpr auto name = "Capnproto";

  // Built in a segment on the stack; the record is the flat array that it is handed on as.
  static kj::Array<capnp::word> record(const IpDestination& entry) {
    capnp::word segment[64] = {};
    capnp::MallocMessageBuilder builder(kj::arrayPtr(segment, 64));
    auto route = builder.initRoot<BenchCapnp::Route>();
    route.setGenId(entry.genId);
    route.setEntryHandle(entry.entryHandle);
    route.setValid(entry.valid);
    route.setEntryId(entry.entryId);
    const auto& from = entry.destinationPrefix;
    auto prefix = route.initDestinationPrefix();
    prefix.setLength(from.length);
    prefix.setAddress(kj::arrayPtr(from.bytes.data(), Wire::addressLength(from.family)));
    route.setDestinationType(entry.destinationType);
    route.setDestinationId(entry.destinationId);
    return capnp::messageToFlatArray(builder);
  }
  static uint64_t fold(const kj::Array<capnp::word>& record) {
    capnp::FlatArrayMessageReader reader(record);
    const auto route = reader.getRoot<BenchCapnp::Route>();
    const auto prefix = route.getDestinationPrefix();
    const auto address = prefix.getAddress();
    return foldedColumns(route.getGenId(), route.getEntryHandle(), route.getValid(),
                         route.getEntryId(), prefix.getLength(), address.begin(), address.size(),
                         route.getDestinationType(), route.getDestinationId());
  }
};

const FormatSubjects<Capnproto> subjects;

}  // namespace
}  // namespace Bench
