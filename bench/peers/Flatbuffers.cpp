#include "bench/Formats.h"
#include "route_generated.h"

namespace Bench {
namespace {

struct Flatbuffers {
  static constexpr auto name = "Flatbuffers";

  // One builder, used again; the record is the buffer that it lets go.
  static flatbuffers::DetachedBuffer record(const IpDestination& entry) {
    static flatbuffers::FlatBufferBuilder builder(128);
    const auto& prefix = entry.destinationPrefix;
    const auto address =
        builder.CreateVector(prefix.bytes.data(), Wire::addressLength(prefix.family));
    const auto packed = BenchFlat::CreatePrefix(builder, prefix.length, address);
    builder.Finish(BenchFlat::CreateRoute(builder, entry.genId, entry.entryHandle, entry.valid,
                                          entry.entryId, packed, entry.destinationType,
                                          entry.destinationId));
    return builder.Release();
  }
  static uint64_t fold(const flatbuffers::DetachedBuffer& record) {
    const BenchFlat::Route* route = BenchFlat::GetRoute(record.data());
    const BenchFlat::Prefix* prefix = route->destination_prefix();
    return foldedColumns(route->gen_id(), route->entry_handle(), route->valid(), route->entry_id(),
                         prefix->length(), prefix->address()->data(), prefix->address()->size(),
                         route->destination_type(), route->destination_id());
  }
};

const FormatSubjects<Flatbuffers> subjects;

}  // namespace
}  // namespace Bench
