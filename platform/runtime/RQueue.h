// Brix::RQueue, a first-in first-out queue stored as a linked ring of arrays. A new array is
// sized after the queue's present length (a power of two from 4 to 8192), so a long queue costs
// few allocations and a short one little memory.
#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstddef>
#include <memory>
#include <utility>

namespace Brix {

template <class T>
class RQueue {
 public:
  static constexpr std::size_t kMinChunk = 4;
  static constexpr std::size_t kMaxChunk = 8192;

  RQueue() = default;
  RQueue(RQueue const&) = delete;
  RQueue& operator=(RQueue const&) = delete;
  ~RQueue() { clear(); }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }

  void push(T v) {
    if (!tail_ || tail_->end == tail_->cap) addChunk();
    ::new (static_cast<void*>(tail_->slot(tail_->end))) T(std::move(v));
    ++tail_->end;
    ++size_;
  }
  T& front() noexcept {
    assert(size_ > 0);
    return *head_->slot(head_->begin);
  }
  T& back() noexcept {
    assert(size_ > 0);
    return *tail_->slot(tail_->end - 1);
  }
  T const& front() const noexcept { return const_cast<RQueue*>(this)->front(); }
  T const& back() const noexcept { return const_cast<RQueue*>(this)->back(); }
  void pop() {
    assert(size_ > 0);
    head_->slot(head_->begin)->~T();
    ++head_->begin;
    --size_;
    if (head_->begin == head_->end) dropHead();
  }
  void clear() {
    while (size_ > 0) pop();
    while (head_) dropHead();
  }

  std::size_t chunkCountForTest() const noexcept {
    std::size_t n = 0;
    for (Chunk* c = head_; c; c = c->next) ++n;
    return n;
  }

 private:
  struct Chunk {
    explicit Chunk(std::size_t c) : cap(c), data(new Storage[c]) {}
    struct Storage {
      alignas(T) unsigned char bytes[sizeof(T)];
    };
    T* slot(std::size_t i) noexcept { return std::launder(reinterpret_cast<T*>(data[i].bytes)); }
    std::size_t cap;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::unique_ptr<Storage[]> data;
    Chunk* next = nullptr;
  };

  void addChunk() {
    std::size_t want = std::clamp<std::size_t>(std::bit_ceil(std::max<std::size_t>(size_, 1)), kMinChunk, kMaxChunk);
    auto* c = new Chunk(want);
    (tail_ ? tail_->next : head_) = c;
    tail_ = c;
  }
  void dropHead() {
    Chunk* c = head_;
    head_ = c->next;
    if (!head_) tail_ = nullptr;
    delete c;
  }

  Chunk* head_ = nullptr;
  Chunk* tail_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace Brix
