// How a plug-in library makes itself known.
//
// The library holds one static object derived from PluginBase. Its constructor, run when the
// library is loaded, hands the process's default loader an init-caller; the agent runs the
// init-callers when its context exists, and each calls its object's virtual init().
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/Kit/Entity.h"

namespace P4Runtime {
class PluginContext;
class P4RuntimePluginBase;
}  // namespace P4Runtime

template <class Context>
class PluginBase {
 public:
  // Calls the virtual init() of the plug-in object that it belongs to.
  class PluginBaseInitCaller {
   public:
    explicit PluginBaseInitCaller(PluginBase* plugin) : plugin_(plugin) {}
    Kit::Ptr<P4Runtime::P4RuntimePluginBase> operator()(Context* context) const {
      return plugin_->init(context);
    }
    const PluginBase* plugin() const { return plugin_; }

   private:
    PluginBase* plugin_;
  };

  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;

  // Creates and starts the plug-in's entity.
  virtual Kit::Ptr<P4Runtime::P4RuntimePluginBase> init(Context* context) = 0;

  const PluginBaseInitCaller& initCaller() const { return initCaller_; }

 protected:
  PluginBase() : initCaller_(this) {}
  ~PluginBase() = default;

 private:
  PluginBaseInitCaller initCaller_;
};

namespace Plugin {

template <class Context>
class Loader {
 public:
  // An init-caller together with the loader whose context it is given.
  class LoaderInitCallerWithContext {
   public:
    using InitCaller = typename PluginBase<Context>::PluginBaseInitCaller;
    LoaderInitCallerWithContext(Loader* loader, InitCaller initCaller)
        : loader_(loader), initCaller_(initCaller) {}
    Kit::Ptr<P4Runtime::P4RuntimePluginBase> operator()() const {
      return initCaller_(loader_->context());
    }
    const PluginBase<Context>* plugin() const { return initCaller_.plugin(); }

   private:
    Loader* loader_;
    InitCaller initCaller_;
  };
  using InitCallers = std::vector<std::unique_ptr<LoaderInitCallerWithContext>>;

  virtual ~Loader() = default;

  // Records a plug-in: its name, where it was loaded from (the text that source() gives), the name
  // of the feature that it implements, the profile that it belongs to, and its init-caller, which
  // is one of initCallers().
  virtual void registerPlugin(const std::string& name, const std::string& source,
                              const std::string& feature, const std::string& profile,
                              LoaderInitCallerWithContext* initCaller) = 0;
  // What the loader is loading now; plug-ins pass it on to registerPlugin.
  virtual std::string source() const = 0;

  // In order of registration. The loader owns them.
  InitCallers& initCallers() { return initCallers_; }

  // Given to each init-caller; null until the agent has one.
  Context* context() const { return context_; }
  void contextIs(Context* context) { context_ = context; }

 private:
  InitCallers initCallers_;
  Context* context_ = nullptr;
};

}  // namespace Plugin

namespace P4Runtime {

// The process-wide loader.
Plugin::Loader<PluginContext>& DefaultPluginLoader();

}  // namespace P4Runtime
