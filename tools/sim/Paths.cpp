#include "Paths.h"

#include <algorithm>
#include <cctype>
#include <type_traits>
#include <utility>

#include "Dump.h"
#include "PlugIn.h"
#include "Values.h"

namespace Sim {

ScenarioError::ScenarioError(int line, std::string const& message, std::string file)
    : std::runtime_error((file.empty() ? std::string("scenario") : file) +
                         (line > 0 ? ":" + std::to_string(line) : std::string()) + ": " + message),
      line_(line),
      message_(message),
      file_(std::move(file)) {}

int lineOf(YAML::Node const& node) noexcept {
  YAML::Mark m = node.Mark();
  return m.is_null() ? 0 : m.line + 1;
}

void failAt(YAML::Node const& node, std::string const& message) { throw ScenarioError(lineOf(node), message); }

namespace {

struct Segment {
  std::string name;
  bool hasKey = false;
  std::string key;
};
using Segments = std::vector<Segment>;

template <class E>
using Op = std::function<void(E&)>;

Segments splitPath(YAML::Node const& at, std::string const& prefix = {}) {
  if (!at.IsScalar() || at.Scalar().empty())
    failAt(at, "expected a path such as localVxStatus.vtepTypeAddr[localVtep]");
  std::string const s = prefix.empty() ? at.Scalar() : prefix + "." + at.Scalar();
  Segments out;
  std::size_t i = 0;
  auto bad = [&](std::string const& why) { failAt(at, "bad path '" + s + "': " + why); };
  while (true) {
    Segment seg;
    while (i < s.size() && (std::isalnum(static_cast<unsigned char>(s[i])) || s[i] == '_')) seg.name += s[i++];
    if (seg.name.empty()) bad("expected a name at character " + std::to_string(i + 1));
    if (i < s.size() && s[i] == '[') {
      std::size_t close = s.find(']', i);
      if (close == std::string::npos) bad("a '[' without its ']'");
      seg.hasKey = true;
      seg.key = s.substr(i + 1, close - i - 1);
      if (seg.key.empty() || seg.key.find('[') != std::string::npos) bad("expected one key between '[' and ']'");
      i = close + 1;
    }
    out.push_back(std::move(seg));
    if (i == s.size()) return out;
    if (s[i] != '.') bad("expected '.' or '[' at character " + std::to_string(i + 1));
    ++i;
  }
}

std::string join(std::string const& where, std::string const& name) {
  return where.empty() ? name : where + "." + name;
}

// The attribute `field` of type A of a live entity.
template <class A, class E, class F>
void withAttr(E& e, Brix::FieldId field, F&& f) {
  e.vokVisitField(field, [&](auto, Brix::FieldId fid, auto& attr) {
    if constexpr (std::is_same_v<std::decay_t<decltype(attr)>, A>) f(attr, fid);
  });
}

template <class E>
Op<E> sequence(std::vector<Op<E>> ops) {
  return [ops = std::move(ops)](E& e) {
    for (auto const& op : ops) op(e);
  };
}

template <class E>
std::string attributeNames(E const& proto) {
  std::string names;
  proto.vokForEachAttribute([&](std::string_view name, Brix::FieldId, auto const&) {
    names += (names.empty() ? "" : ", ") + std::string(name);
  });
  return names;
}

template <class E>
[[noreturn]] void noAttribute(YAML::Node const& at, E const& proto, std::string const& name, std::string const& where) {
  failAt(at, std::string(where.empty() ? E::vokTypeName : "'" + where + "'") + " has no attribute '" + name +
                 "' (it has " + attributeNames(proto) + ")");
}

// A value of type V from `node`, ~ giving the default.
template <class V>
V readOrFail(YAML::Node const& node, std::string const& here) {
  if constexpr (Readable<V>) {
    V v{};
    if (node.IsNull()) return v;
    std::string error;
    if (!readValue(node, v, error)) failAt(node, "'" + here + "': " + error);
    return v;
  } else {
    failAt(node, "'" + here + "' holds values that a scenario cannot write yet");
  }
}

// A key of type K from the text between brackets.
template <class K>
K keyOrFail(std::string const& keyText, YAML::Node const& at, std::string const& here) {
  if constexpr (Readable<K>) {
    K k{};
    std::string error;
    if (!readValue(YAML::Node(keyText), k, error)) failAt(at, "key of '" + here + "': " + error);
    return k;
  } else {
    failAt(at, "the keys of '" + here + "' cannot be written in a scenario yet");
  }
}

template <class V>
std::function<std::string(YAML::Node const&)> canonicalOf(std::string const& here) {
  return [here](YAML::Node const& n) -> std::string {
    if constexpr (Readable<V>) {
      V v{};
      std::string error;
      if (!readValue(n, v, error)) failAt(n, "'" + here + "': " + error);
      return text(v);
    } else {
      if (!n.IsScalar()) failAt(n, "'" + here + "': expected its value as text");
      return n.Scalar();
    }
  };
}

// ---- set -----------------------------------------------------------------------------------

template <class E>
Op<E> setIn(E const& proto, Segments const& segs, std::size_t i, YAML::Node const& at, YAML::Node const& value,
            std::string const& where);

// `value` is a map of attribute paths of this entity.
template <class E>
Op<E> setEntityMap(E const& proto, YAML::Node const& at, YAML::Node const& value, std::string const& where) {
  if (value.IsNull()) return [](E&) {};
  if (!value.IsMap())
    failAt(value.IsDefined() ? value : at, "'" + where + "' is an entity: give its attributes as a map");
  std::vector<Op<E>> ops;
  for (auto const& kv : value) ops.push_back(setIn(proto, splitPath(kv.first), 0, kv.first, kv.second, where));
  return sequence(std::move(ops));
}

template <class E, class A, class K>
Op<E> setValueOp(Brix::FieldId field, K const& k, YAML::Node const& value, std::string const& here,
                 std::string_view collection, YAML::Node const& at) {
  using V = typename A::ValueType;
  if (std::string error; !keyFitsCollection(collection, k, error)) failAt(at, "'" + here + "': " + error);
  if (value.IsNull()) {
    return [field, k](E& e) { withAttr<A>(e, field, [&](A& a, Brix::FieldId f) { a.del(e, f, k); }); };
  }
  V v = readOrFail<V>(value, here);
  // A record that carries its key inside takes it from the path: the two cannot disagree.
  if constexpr (requires { v.keyIs(k); }) {
    v.keyIs(k);
  } else if constexpr (requires { v.macAddrIs(k); }) {
    v.macAddrIs(k);
  } else if constexpr (requires { v.ipIs(k); }) {
    v.ipIs(k);
  } else if constexpr (requires { v.vlanIdIs(k); }) {
    v.vlanIdIs(k);
  }
  return [field, k, v](E& e) {
    withAttr<A>(e, field, [&](A& a, Brix::FieldId f) {
      if constexpr (requires { a.set(e, f, k, v); }) {
        a.set(e, f, k, v);
      } else {
        (void)k;  // set from the key above
        a.set(e, f, v);
      }
    });
  };
}

template <class E, class A, class K>
Op<E> setMemberOp(Brix::FieldId field, K const& k, Segments const& segs, std::size_t next, YAML::Node const& at,
                  YAML::Node const& value, std::string const& here) {
  using M = typename A::Member;
  if (next == segs.size() && value.IsNull()) {
    return [field, k](E& e) { withAttr<A>(e, field, [&](A& a, Brix::FieldId f) { (void)a.del(e, f, k); }); };
  }
  Brix::Ptr<M> proto = Brix::newNode<M>(k);
  Op<M> inner = setIn<M>(*proto, segs, next, at, value, here);
  // xIs(key) makes the member if it is absent and returns the one there otherwise: a member
  // is never replaced under its key.
  return [field, k, inner](E& e) {
    withAttr<A>(e, field, [&](A& a, Brix::FieldId f) {
      Brix::Ptr<M> m = a.set(e, f, k);
      inner(*m);
    });
  };
}

template <class E, class A>
Op<E> setAttr(Brix::FieldId field, Segments const& segs, std::size_t i, YAML::Node const& at, YAML::Node const& value,
              std::string const& where) {
  Segment const& seg = segs[i];
  std::string const here = join(where, seg.name);
  bool const last = i + 1 == segs.size();
  if constexpr (Vok::Attr::KeyAttr<A>) {
    failAt(at, "'" + here + "' is the key of its entity and cannot be set");
  } else if constexpr (Vok::Attr::ScalarAttr<A>) {
    if (seg.hasKey) failAt(at, "'" + here + "' is a single value, not a collection: drop the [" + seg.key + "]");
    if (!last) failAt(at, "'" + here + "' is a single value: nothing lies below it");
    auto v = readOrFail<typename A::ValueType>(value, here);
    return [field, v](E& e) { withAttr<A>(e, field, [&](A& a, Brix::FieldId f) { a.set(e, f, v); }); };
  } else if constexpr (Vok::Attr::MembersAttr<A>) {
    using K = typename A::KeyType;
    if (seg.hasKey) {
      K k = keyOrFail<K>(seg.key, at, here);
      return setMemberOp<E, A>(field, k, segs, i + 1, at, value, here + "[" + text(k) + "]");
    }
    if (!last) failAt(at, "'" + here + "' holds entities: name one with [key]");
    if (!value.IsMap()) failAt(at, "'" + here + "' holds entities: give a map of key: {attributes} (~ deletes one)");
    std::vector<Op<E>> ops;
    for (auto const& kv : value) {
      K k = readOrFail<K>(kv.first, here + " key");
      ops.push_back(setMemberOp<E, A>(field, k, Segments{}, 0, kv.first, kv.second, here + "[" + text(k) + "]"));
    }
    return sequence(std::move(ops));
  } else {
    using K = typename A::KeyType;
    if (!last) failAt(at, "'" + here + "' holds values: nothing lies below them");
    if (seg.hasKey) {
      K k = keyOrFail<K>(seg.key, at, here);
      return setValueOp<E, A>(field, k, value, here + "[" + text(k) + "]", seg.name, at);
    }
    if (!value.IsMap()) failAt(at, "'" + here + "' is a collection: give a map of key: value (~ deletes a key)");
    std::vector<Op<E>> ops;
    for (auto const& kv : value) {
      K k = readOrFail<K>(kv.first, here + " key");
      ops.push_back(setValueOp<E, A>(field, k, kv.second, here + "[" + text(k) + "]", seg.name, kv.first));
    }
    return sequence(std::move(ops));
  }
}

template <class E>
Op<E> setIn(E const& proto, Segments const& segs, std::size_t i, YAML::Node const& at, YAML::Node const& value,
            std::string const& where) {
  if (i == segs.size()) return setEntityMap(proto, at, value, where);
  Op<E> op;
  bool found = false;
  proto.vokForEachAttribute([&](std::string_view name, Brix::FieldId field, auto const& attr) {
    if (found || name != segs[i].name) return;
    found = true;
    op = setAttr<E, std::decay_t<decltype(attr)>>(field, segs, i, at, value, where);
  });
  if (!found) noAttribute(at, proto, segs[i].name, where);
  return op;
}

// ---- delete --------------------------------------------------------------------------------

template <class E>
Op<E> deleteIn(E const& proto, Segments const& segs, std::size_t i, YAML::Node const& at, std::string const& where);

template <class E, class A>
Op<E> deleteAttr(Brix::FieldId field, Segments const& segs, std::size_t i, YAML::Node const& at,
                 std::string const& where) {
  Segment const& seg = segs[i];
  std::string const here = join(where, seg.name);
  bool const last = i + 1 == segs.size();
  if constexpr (Vok::Attr::KeyAttr<A> || Vok::Attr::ScalarAttr<A>) {
    failAt(at, "'" + here + "' is a single value: set it instead");
  } else {
    using K = typename A::KeyType;
    if (!seg.hasKey) {
      if (!last) failAt(at, "'" + here + "' holds entities: name one with [key]");
      return [field](E& e) { withAttr<A>(e, field, [&](A& a, Brix::FieldId f) { a.delAll(e, f); }); };
    }
    K k = keyOrFail<K>(seg.key, at, here);
    if (last) {
      return [field, k](E& e) { withAttr<A>(e, field, [&](A& a, Brix::FieldId f) { (void)a.del(e, f, k); }); };
    }
    if constexpr (Vok::Attr::MembersAttr<A>) {
      using M = typename A::Member;
      Brix::Ptr<M> proto = Brix::newNode<M>(k);
      Op<M> inner = deleteIn<M>(*proto, segs, i + 1, at, here + "[" + text(k) + "]");
      return [field, k, inner](E& e) {
        withAttr<A>(e, field, [&](A& a, Brix::FieldId) {
          if (Brix::Ptr<M> m = a.get(k)) inner(*m);
        });
      };
    } else {
      failAt(at, "'" + here + "' holds values: nothing lies below them");
    }
  }
}

template <class E>
Op<E> deleteIn(E const& proto, Segments const& segs, std::size_t i, YAML::Node const& at, std::string const& where) {
  if (i == segs.size()) failAt(at, "'" + where + "' is an entity: name the attribute or the key to delete");
  Op<E> op;
  bool found = false;
  proto.vokForEachAttribute([&](std::string_view name, Brix::FieldId field, auto const& attr) {
    if (found || name != segs[i].name) return;
    found = true;
    op = deleteAttr<E, std::decay_t<decltype(attr)>>(field, segs, i, at, where);
  });
  if (!found) noAttribute(at, proto, segs[i].name, where);
  return op;
}

// ---- probe ---------------------------------------------------------------------------------

template <class E>
Probe probeIn(E const& proto, Segments const& segs, std::size_t i, YAML::Node const& at, std::string const& where);

// A key as the dump prints it: through its type where a scenario can write one, else as given.
template <class K>
std::string canonicalKey(std::string const& keyText, YAML::Node const& at, std::string const& here) {
  if constexpr (Readable<K>) {
    return text(keyOrFail<K>(keyText, at, here));
  } else {
    return keyText;
  }
}

template <class E, class A>
Probe probeAttr(Segments const& segs, std::size_t i, YAML::Node const& at, std::string const& where) {
  Segment const& seg = segs[i];
  std::string const here = join(where, seg.name);
  bool const last = i + 1 == segs.size();
  if constexpr (Vok::Attr::KeyAttr<A> || Vok::Attr::ScalarAttr<A>) {
    if (seg.hasKey) failAt(at, "'" + here + "' is a single value, not a collection: drop the [" + seg.key + "]");
    if (!last) failAt(at, "'" + here + "' is a single value: nothing lies below it");
    using V = std::decay_t<decltype(std::declval<A const&>().get())>;
    return Probe{here, Probe::Kind::value, canonicalOf<V>(here), false};
  } else {
    using K = typename A::KeyType;
    if (!seg.hasKey) {
      if (!last) failAt(at, "'" + here + "' is a collection: name a key with [key]");
      return Probe{here, Probe::Kind::collection, {}};
    }
    std::string const member = here + "[" + canonicalKey<K>(seg.key, at, here) + "]";
    if constexpr (Vok::Attr::MembersAttr<A>) {
      if (last) return Probe{member, Probe::Kind::entity, {}};
      using M = typename A::Member;
      K k{};
      if constexpr (Readable<K>) k = keyOrFail<K>(seg.key, at, here);
      Brix::Ptr<M> proto = Brix::newNode<M>(k);
      return probeIn<M>(*proto, segs, i + 1, at, member);
    } else {
      if (!last) failAt(at, "'" + here + "' holds values: nothing lies below them");
      return Probe{member, Probe::Kind::value, canonicalOf<typename A::ValueType>(member)};
    }
  }
}

template <class E>
Probe probeIn(E const& proto, Segments const& segs, std::size_t i, YAML::Node const& at, std::string const& where) {
  if (i == segs.size()) return Probe{where, Probe::Kind::entity, {}};
  Probe out;
  bool found = false;
  proto.vokForEachAttribute([&](std::string_view name, Brix::FieldId, auto const& attr) {
    if (found || name != segs[i].name) return;
    found = true;
    out = probeAttr<E, std::decay_t<decltype(attr)>>(segs, i, at, where);
  });
  if (!found) noAttribute(at, proto, segs[i].name, where);
  return out;
}

// ---- the switch's entities -----------------------------------------------------------------

std::string entityNames(SwitchEntities const& s) {
  std::string names;
  s.forEachEntity(
      [&](std::string_view name, auto const&, bool) { names += (names.empty() ? "" : ", ") + std::string(name); });
  return names;
}

// Calls f(proto, name) for the entity that `segs` starts with, and makes `op` apply `inner` to the
// same entity of a live switch.
template <class Make>
auto onEntity(YAML::Node const& at, Segments const& segs, Make&& make) {
  SwitchEntities const scratch;  // the types' declarations are all that is read of it
  if (segs[0].hasKey) failAt(at, "'" + segs[0].name + "' is an entity of the switch: it takes no [key]");
  bool found = false;
  decltype(make(*scratch.sentVxStatus, std::string_view())) out;
  scratch.forEachEntity([&](std::string_view name, auto const& ptr, bool) {
    if (found || name != segs[0].name) return;
    found = true;
    out = make(*ptr, name);
  });
  if (!found) failAt(at, "no entity '" + segs[0].name + "' in a switch (there are " + entityNames(scratch) + ")");
  return out;
}

template <class E>
SwitchOp onLive(std::string_view entity, Op<E> inner) {
  return [name = std::string(entity), inner = std::move(inner)](SwitchEntities& s) {
    s.forEachEntity([&](std::string_view n, auto const& ptr, bool) {
      if constexpr (std::is_same_v<typename std::decay_t<decltype(ptr)>::element_type, E>) {
        if (n == name) inner(*ptr);
      }
    });
  };
}

// The controller's MAC table of a VNI: "controllerStatus[10010].macVtepTable[00:11:22:33:44:55]".
// The tables sit in a directory by the VNI's decimal text, made when first written.
constexpr std::string_view controllerStatus = "controllerStatus";
using VniTable = VxlanController::VniFdbStatusV2;

Vxlan::VniExt controllerVni(Segments const& segs, YAML::Node const& at) {
  if (!segs[0].hasKey) failAt(at, "'controllerStatus' holds a table per VNI: name one with [VNI]");
  return keyOrFail<Vxlan::VniExt>(segs[0].key, at, "controllerStatus");
}

std::string controllerWhere(Vxlan::VniExt vni) {
  return std::string(controllerStatus) + "[" + std::to_string(vni.value()) + "]";
}

SwitchOp controllerSet(Segments const& segs, YAML::Node const& path, YAML::Node const& value) {
  Vxlan::VniExt const vni = controllerVni(segs, path);
  Brix::String const name(std::to_string(vni.value()));
  if (segs.size() == 1 && value.IsNull()) {
    return [name](SwitchEntities& s) { (void)s.controllerStatusBaseDir->entityDel(name); };
  }
  Brix::Ptr<VniTable> const proto = Brix::newNode<VniTable>();
  Op<VniTable> inner = setIn<VniTable>(*proto, segs, 1, path, value, controllerWhere(vni));
  return [name, inner](SwitchEntities& s) {
    Brix::Ptr<VniTable> table = s.controllerStatusBaseDir->entityAs<VniTable>(name);
    if (!table) table = s.controllerStatusBaseDir->entityNew<VniTable>(name);
    inner(*table);
  };
}

SwitchOp controllerDelete(Segments const& segs, YAML::Node const& path) {
  Vxlan::VniExt const vni = controllerVni(segs, path);
  Brix::String const name(std::to_string(vni.value()));
  if (segs.size() == 1) return [name](SwitchEntities& s) { (void)s.controllerStatusBaseDir->entityDel(name); };
  Brix::Ptr<VniTable> const proto = Brix::newNode<VniTable>();
  Op<VniTable> inner = deleteIn<VniTable>(*proto, segs, 1, path, controllerWhere(vni));
  return [name, inner](SwitchEntities& s) {
    if (Brix::Ptr<VniTable> table = s.controllerStatusBaseDir->entityAs<VniTable>(name)) inner(*table);
  };
}

}  // namespace

SwitchOp compileSet(YAML::Node const& path, YAML::Node const& value, std::string const& prefix) {
  Segments segs = splitPath(path, prefix);
  if (segs[0].name == controllerStatus) return controllerSet(segs, path, value);
  return onEntity(path, segs, [&](auto const& proto, std::string_view name) -> SwitchOp {
    using E = std::decay_t<decltype(proto)>;
    return onLive<E>(name, setIn<E>(proto, segs, 1, path, value, std::string(name)));
  });
}

SwitchOp compileDelete(YAML::Node const& path) {
  Segments segs = splitPath(path);
  if (segs[0].name == controllerStatus) return controllerDelete(segs, path);
  return onEntity(path, segs, [&](auto const& proto, std::string_view name) -> SwitchOp {
    using E = std::decay_t<decltype(proto)>;
    return onLive<E>(name, deleteIn<E>(proto, segs, 1, path, std::string(name)));
  });
}

Probe compileProbe(YAML::Node const& path) {
  Segments segs = splitPath(path);
  if (segs[0].name == "container" && !segs[0].hasKey) {
    auto const& names = containerChildNames();
    if (segs.size() != 2 || segs[1].hasKey || std::find(names.begin(), names.end(), segs[1].name) == names.end()) {
      std::string list;
      for (auto n : names) list += (list.empty() ? "" : ", ") + std::string(n);
      failAt(path, "expected container.<child>, a child being one of " + list);
    }
    return Probe{"container." + segs[1].name, Probe::Kind::entity, {}};
  }
  return onEntity(path, segs, [&](auto const& proto, std::string_view name) -> Probe {
    using E = std::decay_t<decltype(proto)>;
    return probeIn<E>(proto, segs, 1, path, std::string(name));
  });
}

}  // namespace Sim
