// Vok::Dir, a directory entity of named children. The library passes it through to the
// platform's lookups; agents and tests fill it.
#pragma once

#include <string_view>

#include "runtime/Entity.h"
#include "runtime/Exceptions.h"
#include "runtime/HashMap2018.h"
#include "runtime/String.h"

namespace Vok {

class Dir : public Entity {
 public:
  static constexpr Brix::FieldId entityField = 1;

  explicit Dir(Brix::String name = {}) : name_(std::move(name)) {}
  char const* typeData() const override { return "Vok::Dir"; }
  Brix::String const& name() const noexcept { return name_; }

  Brix::Ptr<Entity> entity(Brix::String const& name) const {
    auto const* n = children_.lookupNodeG(name);
    return n ? n->value : nullptr;
  }
  template <class T>
  Brix::Ptr<T> entityAs(Brix::String const& name) const {
    return Brix::Ptr<T>(dynamic_cast<T*>(entity(name).get()));
  }
  void entityIs(Brix::String const& name, Brix::Ptr<Entity> e) {
    children_.newMemberG(name, std::move(e));
    publish(entityField, &name);
  }
  Brix::Ptr<Entity> entityDel(Brix::String const& name) {
    Brix::Ptr<Entity> old;
    if (children_.deleteMemberG(name, &old)) publish(entityField, &name);
    return old;
  }
  std::size_t entityCount() const noexcept { return children_.size(); }
  HashMap2018<Brix::String, Brix::Ptr<Entity>> const& entities() const noexcept { return children_; }

  // Creates a child by its name. A type made only from its name refuses further arguments
  // (it declares `static constexpr bool vokNameOnly = true`).
  template <class T, class... A>
  Brix::Ptr<T> entityNew(Brix::String const& name, A&&... args) {
    Brix::Ptr<T> e;
    if constexpr (requires { T::vokNameOnly; }) {
      if (sizeof...(A) > 0) throwNewEntityArgsException(T::vokTypeName);
      e = Brix::newNode<T>(name);
    } else {
      e = Brix::newNode<T>(std::forward<A>(args)...);
    }
    entityIs(name, e);
    return e;
  }

 private:
  Brix::String name_;
  HashMap2018<Brix::String, Brix::Ptr<Entity>> children_;
};

}  // namespace Vok
