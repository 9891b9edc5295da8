// The tree of entities by path, and the tables that are mounted in it.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/Hub/Mount.h"
#include "platform/Hub/ReferenceHub.h"
#include "platform/Kit/Entity.h"
#include "platform/Shoal/TableEntity.h"

namespace Hub {

class MountTree {
 public:
  explicit MountTree(HubOptions options);

  Kit::Ptr<Kit::Entity> mount(const std::string& path, const std::string& typeName,
                              const KitShoal::MountInfo& info);
  Kit::Ptr<Kit::Entity> entity(const std::string& path) const;
  void cleanup(const std::string& path);
  void unmount(const std::string& path);
  void flush() const;
  uint64_t capacityOf(const std::string& path) const;

  const Post& post() const { return options_.post; }
  const Kit::Ptr<Kit::Dir>& root() const { return root_; }
  size_t failedMounts() const { return failedMounts_; }

 private:
  struct Mounted {
    Kit::Ptr<Shoal::TableEntityBase> entity;
    std::string typeName;
    bool removed = false;  // at unmount: cleaned up
  };

  Kit::Ptr<Kit::Entity> mountNew(const std::string& path, const std::string& typeName,
                                 const KitShoal::MountInfo& info);
  void placeMustBeFree(const std::string& path) const;
  uint64_t capacity(const std::string& path, const KitShoal::MountInfo& info) const;
  void put(const std::string& path, const Kit::Ptr<Shoal::TableEntityBase>& table);

  HubOptions options_;
  Kit::Ptr<Kit::Dir> root_;
  std::map<std::string, Mounted> mounted_;
  size_t failedMounts_ = 0;
};

}  // namespace Hub
