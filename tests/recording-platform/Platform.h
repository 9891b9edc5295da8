// The parts of the recording platform that a test sets up and looks into.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Hub/EntityManager.h"
#include "platform/Hub/Mount.h"
#include "platform/P4Runtime/Loader.h"
#include "platform/Shoal/TableEntity.h"
#include "platform/Shoal/TableStore.h"
#include "platform/Vane/VaneDB.h"
#include "tests/recording-platform/Recorder.h"

namespace Recording {

// A table in ordinary memory, in order of key bytes.
class Store final : public Shoal::TableStore {
 public:
  Store(std::string path, Shoal::EntryLayout layout, Shoal::Mode mode)
      : path_(std::move(path)), layout_(std::move(layout)), mode_(mode) {}
  ~Store() override { event("table gone " + path_); }

  const std::string& path() const override { return path_; }
  const Shoal::EntryLayout& layout() const override { return layout_; }
  Shoal::Mode mode() const override { return mode_; }
  uint64_t capacity() const override { return 1024; }
  uint64_t size() const override { return entries_.size(); }
  uint64_t generation() const override { return 1; }
  bool lookup(Shoal::Bytes key, Shoal::MutableBytes entry) const override;
  bool first(Shoal::IterHint& hint, Shoal::MutableBytes entry) const override;
  bool next(Shoal::Bytes key, Shoal::IterHint& hint, Shoal::MutableBytes entry) const override;
  bool set(Shoal::Bytes key, Shoal::Bytes entry) override;
  bool erase(Shoal::Bytes key) override;
  void clear() override;
  void wakeFollowers() override {}
  void corruptionDetected(const std::string&) override {}
  uint64_t corruptionsDetected() const override { return 0; }

 private:
  using Block = std::vector<std::byte>;
  static Block block(Shoal::Bytes bytes) { return Block(bytes.begin(), bytes.end()); }
  using Entries = std::map<Block, Block>;
  static bool copyOut(const Entries& entries, Entries::const_iterator at,
                      Shoal::MutableBytes entry);

  std::string path_;
  Shoal::EntryLayout layout_;
  Shoal::Mode mode_;
  Entries entries_;
};

// Entities by path, as one flat list.
using Tree = std::map<std::string, Kit::Ptr<Kit::Entity>>;

class Manager final : public Hub::EntityManager {
 public:
  Manager(Kit::Name name, std::shared_ptr<Tree> tree)
      : EntityManager(std::move(name)), tree_(std::move(tree)) {}
  Kit::Ptr<Hub::MountGroup> getMountGroup(const Kit::Ptr<Hub::Mounter>& mounter) const override;
  std::unique_ptr<KitShoal::MountService> mountService() const override;

 private:
  std::shared_ptr<Tree> tree_;
};

class Database final : public Vane::VaneDB {
 public:
  explicit Database(std::string name) : name_(std::move(name)) {}
  ~Database() override { event(name_ + ": database gone"); }

  void registerTable(const std::string& name, const std::string& rowTypeName, Vane::TableType type,
                     uint16_t a, uint16_t b, const std::string& text, Options options) override;
  void tableImplementationIs(const std::string& name,
                             std::shared_ptr<Vane::VaTableImplementation> table) override;
  uint32_t tableTypeId(const std::string& rowTypeName) override;
  std::vector<std::string> tableNames() const override { return installed_; }
  std::shared_ptr<Vane::VaTableImplementation> table(const std::string& name) const override;
  Vane::BaseRow classRecord(const std::string&) const override { return {}; }
  void metadataIs(const std::string&) override {}

  const std::vector<std::string>& registered() const { return registered_; }
  void forgetImplementations() { tables_.clear(); }

 private:
  std::string name_;
  std::vector<std::string> registered_;
  std::vector<std::string> installed_;
  std::map<std::string, std::shared_ptr<Vane::VaTableImplementation>> tables_;
};

}  // namespace Recording
