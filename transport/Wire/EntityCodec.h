// The entity codec of the peer transport, generic over the attribute declarations of an entity
// type: a Sender turns each change of a source entity (its member entities included) into one
// encoded change, and a Receiver applies such changes to a destination entity of the same type
// with the destination's own mutators, so that the far side publishes as if its peer had
// written it. transport/WIRE.md gives the byte layout.
//
// A resynchronisation is a begin, every scalar, entry and member of the source, and an end; at
// the end the receiver deletes, by difference, whatever the destination holds that the
// resynchronisation did not name. Nothing is cleared and copied, so an unchanged entry
// publishes nothing.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Wire/Codec.h"
#include "runtime/Attributes.h"
#include "runtime/Publisher.h"

namespace MlagVxlan::Wire {

enum class Op : std::uint8_t {
  set = 0,
  del = 1,
  begin = 2,  // a resynchronisation starts
  end = 3,    // it ends: what it did not name goes
};

// Receives each encoded change, one call per change. The span is valid during the call only.
// The sink must not throw: it is called from the source's notifications.
using Sink = std::function<void(std::span<std::byte const>)>;

// The channel of an encoded change, for a connection that hands changes to their receivers.
inline std::uint8_t channelOf(std::span<std::byte const> change) {
  if (change.empty()) throw DecodeError("an empty change");
  return static_cast<std::uint8_t>(change[0]);
}

namespace Impl {

template <class A>
inline constexpr bool isRecords = false;
template <class K, class R>
inline constexpr bool isRecords<Vok::Attr::Records<K, R>> = true;
template <class A>
inline constexpr bool isOrdered = false;
template <class K, class E>
inline constexpr bool isOrdered<Vok::Attr::OrderedEntities<K, E>> = true;

// The kind of an attribute as the schema fingerprint counts it.
template <class A>
constexpr std::uint8_t kindOf() {
  if constexpr (Vok::Attr::KeyAttr<A>) {
    return 1;
  } else if constexpr (Vok::Attr::ScalarAttr<A>) {
    return 2;
  } else if constexpr (isRecords<A>) {
    return 4;
  } else if constexpr (Vok::Attr::ValuesAttr<A>) {
    return 3;
  } else if constexpr (isOrdered<A>) {
    return 6;
  } else {
    return 5;
  }
}

// FNV-1a, 64 bits.
struct Fnv {
  std::uint64_t h = 0xcbf29ce484222325ull;
  void add(std::string_view s) {
    for (char c : s) byte(static_cast<std::uint8_t>(c));
    byte(0);  // names end, so that "ab","c" and "a","bc" differ
  }
  void byte(std::uint8_t b) {
    h ^= b;
    h *= 0x100000001b3ull;
  }
};

// Walks the declarations through an instance: the attribute names live in the visitor alone.
template <class E>
void fingerprintInto(Fnv& f, E const& e) {
  f.add(E::vokTypeName);
  e.vokForEachAttribute([&](std::string_view name, Brix::FieldId field, auto const& attr) {
    using A = std::decay_t<decltype(attr)>;
    f.add(name);
    f.byte(static_cast<std::uint8_t>(field));
    f.byte(kindOf<A>());
    if constexpr (Vok::Attr::MembersAttr<A>) {
      // A member entity is made from its key; any key will do to read its declarations.
      fingerprintInto(f, *Brix::newNode<typename A::Member>(typename A::KeyType{}));
    }
  });
  f.byte(0xff);  // the entity's attributes end
}

// What the senders of one source share: the channel, the sink and the buffer a change is
// encoded into, reused from change to change.
struct Out {
  std::uint8_t channel;
  Sink sink;
  std::vector<std::byte> buf;
  bool busy = false;
};

class SenderNode {
 public:
  virtual ~SenderNode() = default;
  // Sends every entry and member; scalars too with `whole`, else only those off their default.
  virtual void sendContents(bool whole) = 0;
  virtual Brix::Node const* source() const = 0;
};

template <class E>
class SenderOf final : public SenderNode {
 public:
  SenderOf(Brix::Ptr<E const> src, Out& out, std::vector<std::byte> path, std::uint8_t depth)
      : src_(std::move(src)), out_(out), path_(std::move(path)), depth_(depth), sub_(this) {
    static_assert(E::vokFieldCount <= 0x100, "field numbers travel in one byte");
    sub_.subscribeTo(src_->publisher(), &SenderOf::dispatch);
    src_->vokForEachAttribute([&](auto, Brix::FieldId field, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::MembersAttr<A>) {
        for (auto const& k : Vok::Attr::keysOf(attr)) child(field, attr, k);
      }
    });
  }
  SenderOf(SenderOf const&) = delete;
  SenderOf& operator=(SenderOf const&) = delete;

  Brix::Node const* source() const override { return src_.get(); }

  void sendContents(bool whole) override {
    src_->vokForEachAttribute([&](auto, Brix::FieldId field, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::ScalarAttr<A>) {
        if (whole || !(attr.get() == typename A::ValueType{})) sendScalar(field, attr);
      } else if constexpr (Vok::Attr::ValuesAttr<A>) {
        for (auto it = attr.map().begin(); !it.done(); it.advance()) {
          if (it.currNodeStale()) continue;
          auto const& n = it.currNodeNonStale();
          emit(field, Op::set, [&](Writer& w) {
            encode(w, n.key);
            encode(w, n.value);
          });
        }
      } else if constexpr (Vok::Attr::MembersAttr<A>) {
        for (auto const& k : Vok::Attr::keysOf(attr)) {
          emit(field, Op::set, [&](Writer& w) { encode(w, k); });
          if (SenderNode* c = child(field, attr, k)) c->sendContents(whole);
        }
      }
    });
  }

  // Encodes one change into the shared buffer and hands it to the sink. A change sent from
  // within the sink (a handler on the far side writing back to this source) gets a buffer of
  // its own.
  template <class Fill>
  void emit(Brix::FieldId field, Op op, Fill&& fill) {
    std::vector<std::byte> nested;
    std::vector<std::byte>& buf = out_.busy ? nested : out_.buf;
    buf.clear();
    Writer w(buf);
    w.u8(out_.channel);
    w.u8(depth_);
    buf.insert(buf.end(), path_.begin(), path_.end());
    w.u8(static_cast<std::uint8_t>(field));
    w.u8(static_cast<std::uint8_t>(op));
    fill(w);
    struct Busy {
      Out& o;
      bool outer;
      ~Busy() {
        if (outer) o.busy = false;
      }
    } busy{out_, !out_.busy};
    out_.busy = true;
    out_.sink(std::span<std::byte const>(buf));
  }

 private:
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const*) noexcept {
    s->ownerAs<SenderOf>()->onChange(field, key);
  }

  void onChange(Brix::FieldId field, void const* key) {
    src_->vokVisitField(field, [&](auto, Brix::FieldId f, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::ScalarAttr<A>) {
        sendScalar(f, attr);
      } else if constexpr (Vok::Attr::ValuesAttr<A>) {
        auto const& k = *static_cast<typename A::KeyType const*>(key);
        if (auto const* v = attr.find(k)) {
          emit(f, Op::set, [&](Writer& w) {
            encode(w, k);
            encode(w, *v);
          });
        } else {
          emit(f, Op::del, [&](Writer& w) { encode(w, k); });
        }
      } else if constexpr (Vok::Attr::MembersAttr<A>) {
        memberChanged(f, attr, *static_cast<typename A::KeyType const*>(key));
      }
    });
  }

  template <class A>
  void sendScalar(Brix::FieldId field, A const& attr) {
    emit(field, Op::set, [&](Writer& w) { encode(w, attr.get()); });
  }

  template <class A, class K>
  void memberChanged(Brix::FieldId field, A const& attr, K const& k) {
    std::string id = childId(field, k);
    auto it = children_.find(id);
    auto m = attr.get(k);
    if (!m) {
      emit(field, Op::del, [&](Writer& w) { encode(w, k); });
      if (it != children_.end()) children_.erase(it);
      return;
    }
    if (it != children_.end()) {
      if (it->second->source() == m.get()) return;
      // Replaced by another object: the far side's member goes with its contents.
      emit(field, Op::del, [&](Writer& w) { encode(w, k); });
      children_.erase(it);
    }
    emit(field, Op::set, [&](Writer& w) { encode(w, k); });
    if (SenderNode* c = child(field, attr, k)) c->sendContents(false);
  }

  template <class K>
  static std::string childId(Brix::FieldId field, K const& k) {
    std::vector<std::byte> b;
    Writer w(b);
    w.u8(static_cast<std::uint8_t>(field));
    encode(w, k);
    return std::string(reinterpret_cast<char const*>(b.data()), b.size());
  }

  // The sender of the member under `k`, made when first asked for; null if there is none.
  template <class A, class K>
  SenderNode* child(Brix::FieldId field, A const& attr, K const& k) {
    using M = typename A::Member;
    auto m = attr.get(k);
    if (!m) return nullptr;
    std::string id = childId(field, k);
    auto& slot = children_[id];
    if (!slot || slot->source() != m.get()) {
      std::vector<std::byte> path = path_;
      path.insert(path.end(), reinterpret_cast<std::byte const*>(id.data()),
                  reinterpret_cast<std::byte const*>(id.data()) + id.size());
      slot = std::make_unique<SenderOf<M>>(Brix::Ptr<M const>(m), out_, std::move(path),
                                           static_cast<std::uint8_t>(depth_ + 1));
    }
    return slot.get();
  }

  Brix::Ptr<E const> src_;
  Out& out_;
  std::vector<std::byte> path_;  // per level above: field and key, as on the wire
  std::uint8_t depth_;
  Brix::Subscriber sub_;
  std::map<std::string, std::unique_ptr<SenderNode>> children_;
};

}  // namespace Impl

// The schema fingerprint of an entity type: its type name and every attribute's name, field
// number and kind, member entity types included. Two builds whose declarations differ refuse
// each other by it.
template <class E>
std::uint64_t fingerprint() {
  static std::uint64_t const value = [] {
    Impl::Fnv f;
    Impl::fingerprintInto(f, *Brix::newNode<E>());
    return f.h;
  }();
  return value;
}

// The fingerprint of several channels' entity types, in channel order.
template <class E, class... More>
requires(sizeof...(More) > 0) std::uint64_t fingerprint() {
  Impl::Fnv f;
  for (std::uint64_t h : {fingerprint<E>(), fingerprint<More>()...}) {
    for (int i = 0; i < 8; ++i) f.byte(static_cast<std::uint8_t>(h >> (8 * i)));
  }
  return f.h;
}

// Sends every change of `src` (and of its member entities, as they come and go) as one encoded
// change of channel `channel` to `sink`. Sends nothing by itself: snapshot() sends the whole.
template <class E>
class Sender {
 public:
  Sender(Brix::Ptr<E const> src, std::uint8_t channel, Sink sink)
      : out_{channel, std::move(sink), {}, false}, root_(std::move(src), out_, {}, 0) {}
  Sender(Sender const&) = delete;
  Sender& operator=(Sender const&) = delete;

  // A resynchronisation: begin, the whole source, end.
  void snapshot() {
    root_.emit(0, Op::begin, [](Writer&) {});
    root_.sendContents(true);
    root_.emit(0, Op::end, [](Writer&) {});
  }

 private:
  Impl::Out out_;
  Impl::SenderOf<E> root_;
};

// Applies encoded changes of channel `channel` to `dst`.
template <class E>
class Receiver {
 public:
  Receiver(Brix::Ptr<E> dst, std::uint8_t channel) : dst_(std::move(dst)), channel_(channel) {}

  // Applies one change. A malformed change raises DecodeError and leaves the destination as it
  // was: everything is decoded before anything is written.
  void apply(std::span<std::byte const> change) {
    Reader r(change);
    auto channel = r.u8();
    if (channel != channel_) throw DecodeError(fmt::format("a change of channel {} on channel {}", channel, channel_));
    auto depth = r.u8();
    id_.clear();
    if (depth == 0) {
      auto field = r.u8();
      auto op = static_cast<Op>(r.u8());
      if (op == Op::begin || op == Op::end) {
        if (field != 0) throw DecodeError(fmt::format("a resynchronisation mark on field {}", field));
        finish(r);
        if (op == Op::begin) {
          seen_.clear();
          resyncing_ = true;
        } else {
          if (!resyncing_) throw DecodeError("the end of a resynchronisation that did not begin");
          resyncing_ = false;
          prune(*dst_);
          seen_.clear();
        }
        return;
      }
      applyAt(*dst_, r, field, op);
      return;
    }
    descend(*dst_, r, depth);
  }

  bool resyncing() const noexcept { return resyncing_; }

 private:
  static void finish(Reader const& r) {
    if (r.left() != 0) throw DecodeError(fmt::format("{} bytes after the change", r.left()));
  }

  template <class T>
  void descend(T& ent, Reader& r, unsigned depth) {
    auto field = r.u8();
    if (depth == 0) {
      applyAt(ent, r, field, static_cast<Op>(r.u8()));
      return;
    }
    bool known = ent.vokVisitField(field, [&](auto, Brix::FieldId, auto& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::MembersAttr<A>) {
        auto k = decode<typename A::KeyType>(r);
        auto m = attr.get(k);
        if (!m) throw DecodeError(fmt::format("a path through an absent member of {} field {}", T::vokTypeName, field));
        // The path is kept only for what a resynchronisation names.
        if (resyncing_) appendId(field, k);
        descend(*m, r, depth - 1);
      } else {
        throw DecodeError(fmt::format("a path through {} field {}, which holds no members", T::vokTypeName, field));
      }
    });
    if (!known) throw DecodeError(fmt::format("no field {} in {}", field, T::vokTypeName));
  }

  template <class T>
  void applyAt(T& ent, Reader& r, std::uint8_t field, Op op) {
    if (op != Op::set && op != Op::del) throw DecodeError(fmt::format("operation {} in a change", unsigned(op)));
    bool known = ent.vokVisitField(field, [&](auto, Brix::FieldId f, auto& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::ScalarAttr<A>) {
        if (op != Op::set) throw DecodeError(fmt::format("a delete of scalar {} field {}", T::vokTypeName, field));
        auto v = decode<typename A::ValueType>(r);
        finish(r);
        attr.set(ent, f, v);
      } else if constexpr (Vok::Attr::ValuesAttr<A>) {
        auto k = decode<typename A::KeyType>(r);
        if (op == Op::del) {
          finish(r);
          attr.del(ent, f, k);
          return;
        }
        auto v = decode<typename A::ValueType>(r);
        finish(r);
        if constexpr (Impl::isRecords<A>) {
          if (!(Vok::Attr::keyOf(v) == k))
            throw DecodeError(fmt::format("a record under another key in {} field {}", T::vokTypeName, field));
          remember(f, k);
          attr.set(ent, f, v);
        } else {
          remember(f, k);
          attr.set(ent, f, k, v);
        }
      } else if constexpr (Vok::Attr::MembersAttr<A>) {
        auto k = decode<typename A::KeyType>(r);
        finish(r);
        if (op == Op::del) {
          attr.del(ent, f, k);
        } else {
          remember(f, k);
          attr.set(ent, f, k);
        }
      } else {
        throw DecodeError(fmt::format("a write of key field {} of {}", field, T::vokTypeName));
      }
    });
    if (!known) throw DecodeError(fmt::format("no field {} in {}", field, T::vokTypeName));
  }

  template <class K>
  void appendId(Brix::FieldId field, K const& k) {
    std::vector<std::byte>& b = scratch_;
    b.clear();
    Writer w(b);
    w.u8(static_cast<std::uint8_t>(field));
    encode(w, k);
    id_.append(reinterpret_cast<char const*>(b.data()), b.size());
  }

  // Notes a key named by the resynchronisation under way, by its path, field and encoded key.
  template <class K>
  void remember(Brix::FieldId field, K const& k) {
    if (!resyncing_) return;
    std::size_t n = id_.size();
    appendId(field, k);
    seen_.insert(id_);
    id_.resize(n);
  }

  // Deletes, through the destination's mutators, every entry and member the resynchronisation
  // did not name, and walks on into the members it did.
  template <class T>
  void prune(T& ent) {
    ent.vokForEachAttribute([&](auto, Brix::FieldId f, auto& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::ValuesAttr<A> || Vok::Attr::MembersAttr<A>) {
        for (auto const& k : Vok::Attr::keysOf(attr)) {
          std::size_t n = id_.size();
          appendId(f, k);
          if (!seen_.contains(id_)) {
            attr.del(ent, f, k);
          } else if constexpr (Vok::Attr::MembersAttr<A>) {
            if (auto m = attr.get(k)) prune(*m);
          }
          id_.resize(n);
        }
      }
    });
  }

  Brix::Ptr<E> dst_;
  std::uint8_t channel_;
  bool resyncing_ = false;
  std::string id_;                        // the path of the change under way, as keys are noted
  std::vector<std::byte> scratch_;        // one encoded key
  std::unordered_set<std::string> seen_;  // every key the resynchronisation named
};

}  // namespace MlagVxlan::Wire
