// Makes P4Runtime messages of rows. Looks at no table, so it runs in any thread.
#pragma once

#include "agent/p4/Image.h"
#include "agent/p4/Pipeline.h"
#include "p4/v1/p4runtime.pb.h"

namespace Agent::P4 {

class Renderer {
 public:
  Renderer(const Roles& roles, const Pipeline& pipeline) : roles_(roles), pipeline_(pipeline) {}

  // Into `to`, whatever has been rendered into it before: the parts of an entity of the same form
  // are used again, which is what makes the next piece of a large read cheap.
  //
  // False, with `to` in an unknown state, for an entity that is not for clients to see: a member or
  // group of a one-shot action set, and rows of others that P4Runtime has no form for.
  bool entity(const Image& image, p4::v1::Entity& to) const;
  // The default entry of a table, the same always.
  static void defaultEntry(const Role& table, p4::v1::Entity& to);

 private:
  bool tableEntry(const Image& image, p4::v1::TableEntry& to) const;
  bool member(const Image& image, p4::v1::ActionProfileMember& to) const;
  bool group(const Image& image, p4::v1::ActionProfileGroup& to) const;
  bool action(const Image& image, p4::v1::TableAction& to) const;
  bool oneShot(const Image& image, p4::v1::ActionProfileActionSet& to) const;
  static bool call(const Role& role, const Vane::BaseRow& row, p4::v1::Action& to);
  // Weight and watched port of a group's member or an action of a one-shot set.
  template <class Entry>
  void share(const Share& share, const SidePtr& side, size_t at, Entry& to) const;

  const Roles& roles_;
  const Pipeline& pipeline_;
};

}  // namespace Agent::P4
