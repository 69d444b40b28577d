// Change notification: entities that notify, and the reactors that listen.
//
// A notifying entity derives from Notifier<N>, where N (its "notifiee") is a
// ReactorBase with one virtual hook per attribute (onBacklog(key), ...).
// Mutators call notify() synchronously, in the order the mutations happen.
//
// Delivery is re-entrant: a callback may create or destroy reactors of the
// same entity (itself included) or mutate the entity again. Reactors removed
// during a delivery are skipped, reactors added during it first hear the next
// notification, and no reactor hears one notification twice. The entity is
// kept alive until the delivery that is running on it returns.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "platform/vok/Entity.h"

namespace Vok {

class ReactorBase {
 public:
   ReactorBase() = default;
   ReactorBase(const ReactorBase&) = delete;
   ReactorBase& operator=(const ReactorBase&) = delete;
   virtual ~ReactorBase() = default;

   // A zombie reactor is being retired: its callbacks are skipped.
   bool isZombie() const noexcept { return zombie_; }
   void isZombieIs(bool zombie) {
      if (zombie == zombie_) {
         return;
      }
      zombie_ = zombie;
      if (zombie_) {
         onZombie();
      }
   }

   // Callbacks reach a reactor only while its notifications are active.
   bool hasNotificationActive() const noexcept { return notificationActive_; }
   void hasNotificationActiveIs(bool active) noexcept { notificationActive_ = active; }

   bool deliverable() const noexcept { return !zombie_ && notificationActive_; }

   // The watched entity was replaced by another, non-null one.
   virtual void onNotifier() {}
   // The reactor has just become a zombie.
   virtual void onZombie() {}

 private:
   bool zombie_ = false;
   bool notificationActive_ = true;
};

template <class N>
class Notifier : public Entity {
 public:
   using Notifiee = N;

   void attach(N* reactor) const { reactors_.push_back(reactor); }

   void detach(N* reactor) const {
      auto it = std::find(reactors_.begin(), reactors_.end(), reactor);
      if (it == reactors_.end()) {
         return;
      }
      if (depth_ > 0) {
         *it = nullptr;  // compacted once the outermost delivery returns
         holes_ = true;
      } else {
         reactors_.erase(it);
      }
   }

   std::size_t reactorCount() const noexcept {
      return static_cast<std::size_t>(
            std::count_if(reactors_.begin(), reactors_.end(), [](N* r) { return r; }));
   }

 protected:
   template <class Fn>
   void notify(Fn&& callback) const {
      if (reactors_.empty()) {
         return;
      }
      Delivery delivery(*this);
      // Reactors attached by a callback land past `count` and are not called.
      for (std::size_t i = 0, count = reactors_.size(); i < count; ++i) {
         N* reactor = reactors_[i];
         if (reactor && reactor->deliverable()) {
            callback(*reactor);
         }
      }
   }

 private:
   // Scope of one delivery: keeps the entity alive and compacts the reactor
   // list when the outermost delivery ends, also when a callback throws.
   class Delivery {
    public:
      explicit Delivery(const Notifier& owner) : owner_(owner), owned_(owner.references() > 0) {
         ++owner_.depth_;
         if (owned_) {
            owner_.retain();
         }
      }
      ~Delivery() {
         if (--owner_.depth_ == 0 && owner_.holes_) {
            std::erase(owner_.reactors_, nullptr);
            owner_.holes_ = false;
         }
         if (owned_) {
            owner_.release();
         }
      }

    private:
      const Notifier& owner_;
      bool owned_;
   };

   mutable std::vector<N*> reactors_;
   mutable unsigned depth_ = 0;
   mutable bool holes_ = false;
};

// A reactor watching one entity of type T, whose notifiee type is
// T::Notifiee. It holds the watched entity, so the entity outlives it.
template <class T>
class Reactor : public T::Notifiee {
 public:
   explicit Reactor(Ptr<const T> notifier) : notifier_(std::move(notifier)) {
      if (notifier_) {
         notifier_->attach(this);
      }
   }
   ~Reactor() override {
      if (notifier_) {
         notifier_->detach(this);
      }
   }

   const Ptr<const T>& notifier() const noexcept { return notifier_; }

   // Re-targets the reactor; a non-null new entity is announced through
   // onNotifier() so the owner can replay the new entity's state.
   void notifierIs(Ptr<const T> notifier) {
      if (notifier == notifier_) {
         return;
      }
      if (notifier_) {
         notifier_->detach(this);
      }
      notifier_ = std::move(notifier);
      if (!notifier_) {
         return;
      }
      notifier_->attach(this);
      if (this->deliverable()) {
         this->onNotifier();
      }
   }

 private:
   Ptr<const T> notifier_;
};

}  // namespace Vok
