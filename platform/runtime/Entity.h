// Vok::Entity: the base of every entity. It owns the publisher through which each change of
// an attribute goes out, as a field and a key, never a value.
#pragma once

#include "runtime/Node.h"
#include "runtime/Publisher.h"

namespace Vok {

class Entity : public Brix::Node {
 public:
  Brix::Publisher* publisher() const override { return &publisher_; }
  char const* typeData() const override { return "Vok::Entity"; }
  virtual void handleParent(Brix::Ptr<Entity> const& /*parent*/) {}

  // Delivers one change. The entity is held for the delivery, so a subscriber that drops the
  // last other use of it does not pull it away under the publisher.
  void publish(Brix::FieldId field, void const* key = nullptr, void const* value = nullptr) const noexcept {
    if (publisher_.subscriberCount() == 0) return;
    Brix::Ptr<Entity const> hold(this);
    publisher_.publishChangeRecursive(field, key, value, nullptr);
  }

 private:
  mutable Brix::Publisher publisher_;
};

}  // namespace Vok
