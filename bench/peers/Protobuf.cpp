#include <string>

#include "bench/Formats.h"
#include "route.pb.h"

namespace Bench {
namespace {

struct Protobuf {
  static constexpr auto name = "Protobuf";

  // One message, filled again; the record is the string that it is written to.
  static std::string record(const IpDestination& entry) {
    static bench::proto::Route route;
    const auto& prefix = entry.destinationPrefix;
    route.set_gen_id(entry.genId);
    route.set_entry_handle(entry.entryHandle);
    route.set_valid(entry.valid);
    route.set_entry_id(entry.entryId);
    route.mutable_destination_prefix()->set_length(prefix.length);
    route.mutable_destination_prefix()->set_address(prefix.bytes.data(),
                                                    Wire::addressLength(prefix.family));
    route.set_destination_type(entry.destinationType);
    route.set_destination_id(entry.destinationId);
    return route.SerializeAsString();
  }
  static uint64_t fold(const std::string& record) {
    static bench::proto::Route route;
    check(route.ParseFromString(record), "a record that can be parsed");
    const auto& prefix = route.destination_prefix();
    return foldedColumns(route.gen_id(), route.entry_handle(), route.valid(), route.entry_id(),
                         static_cast<uint8_t>(prefix.length()), prefix.address().data(),
                         prefix.address().size(), route.destination_type(), route.destination_id());
  }
};

const FormatSubjects<Protobuf> subjects;

}  // namespace
}  // namespace Bench
