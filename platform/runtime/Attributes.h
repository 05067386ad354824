// Entity attributes, declared once.
//
// An entity lists its attributes in one X-macro, in declared order, one A(kind, name, types)
// per attribute, for instance A(values, vniToDynVlanMap, Vxlan::VniExtOrNone, Bridging::VlanIdOrNone)
// and A(scalar, scheduledMlagPeerArpSync, bool); the class body is then
// VOK_ENTITY(VxlanStatus, "Mlag::VxlanStatus", MLAG_VXLAN_STATUS_ATTRIBUTES),
// and VOK_ENTITY gives each attribute its field number, its storage, its named reads and
// mutators (x, xIs, xDel, xDelAll, xIter, xCount, xHas), and gives the entity one visitor over
// all attributes, which serves equality, dumps and mirroring. The behaviour of each kind lives
// once, in the templates of Vok::Attr.
//
// A mutator publishes the field (with the key, for a collection) after it has changed
// something, and only then: setting the value an attribute already holds, or deleting an absent
// key, publishes nothing.
#pragma once

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/Entity.h"
#include "runtime/HashMap2018.h"
#include "runtime/Node.h"
#include "runtime/RbTreeMap.h"

namespace Vok::Attr {

// The key a record carries inside itself.
template <class R>
auto keyOf(R const& r) -> decltype(r.key()) {
  return r.key();
}

template <class T>
class Key {
 public:
  using KeyOfEntity = T;
  explicit Key(T v = T{}) : v_(std::move(v)) {}
  T const& get() const noexcept { return v_; }
  friend bool operator==(Key const&, Key const&) = default;

 private:
  T v_;
};

template <class T>
class Scalar {
 public:
  using ValueType = T;
  T const& get() const noexcept { return v_; }
  void set(Entity const& e, Brix::FieldId f, T const& v) {
    if (v_ == v) return;
    v_ = v;
    e.publish(f);
  }
  friend bool operator==(Scalar const&, Scalar const&) = default;

 private:
  T v_{};
};

// A keyed collection of plain values. A read of an absent key gives the default.
template <class K, class V>
class Values {
 public:
  using Map = HashMap2018<K, V>;
  using KeyType = K;
  using ValueType = V;

  V get(K const& k) const {
    auto const* n = map_.lookupNodeG(k);
    return n ? n->value : V{};
  }
  // The value under `k`, or null: presence and value from one lookup.
  V const* find(K const& k) const noexcept {
    auto const* n = map_.lookupNodeG(k);
    return n ? &n->value : nullptr;
  }
  bool has(K const& k) const noexcept { return map_.contains(k); }
  void set(Entity const& e, Brix::FieldId f, K const& k, V const& v) {
    auto [n, fresh] = map_.findOrInsert(k, v);
    if (!fresh) {
      if (n->value == v) return;
      n->value = v;
    }
    e.publish(f, &k);
  }
  V del(Entity const& e, Brix::FieldId f, K const& k) {
    V old{};
    if (map_.deleteMemberG(k, &old)) e.publish(f, &k);
    return old;
  }
  void delAll(Entity const& e, Brix::FieldId f) {
    map_.eraseEach([&](K const& k) { e.publish(f, &k); });
  }
  Map const& map() const noexcept { return map_; }
  friend bool operator==(Values const& a, Values const& b) {
    if (a.map_.size() != b.map_.size()) return false;
    for (auto& n : a.map_) {
      auto const* m = b.map_.lookupNodeG(n.key);
      if (!m || !(m->value == n.value)) return false;
    }
    return true;
  }

 private:
  Map map_;
};

// A collection of records that carry their key inside: xIs(record), xDel(key).
template <class K, class R>
class Records : public Values<K, R> {
 public:
  void set(Entity const& e, Brix::FieldId f, R const& r) { Values<K, R>::set(e, f, keyOf(r), r); }
};

// A collection of member entities, made by key: xIs(key) creates the member if absent and
// returns it either way; a read of an absent key gives null.
template <class K, class E>
class Entities {
 public:
  using Map = HashMap2018<K, Brix::Ptr<E>>;
  using KeyType = K;
  using Member = E;

  Brix::Ptr<E> get(K const& k) const {
    auto const* n = map_.lookupNodeG(k);
    return n ? n->value : nullptr;
  }
  bool has(K const& k) const noexcept { return map_.contains(k); }
  Brix::Ptr<E> set(Entity const& e, Brix::FieldId f, K const& k) {
    if (auto const* n = map_.lookupNodeG(k)) return n->value;
    Brix::Ptr<E> m = Brix::newNode<E>(k);
    map_.newMemberG(k, m);
    e.publish(f, &k);
    return m;
  }
  // Puts a given member under `k`, in place of any other: how a writer replaces a member object.
  Brix::Ptr<E> set(Entity const& e, Brix::FieldId f, K const& k, Brix::Ptr<E> m) {
    if (auto const* n = map_.lookupNodeG(k); n && n->value == m) return m;
    map_.newMemberG(k, m);
    e.publish(f, &k);
    return m;
  }
  Brix::Ptr<E> del(Entity const& e, Brix::FieldId f, K const& k) {
    Brix::Ptr<E> old;
    if (map_.deleteMemberG(k, &old)) e.publish(f, &k);
    return old;
  }
  void delAll(Entity const& e, Brix::FieldId f) {
    map_.eraseEach([&](K const& k) { e.publish(f, &k); });
  }
  Map const& map() const noexcept { return map_; }
  friend bool operator==(Entities const& a, Entities const& b) {
    if (a.map_.size() != b.map_.size()) return false;
    for (auto& n : a.map_) {
      auto const* m = b.map_.lookupNodeG(n.key);
      if (!m || !(*m->value == *n.value)) return false;
    }
    return true;
  }

 private:
  Map map_;
};

// The ordered form of Entities, walked in ascending key order.
template <class K, class E>
class OrderedEntities {
 public:
  using Map = RbTreeMap<E, K, Brix::Ptr<E>>;
  using KeyType = K;
  using Member = E;

  Brix::Ptr<E> get(K const& k) const { return map_[k]; }
  bool has(K const& k) const { return map_.find(k) != nullptr; }
  Brix::Ptr<E> set(Entity const& e, Brix::FieldId f, K const& k) {
    if (auto const* p = map_.find(k)) return *p;
    Brix::Ptr<E> m = Brix::newNode<E>(k);
    map_.insert(k, m);
    e.publish(f, &k);
    return m;
  }
  Brix::Ptr<E> del(Entity const& e, Brix::FieldId f, K const& k) {
    Brix::Ptr<E> old;
    if (map_.erase(k, &old)) e.publish(f, &k);
    return old;
  }
  void delAll(Entity const& e, Brix::FieldId f) {
    for (auto it = map_.iterator(); !it.done(); it.advance()) {
      K k = it.key();
      del(e, f, k);
    }
  }
  Map const& map() const noexcept { return map_; }
  friend bool operator==(OrderedEntities const& a, OrderedEntities const& b) {
    if (a.map_.size() != b.map_.size()) return false;
    for (auto const& [k, v] : a.map_.map()) {
      auto const* m = b.map_.find(k);
      if (!m || !(**m == *v)) return false;
    }
    return true;
  }

 private:
  Map map_;
};

// What generic code (equality, dumps, mirrors) needs to tell the kinds apart.
template <class A>
concept KeyAttr = requires(A const& a) {
  typename A::KeyOfEntity;
};
template <class A>
concept ScalarAttr = requires {
  typename A::ValueType;
}
&&!requires { typename A::KeyType; };
template <class A>
concept MembersAttr = requires {
  typename A::Member;
};
template <class A>
concept ValuesAttr = requires {
  typename A::KeyType;
}
&&!MembersAttr<A>;

// Every key of a collection attribute, in its walk order.
template <class A>
std::vector<typename A::KeyType> keysOf(A const& attr) {
  std::vector<typename A::KeyType> keys;
  if constexpr (requires { attr.map().iterator(); }) {
    for (auto const& [k, v] : attr.map().map()) keys.push_back(k);
  } else {
    for (auto it = attr.map().begin(); !it.done(); it.advance()) keys.push_back(it.currNodeNonStale().key);
  }
  return keys;
}

}  // namespace Vok::Attr

// ---- the declaration macros ------------------------------------------------------------------

#define VOK_ATTR_FIELD_(kind, name, ...) name##Field,
#define VOK_ATTR_DECL_(kind, name, ...) VOK_ATTR_DECL_##kind(name, __VA_ARGS__)
#define VOK_ATTR_VISIT_(kind, name, ...) f(std::string_view(#name), name##Field, name##_);
#define VOK_ATTR_CASE_(kind, name, ...)               \
  case name##Field:                                   \
    f(std::string_view(#name), name##Field, name##_); \
    return true;

#define VOK_ATTR_DECL_key(name, T) \
 private:                          \
  ::Vok::Attr::Key<T> name##_;     \
                                   \
 public:                           \
  T const& name() const noexcept { return name##_.get(); }

#define VOK_ATTR_DECL_scalar(name, T)                      \
 private:                                                  \
  ::Vok::Attr::Scalar<T> name##_;                          \
                                                           \
 public:                                                   \
  T const& name() const noexcept { return name##_.get(); } \
  void name##Is(T const& v) { name##_.set(*this, name##Field, v); }

#define VOK_ATTR_COLL_COMMON_(name, K)                                      \
  bool name##Has(K const& k) const { return name##_.has(k); }               \
  std::size_t name##Count() const noexcept { return name##_.map().size(); } \
  auto name##Iter() const { return name##_.map().begin(); }                 \
  void name##DelAll() { name##_.delAll(*this, name##Field); }

#define VOK_ATTR_DECL_values(name, K, V)                                           \
 private:                                                                          \
  ::Vok::Attr::Values<K, V> name##_;                                               \
                                                                                   \
 public:                                                                           \
  V name(K const& k) const { return name##_.get(k); }                              \
  V const* name##Find(K const& k) const { return name##_.find(k); }                \
  void name##Is(K const& k, V const& v) { name##_.set(*this, name##Field, k, v); } \
  V name##Del(K const& k) { return name##_.del(*this, name##Field, k); }           \
  VOK_ATTR_COLL_COMMON_(name, K)

#define VOK_ATTR_DECL_records(name, K, R)                                \
 private:                                                                \
  ::Vok::Attr::Records<K, R> name##_;                                    \
                                                                         \
 public:                                                                 \
  R name(K const& k) const { return name##_.get(k); }                    \
  void name##Is(R const& r) { name##_.set(*this, name##Field, r); }      \
  R name##Del(K const& k) { return name##_.del(*this, name##Field, k); } \
  VOK_ATTR_COLL_COMMON_(name, K)

#define VOK_ATTR_DECL_entities(name, K, E)                                                                           \
 private:                                                                                                            \
  ::Vok::Attr::Entities<K, E> name##_;                                                                               \
                                                                                                                     \
 public:                                                                                                             \
  ::Brix::Ptr<E> name(K const& k) const { return name##_.get(k); }                                                   \
  ::Brix::Ptr<E> name##Is(K const& k) { return name##_.set(*this, name##Field, k); }                                 \
  ::Brix::Ptr<E> name##Is(K const& k, ::Brix::Ptr<E> m) { return name##_.set(*this, name##Field, k, std::move(m)); } \
  ::Brix::Ptr<E> name##Del(K const& k) { return name##_.del(*this, name##Field, k); }                                \
  VOK_ATTR_COLL_COMMON_(name, K)

#define VOK_ATTR_DECL_orderedEntities(name, K, E)                                     \
 private:                                                                             \
  ::Vok::Attr::OrderedEntities<K, E> name##_;                                         \
                                                                                      \
 public:                                                                              \
  ::Brix::Ptr<E> name(K const& k) const { return name##_.get(k); }                    \
  ::Brix::Ptr<E> name##Is(K const& k) { return name##_.set(*this, name##Field, k); }  \
  ::Brix::Ptr<E> name##Del(K const& k) { return name##_.del(*this, name##Field, k); } \
  bool name##Has(K const& k) const { return name##_.has(k); }                         \
  std::size_t name##Count() const noexcept { return name##_.map().size(); }           \
  auto name##Iter() const { return name##_.map().iterator(); }                        \
  void name##DelAll() { name##_.delAll(*this, name##Field); }

// The body of an entity class: field numbers from 1 in declared order, the attributes, the
// visitor and equality over every attribute.
#define VOK_ENTITY(Self, TypeName, LIST)                                             \
 public:                                                                             \
  static constexpr char const* vokTypeName = TypeName;                               \
  enum Field : ::Brix::FieldId { vokNoField, LIST(VOK_ATTR_FIELD_) vokFieldCount };  \
  char const* typeData() const override { return vokTypeName; }                      \
  template <class F>                                                                 \
  void vokForEachAttribute(F&& f) const {                                            \
    LIST(VOK_ATTR_VISIT_)                                                            \
  }                                                                                  \
  template <class F>                                                                 \
  void vokForEachAttribute(F&& f) {                                                  \
    LIST(VOK_ATTR_VISIT_)                                                            \
  }                                                                                  \
  /* Calls f(name, field, attribute) for the attribute of `field`; false if none. */ \
  template <class F>                                                                 \
  bool vokVisitField(::Brix::FieldId field, F&& f) const {                           \
    switch (field) { LIST(VOK_ATTR_CASE_) default : return false; }                  \
  }                                                                                  \
  template <class F>                                                                 \
  bool vokVisitField(::Brix::FieldId field, F&& f) {                                 \
    switch (field) { LIST(VOK_ATTR_CASE_) default : return false; }                  \
  }                                                                                  \
  friend bool operator==(Self const& a, Self const& b) { return a.vokEqual(b); }     \
  LIST(VOK_ATTR_DECL_)                                                               \
                                                                                     \
 private:                                                                            \
  bool vokEqual(Self const& o) const {                                               \
    bool eq = true;                                                                  \
    LIST(VOK_ATTR_EQ_)                                                               \
    return eq;                                                                       \
  }                                                                                  \
                                                                                     \
 public:

#define VOK_ATTR_EQ_(kind, name, ...) eq = eq && name##_ == o.name##_;
