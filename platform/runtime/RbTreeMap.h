// Vok::RbTreeMap, the ordered collection. A walk is in ascending key order and tolerates any
// change of the map: when the map has changed since the walk's last step, the next entry is
// found afresh as the first key greater than the one the walk stands on.
#pragma once

#include <cassert>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "runtime/HashMap2018.h"

namespace Vok {

template <class T, class K, class V = T>
class RbTreeMap {
 public:
  using Map = std::map<K, V>;

  std::size_t size() const noexcept { return map_.size(); }
  bool empty() const noexcept { return map_.empty(); }

  // The value under `key`, or the default (null for a pointer).
  V operator[](K const& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? V{} : it->second;
  }
  V const* find(K const& key) const {
    auto it = map_.find(key);
    return it == map_.end() ? nullptr : &it->second;
  }
  bool insert(K const& key, V value) {
    ++version_;
    return map_.insert_or_assign(key, std::move(value)).second;
  }
  bool erase(K const& key, V* out = nullptr) {
    auto it = map_.find(key);
    if (it == map_.end()) return false;
    ++version_;
    V v = std::move(it->second);
    map_.erase(it);
    if (out) *out = std::move(v);
    return true;
  }
  void clear() {
    ++version_;
    Map old;
    old.swap(map_);
  }

  class Iterator {
   public:
    explicit Iterator(RbTreeMap const& m) : m_(&m), it_(m.map_.begin()), version_(m.version_) { standOn(); }
    Iterator(RbTreeMap const& m, EndOfCollection) : m_(&m), it_(m.map_.end()), version_(m.version_) {}

    bool done() const noexcept { return !current_; }
    // The key the walk stands on; it stays readable after its entry has been erased.
    K const& key() const noexcept { return *current_; }
    // The value of the key the walk stands on, which must not have been erased.
    V const& value() {
      if (version_ != m_->version_) {
        version_ = m_->version_;
        it_ = m_->map_.find(*current_);
      }
      assert(it_ != m_->map_.end());
      return it_->second;
    }
    void advance() {
      if (!current_) return;
      if (version_ != m_->version_) {
        version_ = m_->version_;
        it_ = m_->map_.upper_bound(*current_);
      } else {
        ++it_;
      }
      standOn();
    }

   private:
    void standOn() {
      if (it_ == m_->map_.end()) {
        current_.reset();
      } else {
        current_ = it_->first;
      }
    }
    RbTreeMap const* m_;
    typename Map::const_iterator it_;
    std::uint64_t version_;
    std::optional<K> current_;  // the key the walk stands on; none once it is done
  };

  Iterator iterator() const { return Iterator(*this); }
  Map const& map() const noexcept { return map_; }

 private:
  Map map_;
  std::uint64_t version_ = 0;
};

}  // namespace Vok
