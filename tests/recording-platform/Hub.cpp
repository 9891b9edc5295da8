// The recording platform's state database.
#include <sstream>

#include "tests/recording-platform/Platform.h"

namespace Recording {
namespace {

// What doMount returns. Nobody else holds it, so that the moment shows at which it is let go.
class Mounted final : public Kit::Entity {
 public:
  explicit Mounted(std::string path) : Entity("mounted"), path_(std::move(path)) {}
  ~Mounted() override { event("dropped " + path_); }

 private:
  std::string path_;
};

class Service final : public KitShoal::MountService {
 public:
  Service(std::string manager, std::shared_ptr<Tree> tree)
      : manager_(std::move(manager)), tree_(std::move(tree)) {}
  ~Service() override { event(manager_ + ": mount gone"); }

  Kit::Ptr<Kit::Entity> doMount(const Kit::String& path, const Kit::String& typeName,
                                const KitShoal::MountInfo& info) override {
    std::ostringstream text;
    text << "doMount " << path << " as " << typeName << " type "
         << static_cast<uint32_t>(info.type()) << " collection " << info.collectionInfo().name
         << " of " << info.collectionInfo().size;
    call(text.str());
    return new Mounted(path.str());
  }
  Kit::Ptr<Kit::Entity> getEntity(const Kit::String& path) override {
    call("getEntity " + path.str());
    const auto found = tree_->find(path.str());
    return found == tree_->end() ? nullptr : found->second;
  }
  void cleanup(const Kit::String& path) override { call("cleanup " + path.str()); }
  void doUnmount(const Kit::String& path) override { call("doUnmount " + path.str()); }

 private:
  std::string manager_;
  std::shared_ptr<Tree> tree_;
};

class Group final : public Hub::MountGroup {
 public:
  void doClose(bool partial, Kit::String reason, const double& timeout) override {
    std::ostringstream text;
    text << "doClose " << std::boolalpha << partial << " \"" << reason << "\" " << timeout;
    call(text.str());
  }
};

}  // namespace

Kit::Ptr<Hub::MountGroup> Manager::getMountGroup(const Kit::Ptr<Hub::Mounter>& mounter) const {
  call(name().str() + ": getMountGroup of " + mounter->name().str());
  return new Group;
}

std::unique_ptr<KitShoal::MountService> Manager::mountService() const {
  call(name().str() + ": mount");
  return std::make_unique<Service>(name().str(), tree_);
}

}  // namespace Recording

namespace Hub {

std::ostream& operator<<(std::ostream& out, MountStatus status) {
  return out << static_cast<int>(status);
}

}  // namespace Hub
