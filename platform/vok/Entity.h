// Reference-counted entities and the two pointers that hold them.
//
// Every entity of the system (state machines, stores, tables) is shared by
// intrusive reference count, so owners can assert on references() before they
// let go of a child (a container must be held only by its map when deleted).
// Everything runs on one event-loop thread, so the count is a plain integer.
//
//   Vok::Ptr<Foo> foo = Vok::make<Foo>(args...);   // references() == 1
//   Vok::ValidPtr<Foo> sure = foo;                 // throws if foo is null
#pragma once

#include <cstdint>
#include <stdexcept>
#include <utility>

#include "platform/vok/Assert.h"

namespace Vok {

class Entity {
 public:
   Entity() = default;
   Entity(const Entity&) = delete;
   Entity& operator=(const Entity&) = delete;

   std::uint32_t references() const noexcept { return references_; }

   void retain() const noexcept { ++references_; }
   void release() const noexcept {
      if (--references_ == 0) {
         delete this;
      }
   }

 protected:
   virtual ~Entity() {
      VOK_ASSERT(references_ == 0, "entity destroyed while still referenced");
   }

   // Held by a constructor that already acts as a referenced entity (one
   // that builds children or checks it is referenced, as the runtime's
   // entry machine does): the entity counts one reference more until the
   // constructor returns, and is never deleted by it.
   class ConstructionReference {
    public:
      explicit ConstructionReference(const Entity& entity) : entity_(entity) {
         ++entity_.references_;
      }
      ~ConstructionReference() { --entity_.references_; }
      ConstructionReference(const ConstructionReference&) = delete;
      ConstructionReference& operator=(const ConstructionReference&) = delete;

    private:
      const Entity& entity_;
   };

 private:
   mutable std::uint32_t references_ = 0;
};

// A nullable counted reference.
template <class T>
class Ptr {
 public:
   Ptr() noexcept = default;
   Ptr(std::nullptr_t) noexcept {}
   Ptr(T* raw) noexcept : raw_(raw) { acquire(); }
   Ptr(const Ptr& other) noexcept : raw_(other.raw_) { acquire(); }
   Ptr(Ptr&& other) noexcept : raw_(std::exchange(other.raw_, nullptr)) {}
   template <class U>
      requires std::is_convertible_v<U*, T*>
   Ptr(const Ptr<U>& other) noexcept : raw_(other.get()) { acquire(); }
   ~Ptr() { drop(); }

   Ptr& operator=(Ptr other) noexcept {
      std::swap(raw_, other.raw_);
      return *this;
   }

   T* get() const noexcept { return raw_; }
   T* operator->() const noexcept { return raw_; }
   T& operator*() const noexcept { return *raw_; }
   explicit operator bool() const noexcept { return raw_ != nullptr; }
   friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.raw_ == b.raw_; }
   friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.raw_ == nullptr; }

 private:
   void acquire() const noexcept {
      if (raw_) {
         raw_->retain();
      }
   }
   void drop() noexcept {
      if (auto* raw = std::exchange(raw_, nullptr)) {
         raw->release();
      }
   }
   T* raw_ = nullptr;
};

// A reference that is never null: building one from null raises the
// runtime's range error, which marks a missing mandatory reference.
template <class T>
class ValidPtr {
 public:
   ValidPtr(T* raw) : ptr_(checked(raw)) {}
   template <class U>
      requires std::is_convertible_v<U*, T*>
   ValidPtr(const Ptr<U>& ptr) : ptr_(checked(ptr.get())) {}

   T* get() const noexcept { return ptr_.get(); }
   T* operator->() const noexcept { return ptr_.get(); }
   T& operator*() const noexcept { return *ptr_; }
   operator Ptr<T>() const noexcept { return ptr_; }

 private:
   static T* checked(T* raw) {
      if (!raw) {
         throw std::range_error("null ValidPtr");
      }
      return raw;
   }
   Ptr<T> ptr_;
};

// Fault injection for tests of exception safety: once armed with n, the
// (n+1)-th entity creation from then on throws InjectedFault instead of
// creating anything, and the injection disarms itself. Every building step
// of the engine creates an entity, so stepping n over 0, 1, 2, ... fails
// each step in turn.
class InjectedFault : public std::runtime_error {
 public:
   InjectedFault() : std::runtime_error("injected fault") {}
};

namespace detail {
inline std::int64_t creationsBeforeFault = -1;  // -1: disarmed
[[noreturn]] void throwInjectedFault();
}  // namespace detail

inline void failEntityCreationAfter(std::int64_t creations) { detail::creationsBeforeFault = creations; }
inline void entityCreationFaultDisarm() { detail::creationsBeforeFault = -1; }
inline bool entityCreationFaultArmed() { return detail::creationsBeforeFault >= 0; }

template <class T, class... Args>
Ptr<T> make(Args&&... args) {
   if (detail::creationsBeforeFault >= 0 && detail::creationsBeforeFault-- == 0) [[unlikely]] {
      detail::throwInjectedFault();
   }
   return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Vok
