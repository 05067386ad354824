// A generic mirror: makes one entity follow another across a Link, attribute by attribute,
// through the declarations of the entity type alone. It subscribes to the source; each change
// (field and key) is read from the source at once, carried over the link and written to the
// destination with the destination's own mutators, so the far side publishes as if a peer
// protocol had delivered it. Member entities get mirrors of their own.
//
// A resynchronisation makes the destination equal to the source by difference: it deletes what
// the source lacks and writes the rest, and a write of a value already held publishes nothing.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "Link.h"
#include "runtime/Attributes.h"
#include "runtime/Publisher.h"

namespace Sim {

class MirrorBase {
 public:
  virtual ~MirrorBase() = default;
  // Posts a whole-entity resynchronisation on the link.
  virtual void resync() = 0;
  virtual Brix::Node const* source() const = 0;
};

namespace Impl {
template <class K>
std::string keyText(K const& k) {
  std::ostringstream os;
  os << k;
  return os.str();
}

template <class D, class E, class K, class V>
void setValue(D& dattr, E& dst, Brix::FieldId f, K const& k, V const& v) {
  if constexpr (requires { dattr.set(dst, f, k, v); }) {
    dattr.set(dst, f, k, v);
  } else {
    dattr.set(dst, f, v);  // a record with its key inside
  }
}
}  // namespace Impl

template <class E>
class Mirror final : public MirrorBase {
 public:
  using DstOf = std::function<Brix::Ptr<E>()>;

  Mirror(Brix::Ptr<E const> src, DstOf dstOf, Link& link)
      : src_(std::move(src)), dstOf_(std::make_shared<DstOf const>(std::move(dstOf))), link_(link), sub_(this) {
    sub_.subscribeTo(src_->publisher(), &Mirror::dispatch);
    src_->vokForEachAttribute([&](auto, Brix::FieldId field, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::MembersAttr<A>) {
        for (auto const& k : Vok::Attr::keysOf(attr)) memberChanged(field, attr, k);
      }
    });
  }
  Mirror(Brix::Ptr<E const> src, Brix::Ptr<E> dst, Link& link)
      : Mirror(
            std::move(src), [dst] { return dst; }, link) {}

  Brix::Node const* source() const override { return src_.get(); }

  void resync() override {
    link_.post([src = src_, dstOf = dstOf_] { applyResync(*src, (*dstOf)()); });
    for (auto& [id, m] : members_) m->resync();
  }

 private:
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const*) noexcept {
    s->ownerAs<Mirror>()->onChange(field, key);
  }

  void onChange(Brix::FieldId field, void const* key) {
    src_->vokVisitField(field, [&](auto, Brix::FieldId, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::ScalarAttr<A>) {
        auto v = attr.get();
        post<A>(field, [v](E& dst, Brix::FieldId f, auto& dattr) { dattr.set(dst, f, v); });
      } else if constexpr (Vok::Attr::ValuesAttr<A>) {
        auto k = *static_cast<typename A::KeyType const*>(key);
        if (attr.has(k)) {
          post<A>(field,
                  [k, v = attr.get(k)](E& dst, Brix::FieldId f, auto& dattr) { Impl::setValue(dattr, dst, f, k, v); });
        } else {
          post<A>(field, [k](E& dst, Brix::FieldId f, auto& dattr) { dattr.del(dst, f, k); });
        }
      } else if constexpr (Vok::Attr::MembersAttr<A>) {
        auto k = *static_cast<typename A::KeyType const*>(key);
        if (attr.has(k)) {
          post<A>(field, [k](E& dst, Brix::FieldId f, auto& dattr) { dattr.set(dst, f, k); });
        } else {
          post<A>(field, [k](E& dst, Brix::FieldId f, auto& dattr) { dattr.del(dst, f, k); });
        }
        memberChanged(field, attr, k);
      }
    });
  }

  // Queues `apply(dst, field, dstAttribute)` for the link's far end.
  template <class A, class F>
  void post(Brix::FieldId field, F apply) {
    // What crosses holds no pointer to a mirror: a mirror may go while its changes are in flight.
    auto change = [dstOf = dstOf_, field, apply = std::move(apply)] {
      Brix::Ptr<E> dst = (*dstOf)();
      if (!dst) return;
      dst->vokVisitField(field, [&](auto, Brix::FieldId f, auto& dattr) {
        if constexpr (std::is_same_v<std::decay_t<decltype(dattr)>, A>) apply(*dst, f, dattr);
      });
    };
    static_assert(sizeof(change) <= LinkTask::room, "a change must travel without a heap allocation");
    link_.post(std::move(change));
  }

  // Keeps one mirror per member entity of the source, made when the member appears.
  template <class A, class K>
  void memberChanged(Brix::FieldId field, A const& attr, K const& k) {
    using M = typename A::Member;
    std::string id = std::to_string(field) + "/" + Impl::keyText(k);
    Brix::Ptr<M> srcMember = attr.get(k);
    auto it = members_.find(id);
    if (!srcMember) {
      if (it != members_.end()) members_.erase(it);
      return;
    }
    if (it != members_.end() && it->second->source() == srcMember.get()) return;
    auto dstOf = [parentDstOf = dstOf_, field, k]() -> Brix::Ptr<M> {
      Brix::Ptr<M> out;
      if (Brix::Ptr<E> dst = (*parentDstOf)()) {
        dst->vokVisitField(field, [&](auto, Brix::FieldId, auto& dattr) {
          if constexpr (std::is_same_v<std::decay_t<decltype(dattr)>, A>) out = dattr.get(k);
        });
      }
      return out;
    };
    members_[id] = std::make_unique<Mirror<M>>(Brix::Ptr<M const>(srcMember), std::move(dstOf), link_);
  }

  // The destination made equal to the source, by difference.
  static void applyResync(E const& src, Brix::Ptr<E> const& dst) {
    if (!dst) return;
    src.vokForEachAttribute([&](auto, Brix::FieldId field, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      dst->vokVisitField(field, [&](auto, Brix::FieldId f, auto& dattr) {
        if constexpr (std::is_same_v<std::decay_t<decltype(dattr)>, A>) {
          if constexpr (Vok::Attr::ScalarAttr<A>) {
            dattr.set(*dst, f, attr.get());
          } else if constexpr (Vok::Attr::ValuesAttr<A> || Vok::Attr::MembersAttr<A>) {
            for (auto const& k : Vok::Attr::keysOf(dattr)) {
              if (!attr.has(k)) dattr.del(*dst, f, k);
            }
            for (auto const& k : Vok::Attr::keysOf(attr)) {
              if constexpr (Vok::Attr::MembersAttr<A>) {
                dattr.set(*dst, f, k);
              } else {
                Impl::setValue(dattr, *dst, f, k, attr.get(k));
              }
            }
          }
        }
      });
    });
  }

  Brix::Ptr<E const> src_;
  // Shared by everything in flight: a change carries a use of it, never a copy.
  std::shared_ptr<DstOf const> dstOf_;
  Link& link_;
  Brix::Subscriber sub_;
  std::map<std::string, std::unique_ptr<MirrorBase>> members_;
};

}  // namespace Sim
