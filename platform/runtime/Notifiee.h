// Vok::NotifieeConst: the base of reactors. A reactor is bound to one notifier and, while it
// is registered and its notifications are active, receives each change of the notifier through
// onAttribute(field, key).
#pragma once

#include "runtime/Node.h"
#include "runtime/Publisher.h"

namespace Vok {

class NotifieeConst : public Brix::Node {
 public:
  NotifieeConst() noexcept : sub_(this) {}
  ~NotifieeConst() override = default;

  char const* typeData() const override { return "Vok::NotifieeConst"; }

  Brix::Node const* notifier() const noexcept { return notifier_.get(); }
  Brix::Ptr<Brix::Node const> const& notifierPtr() const noexcept { return notifier_; }

  // Binds to `n`, or unbinds with null. Registration and activity carry over to the new notifier.
  void notifierIs(Brix::Node const* n) {
    if (n == notifier_.get()) return;
    subscriptionIs(false);
    notifier_ = n;
    sync();
  }

  bool isRegisteredNotifiee() const noexcept { return registered_; }
  void isRegisteredNotifieeIs(bool on) const {
    registered_ = on;
    const_cast<NotifieeConst*>(this)->sync();
  }

  // Turns delivery to this reactor on or off.
  void hasNotificationActiveIs(bool on) {
    if (on == hasNotificationActive()) return;
    Brix::hasNotificationActiveSet(this, on);
    sync();
  }

  bool zombie() const noexcept { return markAndSweepFlag(); }

  virtual void onZeroReferences() {}
  virtual void onAttribute(Brix::FieldId /*field*/, void const* /*key*/) {}
  // A plain notifiee has no reactors and no cleanup: only its own delivery follows the state.
  virtual void vokDoZombieReactors(bool zombie) {
    if (zombie == markAndSweepFlag()) return;
    if (notifier()) hasNotificationActiveIs(!zombie);
    markAndSweepFlagSet(zombie);
  }

 protected:
  // Connects or disconnects delivery from the notifier. A clock notifiee arms its timer instead.
  virtual void vokSubscriptionIs(bool on) {
    if (on) {
      sub_.subscribeTo(notifier_->publisher(), &NotifieeConst::dispatch);
    } else {
      sub_.unsubscribe();
    }
  }
  // A derived destructor calls this while its own override of vokSubscriptionIs still applies.
  void disconnect() { subscriptionIs(false); }

 private:
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const*) noexcept {
    s->ownerAs<NotifieeConst>()->onAttribute(field, key);
  }

  void sync() { subscriptionIs(notifier_ && registered_ && hasNotificationActive()); }
  void subscriptionIs(bool on) {
    if (on == connected_) return;
    connected_ = on;
    vokSubscriptionIs(on);
  }

  Brix::Ptr<Brix::Node const> notifier_;
  Brix::Subscriber sub_;
  mutable bool registered_ = false;
  bool connected_ = false;
};

}  // namespace Vok
