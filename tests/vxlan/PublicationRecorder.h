// A plain subscriber for tests: it keeps every publication of one entity, and can run a probe at
// the moment of delivery, so a test sees what the world looked like when the change went out.
#pragma once

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "runtime/Entity.h"
#include "runtime/Publisher.h"

namespace TestSupport {

class PublicationRecorder {
 public:
  struct Publication {
    Brix::FieldId field;
    void const* key;
    void const* value;
  };
  using Probe = std::function<void(Publication const&)>;

  explicit PublicationRecorder(Vok::Entity const& entity, Probe probe = {}) : probe_(std::move(probe)) {
    sub_.subscribeTo(entity.publisher(), &dispatch);
  }

  std::vector<Publication> const& publications() const noexcept { return pubs_; }
  std::size_t count(Brix::FieldId field) const noexcept {
    std::size_t n = 0;
    for (auto const& p : pubs_) n += p.field == field;
    return n;
  }
  void clear() noexcept { pubs_.clear(); }

 private:
  static void dispatch(Brix::Publisher const*, Brix::Subscriber* s, Brix::FieldId field, void const* key,
                       void const* value) noexcept {
    auto* self = s->ownerAs<PublicationRecorder>();
    self->pubs_.push_back({field, key, value});
    if (self->probe_) self->probe_(self->pubs_.back());
  }

  Brix::Subscriber sub_{this};
  std::vector<Publication> pubs_;
  Probe probe_;
};

}  // namespace TestSupport
