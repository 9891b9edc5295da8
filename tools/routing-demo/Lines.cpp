#include "tools/routing-demo/Lines.h"

#include <iterator>

namespace Demo {
namespace {

using NexthopGroup::L2NexthopGroupEncap;
using P4RuntimeRouting::EcmpMemberList;
using P4RuntimeRouting::IpDestination;
using P4RuntimeRouting::NexthopInfo;
using P4RuntimeRouting::VrfPrefixDestination;

template <class... Args>
void append(LineBuffer& out, fmt::format_string<Args...> format, Args&&... args) {
  fmt::format_to(std::back_inserter(out), format, std::forward<Args>(args)...);
}

// The columns that every entry but an encap begins with.
template <class Entry>
void appendCommon(LineBuffer& out, const Entry& entry) {
  append(out, R"("genId":{}, "entryHandle":{}, "valid":{}, "entryId":{}, )", entry.genId,
         entry.entryHandle, entry.valid, entry.entryId);
}

template <class Values>
void appendArray(LineBuffer& out, const char* name, const Values& values, uint32_t count) {
  append(out, R"(, "{}":[)", name);
  for (uint32_t i = 0; i < count; ++i) {
    append(out, "{}{}", i == 0 ? "" : ", ", static_cast<uint32_t>(values[i]));
  }
  append(out, "]");
}

void appendKey(LineBuffer& out, const IpDestination& entry) {
  append(out, R"("destinationPrefix":"{}")", entry.destinationPrefix.text());
}
void appendKey(LineBuffer& out, const VrfPrefixDestination& entry) {
  append(out, R"("vrfId":{}, "prefix":"{}")", entry.key.vrfId, entry.key.prefix.text());
}
void appendKey(LineBuffer& out, const L2NexthopGroupEncap& entry) {
  append(out, R"("encapId":{})", entry.encapId);
}
void appendKey(LineBuffer& out, const NexthopInfo& entry) { append(out, R"("id":{})", entry.id); }
void appendKey(LineBuffer& out, const EcmpMemberList& entry) {
  append(out, R"("id":{})", entry.id);
}

template <class Route>
void appendRow(LineBuffer& out, const Route& entry) {
  appendCommon(out, entry);
  appendKey(out, entry);
  append(out, R"(, "destinationType":{}, "destinationId":{})", entry.destinationType,
         entry.destinationId);
}
void appendRow(LineBuffer& out, const NexthopInfo& entry) {
  appendCommon(out, entry);
  appendKey(out, entry);
  append(out,
         R"(, "egressPort":{}, "srcMac":"{}", "dstMac":"{}", "vlanTagged":{}, "encapType":{}, )"
         R"("vlanId":{})",
         entry.egressPort, entry.srcMac.text(), entry.dstMac.text(), entry.vlanTagged,
         entry.encapType, entry.vlanId);
}
void appendRow(LineBuffer& out, const EcmpMemberList& entry) {
  appendCommon(out, entry);
  appendKey(out, entry);
  appendArray(out, "members", entry.members, entry.memberCount);
  appendArray(out, "watchPorts", entry.watches, entry.watchCount);
}
void appendRow(LineBuffer& out, const L2NexthopGroupEncap& entry) {
  appendKey(out, entry);
  append(out, R"(, "entryHandle":{}, "encapType":{}, "srcAddr":"{}", "dstAddr":"{}")",
         entry.entryHandle, entry.encapType, entry.srcAddr.text(), entry.dstAddr.text());
}

}  // namespace

template <class Entry>
void appendSet(LineBuffer& out, Table table, const Entry& entry) {
  append(out, R"({{"table":"{}", "row":{{)", nameOf(table).row);
  appendRow(out, entry);
  append(out, "}}}}\n");
}

template <class Entry>
void appendDelete(LineBuffer& out, Table table, const Entry& entry) {
  append(out, R"({{"table":"{}", "op":"del", "row":{{)", nameOf(table).row);
  appendKey(out, entry);
  append(out, "}}}}\n");
}

template void appendSet(LineBuffer&, Table, const IpDestination&);
template void appendSet(LineBuffer&, Table, const VrfPrefixDestination&);
template void appendSet(LineBuffer&, Table, const NexthopInfo&);
template void appendSet(LineBuffer&, Table, const EcmpMemberList&);
template void appendSet(LineBuffer&, Table, const L2NexthopGroupEncap&);
template void appendDelete(LineBuffer&, Table, const IpDestination&);
template void appendDelete(LineBuffer&, Table, const VrfPrefixDestination&);
template void appendDelete(LineBuffer&, Table, const NexthopInfo&);
template void appendDelete(LineBuffer&, Table, const EcmpMemberList&);
template void appendDelete(LineBuffer&, Table, const L2NexthopGroupEncap&);

void appendSync(LineBuffer& out, uint64_t id) {
  append(out, "{{\"op\":\"sync\", \"id\":{}}}\n", id);
}

}  // namespace Demo
