// A switch's flat dump (Dump.h) kept up to date from what its entities publish, so that a step
// costs what changed in it rather than the whole state: each notification names a field and a
// key, and only that line is formatted again (or, for a member entity, only that member's lines).
//
// Every entity publishes each change it makes, by field and key; a watch subscribes to an entity
// and to each of its member entities, as the member appears, the same way a mirror does.
#pragma once

#include <cassert>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Dump.h"
#include "runtime/Attributes.h"
#include "runtime/Publisher.h"

namespace Sim {

class Switch;

// The lines that notifications named since the last take, each with its present value; none
// when the line is gone.
class Touched {
 public:
  void lineIs(std::string line, std::string value) { lines_.insert_or_assign(std::move(line), std::move(value)); }
  void lineGone(std::string line) { lines_.insert_or_assign(std::move(line), std::nullopt); }
  std::unordered_map<std::string, std::optional<std::string>>& lines() noexcept { return lines_; }

 private:
  std::unordered_map<std::string, std::optional<std::string>> lines_;
};

class WatchBase {
 public:
  virtual ~WatchBase() = default;
  virtual Brix::Node const* source() const noexcept = 0;
  // Marks every line of the watched entity gone: it has left its collection.
  virtual void allGone() = 0;
};

template <class E>
class Watch final : public WatchBase {
 public:
  // Watches `src`, whose lines start with `prefix`. Its present lines are the caller's to record.
  Watch(Brix::Ptr<E const> src, std::string prefix, Touched& touched)
      : src_(std::move(src)), prefix_(std::move(prefix)), touched_(touched), sub_(this) {
    sub_.subscribeTo(src_->publisher(), &Watch::dispatch);
    src_->vokForEachAttribute([&](std::string_view name, Brix::FieldId, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      if constexpr (Vok::Attr::MembersAttr<A>) {
        DumpImpl::forEachEntry(attr, [&](auto const& k, auto const& m) {
          if (m) watchMember(prefix_ + std::string(name) + "[" + text(k) + "].", m);
        });
      }
    });
  }

  Brix::Node const* source() const noexcept override { return src_.get(); }

  void allGone() override {
    forEachLine(*src_, prefix_, [&](std::string line, std::string const&) { touched_.lineGone(std::move(line)); });
  }

 private:
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const*) noexcept {
    s->ownerAs<Watch>()->onChange(field, key);
  }

  void onChange(Brix::FieldId field, void const* key) {
    src_->vokVisitField(field, [&](std::string_view name, Brix::FieldId, auto const& attr) {
      using A = std::decay_t<decltype(attr)>;
      std::string line = prefix_ + std::string(name);
      if constexpr (Vok::Attr::KeyAttr<A> || Vok::Attr::ScalarAttr<A>) {
        touched_.lineIs(std::move(line), text(attr.get()));
      } else {
        assert(key);  // a collection publishes the key it changed
        auto const& k = *static_cast<typename A::KeyType const*>(key);
        line += "[" + text(k) + "]";
        if constexpr (Vok::Attr::MembersAttr<A>) {
          memberChanged(std::move(line) + ".", attr.get(k));
        } else if (auto const* n = attr.map().lookupNodeG(k)) {
          // From storage, as the dump reads it: no reader of a Shoal table.
          touched_.lineIs(std::move(line), text(n->value));
        } else {
          touched_.lineGone(std::move(line));
        }
      }
    });
  }

  // A member appeared, left, or was replaced by another object under the same key.
  template <class M>
  void memberChanged(std::string inner, Brix::Ptr<M> const& now) {
    auto it = members_.find(inner);
    if (it != members_.end()) {
      if (it->second->source() == now.get()) return;
      it->second->allGone();
      members_.erase(it);
    }
    if (!now) return;
    forEachLine(*now, inner,
                [&](std::string line, std::string value) { touched_.lineIs(std::move(line), std::move(value)); });
    watchMember(std::move(inner), now);
  }

  template <class M>
  void watchMember(std::string inner, Brix::Ptr<M> const& m) {
    auto watch = std::make_unique<Watch<M>>(Brix::Ptr<M const>(m), inner, touched_);
    members_.insert_or_assign(std::move(inner), std::move(watch));
  }

  Brix::Ptr<E const> src_;
  std::string prefix_;
  Touched& touched_;
  Brix::Subscriber sub_;
  std::unordered_map<std::string, std::unique_ptr<WatchBase>> members_;  // by their lines' prefix
};

// One row of a diff; `count` keys in a row are folded into one, named "x[first..last]".
struct Change {
  char kind = '+';  // + added, - removed, ~ changed
  std::string name;
  std::string before;
  std::string after;
  std::size_t count = 1;
};

// The flat dump of a switch (every entity, each line prefixed by the entity's name, and the
// container's children as "container.<child>: <class>"), followed from the moment it is made.
class SwitchTracker {
 public:
  explicit SwitchTracker(Switch const& s);
  SwitchTracker(SwitchTracker const&) = delete;
  SwitchTracker& operator=(SwitchTracker const&) = delete;

  // Brings the dump up to date and gives the lines that changed since the last take, whole
  // lines in the dump's order.
  std::vector<Change> take();
  Flat const& flat() const noexcept { return flat_; }

 private:
  void containerRead();

  Switch const& switch_;
  Touched touched_;
  std::vector<std::unique_ptr<WatchBase>> watches_;
  std::vector<std::pair<std::string_view, std::string_view>> children_;  // the container's, as last read
  Flat flat_;
};

}  // namespace Sim
