// Hosts of which a test replaces single services, for answers that no host file can describe.
#pragma once

#include "platform/forwarding_host.h"

namespace varnel::test {

/// A host of which some services are other ones.
class HostWith : public ForwardingHost {
 public:
  template <class... Services>
  explicit HostWith(Host& inner, Services&... services) : ForwardingHost(inner) {
    (Use(services), ...);
  }
  VssService& vss() override { return vss_ != nullptr ? *vss_ : ForwardingHost::vss(); }
  Storage& storage() override { return storage_ != nullptr ? *storage_ : ForwardingHost::storage(); }
  Processes& processes() override { return processes_ != nullptr ? *processes_ : ForwardingHost::processes(); }
  Registry& registry() override { return registry_ != nullptr ? *registry_ : ForwardingHost::registry(); }
  Messages& messages() override { return messages_ != nullptr ? *messages_ : ForwardingHost::messages(); }
  IscsiInitiator& iscsi() override { return iscsi_ != nullptr ? *iscsi_ : ForwardingHost::iscsi(); }
  Cluster& cluster() override { return cluster_ != nullptr ? *cluster_ : ForwardingHost::cluster(); }

 private:
  void Use(VssService& service) { vss_ = &service; }
  void Use(Storage& service) { storage_ = &service; }
  void Use(Processes& service) { processes_ = &service; }
  void Use(Registry& service) { registry_ = &service; }
  void Use(Messages& service) { messages_ = &service; }
  void Use(IscsiInitiator& service) { iscsi_ = &service; }
  void Use(Cluster& service) { cluster_ = &service; }

  VssService* vss_ = nullptr;
  Storage* storage_ = nullptr;
  Processes* processes_ = nullptr;
  Registry* registry_ = nullptr;
  Messages* messages_ = nullptr;
  IscsiInitiator* iscsi_ = nullptr;
  Cluster* cluster_ = nullptr;
};

/// The same, and the current host while it lives.
class CurrentHostWith {
 public:
  template <class... Services>
  explicit CurrentHostWith(Host& inner, Services&... services) : host_(inner, services...) {}

 private:
  HostWith host_;
  ScopedHost scope_{host_};
};

}  // namespace varnel::test
