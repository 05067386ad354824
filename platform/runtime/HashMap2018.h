// Vok::HashMap2018, the keyed collection of the whole system.
//
// Entries live in dense slots in insertion order; an open-addressing index of slot numbers
// finds them. Erasing leaves a tombstone that keeps the key readable, so a walk survives any
// change made by the handlers it calls: the entry it stands on may go, others may come or go,
// and every entry present when the walk reaches it is visited once. Tombstones are reclaimed
// only while no walk is live. The order of a walk is insertion order, never a hash seed's.
//
// Slots are stored in segments that grow with the map, so inserts, lookups and walks never move
// a node. Only removing entries (deleteMemberG, _memberDelAll) may, by reclaiming tombstones:
// at once outside a walk, and when the last walk ends for removals made during walks. A node
// pointer therefore keeps pointing at its entry until the next removal, or, for a removal made
// during a walk, until the last walk ends.
//
// Memory follows the entries: a reclaim (at the latest when tombstones outnumber the live entries
// three to one) gives back the segments the live slots no longer need and shrinks the index to a
// load of at least a quarter; during a walk an erase shrinks the index once the entries fill an
// eighth of it; a map emptied outside a walk holds nothing.
#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace Vok {

struct EndOfCollection {};
inline constexpr EndOfCollection endOfCollection{};

template <class K>
struct Hash : std::hash<K> {};

template <class K, class V, class H = Hash<K>>
class HashMap2018 {
 public:
  struct Node {
    K key;
    V value;
  };

  class Iterator;

  HashMap2018() = default;
  HashMap2018(HashMap2018 const&) = delete;
  HashMap2018& operator=(HashMap2018 const&) = delete;
  HashMap2018(HashMap2018&& o) noexcept { swap(o); }
  HashMap2018& operator=(HashMap2018&& o) noexcept {
    HashMap2018 t(std::move(o));
    swap(t);
    return *this;
  }
  ~HashMap2018() {
    assert(walkers_ == 0);
    destroySlots();
  }

  std::size_t size() const noexcept { return live_; }
  bool empty() const noexcept { return live_ == 0; }

  Node* lookupNodeG(K const& key) noexcept {
    if (live_ == 0) return nullptr;  // no hash for an empty map
    if (std::uint32_t s = hintedSlotOf(key); s != kEmpty) return &slot(s);
    return probe(key, hashOf(key)).node;
  }
  Node const* lookupNodeG(K const& key) const noexcept { return const_cast<HashMap2018*>(this)->lookupNodeG(key); }
  bool contains(K const& key) const noexcept { return lookupNodeG(key) != nullptr; }

  // Sizes the index for `n` entries, so that filling the map to that many rebuilds it no more.
  void reserve(std::size_t n) {
    std::size_t size = std::max<std::size_t>(16, index_.size());
    while (!indexHolds(n + lazyDead_, size)) size *= 2;
    if (size > index_.size()) rebuildIndex(size);
  }

  // Inserts the entry, or replaces the value of the key present; returns the node.
  Node* newMemberG(K const& key, V value) {
    std::uint64_t h = hashOf(key);
    Holding const at = find(key, h);
    if (at.node) {
      at.node->value = std::move(value);
      return at.node;
    }
    return insertNew(key, std::move(value), h, at.bucket);
  }

  // Returns the node of the key, inserting one with `value` if absent; the bool says whether
  // it was inserted.
  std::pair<Node*, bool> findOrInsert(K const& key, V value) {
    std::uint64_t h = hashOf(key);
    Holding const at = find(key, h);
    if (at.node) return {at.node, false};
    return {insertNew(key, std::move(value), h, at.bucket), true};
  }

  // Removes the entry and hands back its value. False, and nothing changed, if absent.
  bool deleteMemberG(K const& key, V* out = nullptr) {
    if (live_ == 0) return false;
    Holding const at = holding(key, hashOf(key));
    if (!at.node) return false;
    std::uint32_t const s = at.slot;
    eraseIndexAt(at.bucket);
    V v = std::exchange(at.node->value, V{});
    markDead(s);
    --live_;
    erasedInWalk_ |= walkers_ > 0;
    // The value goes once the entry is gone (its destructor may look at this map), and before
    // a reclaim moves slots.
    if (out) *out = std::move(v);
    v = V{};
    // Outside a walk a reclaim comes once tombstones outnumber the live entries three to one (see
    // maybeReclaim), and sizes the index itself: a map erased down moves each survivor about a
    // third of a time, not once per halving, and holds at most four slots per live entry.
    if (!maybeReclaim() && walkers_ > 0 && indexOversized()) rebuildIndex(shrunkIndexSize());
    return true;
  }

  // Removes every entry. A walk that is live sees none of them after this. The values are
  // released after the map is empty: their destructors may look at it.
  void _memberDelAll() {
    if (walkers_ == 0) {
      HashMap2018 old;
      swap(old);
      return;
    }
    std::uint32_t const n = count_;
    std::vector<std::uint64_t> const wasDead(dead_);
    for (std::uint32_t s = 0; s < n; ++s) dead_[s >> 6] |= std::uint64_t{1} << (s & 63);
    deadCount_ = n;
    live_ = 0;
    erasedInWalk_ = true;
    std::vector<Bucket>().swap(index_);
    lazyDead_ = 0;
    // Pinned while the values go: a destructor may insert, erase, or end the walk.
    ++walkers_;
    for (std::uint32_t s = 0; s < n; ++s) {
      if (!((wasDead[s >> 6] >> (s & 63)) & 1u)) (void)std::exchange(slot(s).value, V{});
    }
    walkerDone();
  }
  void emptyAllBuckets() { _memberDelAll(); }

  // Erases every entry one at a time in walk order, and calls `erased(key)` as each is gone and
  // before its value is released: a handler called from there finds the erased entries absent and
  // the others in place, as with erasing key by key. Faster than that, because an erased entry's
  // bucket stays in the index until the end, passed over by every probe meanwhile: an entry costs
  // no hash and no probe. The key passed stays readable until the call returns. The buckets go
  // at the next rebuild of the index: the reclaim that follows the walk, or a growth or shrink.
  template <class F>
  void eraseEach(F&& erased) {
    if (live_ == 0) return;
    for (Iterator it(*this); !it.done(); it.advance()) {
      std::uint32_t const s = it.i_;
      Node& n = slot(s);
      [[maybe_unused]] V const released = std::exchange(n.value, V{});  // goes after the call
      markDead(s);
      --live_;
      ++lazyDead_;
      erasedInWalk_ = true;  // so the walk's end reclaims, and rebuilds the index with it
      erased(std::as_const(n.key));
    }
  }

  // Walks in insertion order. See the file comment for what a walk survives.
  class Iterator {
    friend class HashMap2018;

   public:
    Iterator() = default;
    Iterator(HashMap2018 const& m) : m_(const_cast<HashMap2018*>(&m)) {  // NOLINT(google-explicit-constructor)
      ++m_->walkers_;
      skipDead();
    }
    Iterator(HashMap2018 const& m, EndOfCollection) : m_(const_cast<HashMap2018*>(&m)), i_(kEnd) { ++m_->walkers_; }
    Iterator(Iterator const& o) : m_(o.m_), i_(o.i_) {
      if (m_) ++m_->walkers_;
      p_ = o.p_;
      segEnd_ = o.segEnd_;
    }
    Iterator& operator=(Iterator const& o) {
      Iterator t(o);
      std::swap(m_, t.m_);
      std::swap(i_, t.i_);
      std::swap(p_, t.p_);
      std::swap(segEnd_, t.segEnd_);
      return *this;
    }
    ~Iterator() {
      if (m_) m_->walkerDone();
    }

    bool done() const noexcept { return !m_ || i_ >= m_->count_; }
    explicit operator bool() const noexcept { return !done(); }
    bool operator==(Iterator const& o) const noexcept {
      return done() ? o.done() : (!o.done() && m_ == o.m_ && i_ == o.i_);
    }

    void advance() noexcept {
      ++i_;
      ++p_;
      skipDead();
    }
    Iterator& operator++() noexcept {
      advance();
      return *this;
    }

    // The node the walk stands on; it must not have been deleted.
    Node& currNodeNonStale() const noexcept {
      assert(!done() && !m_->isDead(i_));
      return *p_;
    }
    // The node the walk stands on, even if just deleted: its key stays readable.
    Node& currNodeMaybeStale() const noexcept {
      assert(!done());
      return m_->slot(i_);
    }
    bool currNodeStale() const noexcept { return m_->isDead(i_); }
    Node& operator*() const noexcept { return currNodeNonStale(); }
    Node* operator->() const noexcept { return &currNodeNonStale(); }

    // An iterator is also a range from where it stands: `for (auto& n : x.fooIter())`.
    Iterator begin() const { return *this; }
    EndOfCollection end() const noexcept { return {}; }
    bool operator==(EndOfCollection) const noexcept { return done(); }

   private:
    static constexpr std::uint32_t kEnd = 0xFFFFFFFFu;
    // Steps over tombstones a bitmap word at a time, and reseats the node pointer only where
    // it leaves its segment or jumped.
    void skipDead() noexcept {
      std::uint32_t const n = m_->count_;
      std::uint32_t const from = i_;
      while (i_ < n) {
        std::uint64_t w = m_->dead_[i_ >> 6] >> (i_ & 63);
        if (!(w & 1)) break;
        i_ += static_cast<std::uint32_t>(std::countr_one(w));
      }
      if (i_ >= n) return;
      m_->hint_ = i_;
      m_->hintCredit_ = kHintCredit;
      if (i_ != from || i_ >= segEnd_) reseat();
    }
    void reseat() noexcept {
      p_ = &m_->slot(i_);
      segEnd_ = static_cast<std::uint32_t>(segmentCapacity(segmentOf(i_) + 1));
    }
    Node* p_ = nullptr;
    std::uint32_t segEnd_ = 0;
    HashMap2018* m_ = nullptr;
    std::uint32_t i_ = 0;
  };

  // The first live node at slot `i` or after, with `i` moved onto it; null at the end. For walks
  // that keep only a position between steps (a reclaim in between may move entries).
  Node const* liveNodeFrom(std::uint32_t& i) const noexcept {
    while (i < count_ && isDead(i)) ++i;
    return i < count_ ? &slot(i) : nullptr;
  }

  Iterator begin() const { return Iterator(*this); }
  Iterator end() const { return Iterator(*this, endOfCollection); }

  // Bytes this map holds beyond its own object, for memory reports.
  std::size_t memoryBytes() const noexcept {
    return index_.size() * sizeof(Bucket) + dead_.capacity() * sizeof(std::uint64_t) +
           segmentCapacity(segments_.size()) * sizeof(Node) + segments_.capacity() * sizeof(void*);
  }

 private:
  static constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;
  static constexpr unsigned kFirstSegmentBits = 3;  // the first segment holds 8 slots

  struct Bucket {
    std::uint32_t slot = kEmpty;
    std::uint32_t tag = 0;
  };
  struct SegmentFree {
    void operator()(Node* p) const noexcept {
      ::operator delete (static_cast<void*>(p), std::align_val_t{alignof(Node)});
    }
  };
  using Segment = std::unique_ptr<Node, SegmentFree>;

  static std::uint64_t hashOf(K const& key) noexcept {
    // Spread the bits: the standard hashes of integers are the identity.
    return static_cast<std::uint64_t>(H{}(key)) * 0x9E3779B97F4A7C15ull;
  }
  // The tag folds both halves of the hash and its low bits are the home bucket: the index
  // alone gives an entry's home, so erase and growth never read a slot, and a lookup masks
  // instead of loading a shift count.
  static std::uint32_t tagOf(std::uint64_t h) noexcept {
    return static_cast<std::uint32_t>(h >> 32) ^ static_cast<std::uint32_t>(h);
  }
  std::size_t homeOf(std::uint32_t tag) const noexcept { return static_cast<std::size_t>(tag) & mask(); }
  std::size_t mask() const noexcept { return index_.size() - 1; }
  std::size_t bucketOf(std::uint64_t h) const noexcept { return homeOf(tagOf(h)); }

  // Segments double from 8 slots up to 4096, then stay at 4096: a large map wastes at most one
  // segment's slack rather than half of itself just after a doubling.
  static constexpr std::size_t kDoublings = 10;
  static constexpr std::size_t kLargeSegment = std::size_t{1} << (kDoublings - 1 + kFirstSegmentBits);
  static constexpr std::size_t kDoubledCapacity = ((std::size_t{1} << kDoublings) - 1) << kFirstSegmentBits;
  static std::size_t segmentCapacity(std::size_t segments) noexcept {
    if (segments <= kDoublings) return ((std::size_t{1} << segments) - 1) << kFirstSegmentBits;
    return kDoubledCapacity + (segments - kDoublings) * kLargeSegment;
  }
  static std::size_t segmentSize(std::size_t s) noexcept {
    return s < kDoublings ? std::size_t{1} << (s + kFirstSegmentBits) : kLargeSegment;
  }
  static std::size_t segmentOf(std::uint32_t i) noexcept {
    if (i >= kDoubledCapacity) return kDoublings + (i - kDoubledCapacity) / kLargeSegment;
    return static_cast<std::size_t>(std::bit_width((std::size_t{i} >> kFirstSegmentBits) + 1)) - 1;
  }
  [[gnu::always_inline]] Node& slot(std::uint32_t i) const noexcept {
    std::size_t seg = segmentOf(i);
    return segments_[seg].get()[std::size_t{i} - segmentCapacity(seg)];
  }

  bool isDead(std::uint32_t s) const noexcept { return (dead_[s >> 6] >> (s & 63)) & 1u; }
  void markDead(std::uint32_t s) noexcept {
    dead_[s >> 6] |= std::uint64_t{1} << (s & 63);
    ++deadCount_;
  }

  // Tables are mostly read back at the entry just found, inserted or stepped onto by a walk, or
  // read in the order they were written, as when one table is walked and another that was built
  // from it is looked up key by key. So that slot and the next are tried before the index: a hit
  // there needs no hash and no index line. A live key stands in one slot only, so a slot that is
  // live and holds the key is the entry, wherever the hint came from.
  //
  // Lookups in no order would pay for the try, and worse, each would wait on the one before for
  // its hint, where the index probes of independent lookups overlap. So a few misses in a row
  // stop the tries, and an insert, a walk step, or a probe that lands next to the hint resumes
  // them.
  std::uint32_t hintedSlotOf(K const& key) const noexcept {
    if (hintCredit_ == 0) return kEmpty;
    std::uint32_t const s = hint_;
    if (s < count_ && !isDead(s) && slot(s).key == key) return hintHit(s);
    std::uint32_t const next = s + 1;  // from no hint (all ones), slot 0
    if (next < count_ && !isDead(next) && slot(next).key == key) return hintHit(next);
    --hintCredit_;
    return kEmpty;
  }
  std::uint32_t hintHit(std::uint32_t s) const noexcept {
    hintCredit_ = kHintCredit;
    return hint_ = s;
  }

  // Where the live entry of a key stands: all three come from one pass, so that a caller needs
  // neither the bucket read again nor the slot's address worked out again. Without a live entry,
  // the empty bucket that ended the search, where an insert puts the key; kNoBucket when no
  // search was made.
  struct Holding {
    std::size_t bucket;
    std::uint32_t slot;
    Node* node;  // null: no live entry
  };
  static constexpr std::size_t kNoBucket = ~std::size_t{0};

  Holding find(K const& key, std::uint64_t h) const noexcept {
    if (live_ == 0) return Holding{kNoBucket, kEmpty, nullptr};
    if (std::uint32_t s = hintedSlotOf(key); s != kEmpty) return Holding{kNoBucket, s, &slot(s)};
    return probe(key, h);
  }
  Holding probe(K const& key, std::uint64_t h) const noexcept {
    Holding const at = holding(key, h);
    if (at.node) {
      if (at.slot - hint_ <= 1) hintCredit_ = kHintCredit;
      hint_ = at.slot;
    }
    return at;
  }

  // Passes over the buckets eraseEach left behind.
  Holding holding(K const& key, std::uint64_t h) const noexcept {
    std::uint32_t const tag = tagOf(h);
    for (std::size_t b = homeOf(tag);; b = (b + 1) & mask()) {
      Bucket const e = index_[b];
      if (e.slot == kEmpty) return Holding{b, kEmpty, nullptr};
      if (e.tag != tag) continue;
      Node& n = slot(e.slot);
      if (n.key == key && !lazilyErased(e.slot)) return Holding{b, e.slot, &n};
    }
  }

  // Into the first empty bucket from the home of `h`, or into `at` where a search already found it.
  void indexPut(std::uint32_t s, std::uint64_t h, std::size_t at = kNoBucket) noexcept {
    std::size_t b = at;
    if (b == kNoBucket) {
      b = bucketOf(h);
      while (index_[b].slot != kEmpty) b = (b + 1) & mask();
    }
    index_[b] = Bucket{s, tagOf(h)};
  }

  // Backward-shift deletion keeps the probe runs whole without index tombstones.
  void eraseIndexAt(std::size_t b) noexcept {
    std::size_t hole = b;
    for (std::size_t j = (b + 1) & mask();; j = (j + 1) & mask()) {
      Bucket const& e = index_[j];
      if (e.slot == kEmpty) break;
      std::size_t home = homeOf(e.tag);
      // Move e into the hole unless its home lies cyclically in (hole, j].
      bool stays = hole <= j ? (hole < home && home <= j) : (hole < home || home <= j);
      if (!stays) {
        index_[hole] = e;
        hole = j;
      }
    }
    index_[hole] = Bucket{};
  }

  // `bucket`: where a search for the key just ended, or kNoBucket.
  Node* insertNew(K const& key, V&& value, std::uint64_t h, std::size_t bucket) {
    if (count_ == segmentCapacity(segments_.size())) {
      // Growing past a quarter of tombstones: the next erase outside a walk reclaims them and
      // gives the spare segment back. Never here, where the caller may hold node pointers.
      if (deadCount_ * 4 >= count_ && deadCount_ > 0) reclaimDue_ = true;
      addSegment();
    }
    if (!indexHolds(live_ + lazyDead_ + 1, index_.size())) {
      growIndex();
      bucket = kNoBucket;
    }
    std::uint32_t s = count_;
    ::new (static_cast<void*>(&slot(s))) Node{key, std::move(value)};
    ++count_;
    if ((s >> 6) >= dead_.size()) dead_.push_back(0);
    indexPut(s, h, bucket);
    ++live_;
    hint_ = s;
    hintCredit_ = kHintCredit;
    return &slot(s);
  }

  void addSegment() {
    std::size_t n = segmentSize(segments_.size());
    segments_.emplace_back(static_cast<Node*>(::operator new (n * sizeof(Node), std::align_val_t{alignof(Node)})));
  }

  // An index holds its buckets at a load of at most 0.8.
  static bool indexHolds(std::size_t buckets, std::size_t size) noexcept { return buckets * 5 <= size * 4; }
  void growIndex() { rebuildIndex(index_.empty() ? 16 : index_.size() * 2); }

  // The index for the live entries at a load of a quarter to a half; none for no entry.
  std::size_t shrunkIndexSize() const noexcept {
    return live_ == 0 ? 0 : std::max<std::size_t>(16, std::bit_ceil(std::size_t{live_} * 2));
  }
  bool indexOversized() const noexcept { return index_.size() > 16 && std::size_t{live_} * 8 < index_.size(); }
  // Reads the buckets alone, never a slot, so it may run during a walk.
  void rebuildIndex(std::size_t n) {
    std::vector<Bucket> old(n, Bucket{});
    old.swap(index_);
    bool const dropDead = lazyDead_ != 0;
    lazyDead_ = 0;
    for (Bucket const& e : old) {
      if (e.slot == kEmpty || (dropDead && isDead(e.slot))) continue;
      std::size_t b = homeOf(e.tag);
      while (index_[b].slot != kEmpty) b = (b + 1) & mask();
      index_[b] = e;
    }
  }

  // A bucket left in the index by eraseEach for an entry it erased.
  bool lazilyErased(std::uint32_t s) const noexcept { return lazyDead_ != 0 && isDead(s); }

  // Due when tombstones outnumber the live entries three to one, or already one to one when every
  // slot is used: reclaiming then spares the next insert a new segment, so a map whose entries
  // come and go settles without allocating.
  bool maybeReclaim() {
    if (walkers_ != 0 || deadCount_ == 0) return false;
    bool const full = count_ == segmentCapacity(segments_.size());
    bool const due = live_ == 0 || reclaimDue_ ||
                     (deadCount_ > 8 && (deadCount_ > std::uint64_t{3} * live_ || (full && deadCount_ > live_)));
    if (due) reclaim();
    return due;
  }
  void walkerDone() {
    if (--walkers_ == 0 && erasedInWalk_) {
      erasedInWalk_ = false;
      maybeReclaim();
    }
  }

  // Moves the live slots down over the tombstones and rebuilds the index; a map with no live
  // entry is left with no segment and no index.
  void reclaim() {
    assert(walkers_ == 0);
    reclaimDue_ = false;
    lazyDead_ = 0;  // the index is made anew below
    if (live_ == 0) {
      HashMap2018 old;
      swap(old);
      return;
    }
    std::uint32_t to = 0;
    for (std::uint32_t s = 0; s < count_; ++s) {
      if (isDead(s)) continue;
      if (to != s) {
        slot(to).key = std::move(slot(s).key);
        slot(to).value = std::move(slot(s).value);
      }
      ++to;
    }
    for (std::uint32_t s = to; s < count_; ++s) slot(s).~Node();
    count_ = to;
    deadCount_ = 0;
    // Keep the segments the live slots need and one spare, so a map that shrank gives memory back,
    // and the tombstone bits for every slot kept: filling those slots again allocates nothing.
    while (segments_.size() > 1 && segmentCapacity(segments_.size() - 2) >= count_) segments_.pop_back();
    std::size_t const slotWords = (segmentCapacity(segments_.size()) + 63) / 64;
    if (dead_.capacity() > 2 * slotWords) {
      std::vector<std::uint64_t> fewer;
      fewer.reserve(slotWords);
      dead_.swap(fewer);
    }
    dead_.assign((count_ + 63) / 64, 0);
    if (indexOversized()) {
      std::vector<Bucket>(shrunkIndexSize(), Bucket{}).swap(index_);
    } else {
      std::fill(index_.begin(), index_.end(), Bucket{});
    }
    for (std::uint32_t s = 0; s < count_; ++s) indexPut(s, hashOf(slot(s).key));
  }

  void destroySlots() noexcept {
    for (std::uint32_t s = 0; s < count_; ++s) slot(s).~Node();
    count_ = 0;
  }

  void swap(HashMap2018& o) noexcept {
    std::swap(segments_, o.segments_);
    std::swap(index_, o.index_);
    std::swap(dead_, o.dead_);
    std::swap(count_, o.count_);
    std::swap(live_, o.live_);
    std::swap(deadCount_, o.deadCount_);
    std::swap(walkers_, o.walkers_);
    std::swap(hint_, o.hint_);
    std::swap(hintCredit_, o.hintCredit_);
    std::swap(reclaimDue_, o.reclaimDue_);
    std::swap(erasedInWalk_, o.erasedInWalk_);
    std::swap(lazyDead_, o.lazyDead_);
  }

  std::vector<Segment> segments_;
  std::vector<Bucket> index_;
  std::vector<std::uint64_t> dead_;
  std::uint32_t count_ = 0;  // slots in use, live or dead
  std::uint32_t live_ = 0;
  std::uint32_t deadCount_ = 0;
  std::uint32_t walkers_ = 0;
  static constexpr std::uint8_t kHintCredit = 4;
  mutable std::uint32_t hint_ = kEmpty;  // the slot last found, inserted or stepped onto
  mutable std::uint8_t hintCredit_ = 0;  // hint misses left before the tries stop
  bool reclaimDue_ = false;              // an insert grew the map past many tombstones
  bool erasedInWalk_ = false;            // reclaim when the last walk ends
  std::uint32_t lazyDead_ = 0;           // buckets eraseEach left in the index for erased entries
};

}  // namespace Vok
