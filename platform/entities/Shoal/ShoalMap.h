// Shoal tables: keyed tables in shared memory that other processes write. A read by key gives
// the record and a found flag (an absent key gives the all-default record); a walk goes by key,
// first and next, with a Shoal::IterHint; a change notifies by key like a collection.
//
// Any read or step of a walk may find the table damaged and raise
// Brix::CorruptionDetectedException; the reader reports it through doCorruptionDetected() and
// takes the default. Here the table lives in process memory, and a test chooses which reads and
// which steps of a walk raise (damageIs), so every reader's handling of it can be exercised.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "runtime/Attributes.h"
#include "runtime/Entity.h"
#include "runtime/Exceptions.h"
#include "runtime/HashMap2018.h"
#include "runtime/String.h"

namespace Shoal {

// Where a walk stands: the position of the last entry returned.
struct IterHint {
  std::uint32_t next = 0;
};

class ShoalMapBase {
 public:
  // The table's report of damage found by a reader.
  void doCorruptionDetected(Brix::String const& message) const {
    ++corruptionReports_;
    lastCorruption_ = message;
  }
  std::uint32_t corruptionReports() const noexcept { return corruptionReports_; }
  Brix::String const& lastCorruption() const noexcept { return lastCorruption_; }

  // Which accesses raise, with `message`: every read and walk step; the n-th of them, reads and
  // steps counted together; or the n-th read and the n-th step, each counted on its own. n counts
  // from now (1 = the next one) and an n-th fires once. Const like the report: readers, and the
  // tests that stand in for the damage, hold the table as const.
  enum class DamageAt : std::uint8_t { nothing, every, nth, nthOfEach };
  void damageIs(DamageAt at, std::uint32_t n = 1, std::string message = "Shoal table damaged") const {
    damageAt_ = at;
    damageLeft_[0] = n;
    damageLeft_[1] = at == DamageAt::nthOfEach ? n : 0;
    damageMessage_ = std::move(message);
  }

 protected:
  enum Access : std::uint8_t { read, step };
  void damageCheck(Access a) const {
    if (damageAt_ == DamageAt::nothing) return;
    if (damageAt_ != DamageAt::every) {
      std::uint32_t& left = damageLeft_[damageAt_ == DamageAt::nthOfEach ? a : 0];
      if (left == 0 || --left > 0) return;
    }
    throw Brix::CorruptionDetectedException(damageMessage_);
  }

 private:
  mutable DamageAt damageAt_ = DamageAt::nothing;
  mutable std::uint32_t damageLeft_[2] = {0, 0};
  mutable std::string damageMessage_;
  mutable std::uint32_t corruptionReports_ = 0;
  mutable Brix::String lastCorruption_;
};

template <class K, class R>
class ShoalMap : public ShoalMapBase {
 public:
  using Map = Vok::HashMap2018<K, R>;
  using KeyType = K;
  using ValueType = R;

  // The record of `key`, or the default record; `found` tells which. May raise.
  R get(K const& key, bool* found = nullptr) const {
    damageCheck(read);
    auto const* n = map().lookupNodeG(key);
    if (found) *found = n != nullptr;
    return n ? n->value : R{};
  }
  bool has(K const& key) const {
    damageCheck(read);
    return values_.has(key);
  }

  // The walk: the first entry, then the one after the last returned. False at the end. May raise.
  bool first(IterHint& hint, K* key, R* record = nullptr) const {
    hint.next = 0;
    return next(hint, key, record);
  }
  bool next(IterHint& hint, K* key, R* record = nullptr) const {
    damageCheck(step);
    auto const* n = map().liveNodeFrom(hint.next);
    if (!n) return false;
    ++hint.next;
    *key = n->key;
    if (record) *record = n->value;
    return true;
  }

  // The reader's side of damage, as every reader handles it: a damaged read is reported to the
  // table and gives the default record, and leaves `found` as it was; a damaged step is reported
  // and ends the walk there.
  R readOrDefault(K const& key, bool* found = nullptr) const {
    try {
      return get(key, found);
    } catch (Brix::CorruptionDetectedException const& e) {
      doCorruptionDetected(Brix::String(e.what()));
      return R{};
    }
  }
  template <class F>
  void walkUntilDamaged(F&& f) const {
    IterHint hint;
    K key;
    auto step = [&](bool isFirst) {
      try {
        return isFirst ? first(hint, &key) : next(hint, &key);
      } catch (Brix::CorruptionDetectedException const& e) {
        doCorruptionDetected(Brix::String(e.what()));
        return false;
      }
    };
    for (bool more = step(true); more; more = step(false)) f(key);
  }

  // The writer's side, the process that owns the table or a test: the mutators of a values
  // collection, which publish by key.
  void set(Vok::Entity const& e, Brix::FieldId f, K const& key, R const& record) { values_.set(e, f, key, record); }
  R del(Vok::Entity const& e, Brix::FieldId f, K const& key) { return values_.del(e, f, key); }
  void delAll(Vok::Entity const& e, Brix::FieldId f) { values_.delAll(e, f); }
  Map const& map() const noexcept { return values_.map(); }
  friend bool operator==(ShoalMap const& a, ShoalMap const& b) { return a.values_ == b.values_; }

 private:
  Vok::Attr::Values<K, R> values_;
};

}  // namespace Shoal

// An entity attribute that is a Shoal table: A(shoal, name, K, R). Reads go through the table
// (`name()` gives it, with its corruption hooks); writes are the owning process's.
#define VOK_ATTR_DECL_shoal(name, K, R)                                            \
 private:                                                                          \
  ::Shoal::ShoalMap<K, R> name##_;                                                 \
                                                                                   \
 public:                                                                           \
  ::Shoal::ShoalMap<K, R> const& name() const noexcept { return name##_; }         \
  void name##Is(K const& k, R const& r) { name##_.set(*this, name##Field, k, r); } \
  R name##Del(K const& k) { return name##_.del(*this, name##Field, k); }           \
  void name##DelAll() { name##_.delAll(*this, name##Field); }                      \
  std::size_t name##Count() const noexcept { return name##_.map().size(); }
