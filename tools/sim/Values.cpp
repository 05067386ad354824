#include "Values.h"

#include <map>
#include <vector>

#include "entities/PlatformFunctions.h"

namespace Sim {

using ValuesImpl::field;
using ValuesImpl::record;

bool readValue(YAML::Node const& n, Shoal::Bridging::ShoalFdbStatus& out, std::string& error) {
  using R = Shoal::Bridging::ShoalFdbStatus;
  if (!record<R>(n, out, error,
                 {field("intf", &R::intfIs), field("lastMoveTime", &R::lastMoveTimeIs), field("moves", &R::movesIs),
                  field("entryType", &R::entryTypeIs), field("flags", &R::flagsIs)})) {
    return false;
  }
  if (Bridging::isEntryTypeSelf(out.entryType()) && Bridging::isEntryTypeRemote(out.entryType()) &&
      !Lanx::VxlanTunnelIntfId::isVxlanTunnelIntfId(out.intf())) {
    error = "an entry of type " + text(out.entryType()) + " stands behind a tunnel: its intf must be a VXLAN " +
            "interface such as Vxlan1, not '" + text(out.intf()) + "'";
    return false;
  }
  return true;
}

bool readValue(YAML::Node const& n, Shoal::Vxlan::LearnedHost& out, std::string& error) {
  using R = Shoal::Vxlan::LearnedHost;
  return record<R>(
      n, out, error,
      {field("vtepIp", &R::vtepIpIs), field("lastMoveTime", &R::lastMoveTimeIs), field("flags", &R::flagsIs)});
}

bool readValue(YAML::Node const& n, Mlag::HostEntry& out, std::string& error) {
  using R = Mlag::HostEntry;
  return record<R>(n, out, error,
                   {field("intf", &R::intfIs), field("lastMoveTime", &R::lastMoveTimeIs), field("moves", &R::movesIs),
                    field("entryType", &R::entryTypeIs), field("hostEntryFlag", &R::hostEntryFlagIs)});
}

bool readValue(YAML::Node const& n, MlagP2p::HostEntry& out, std::string& error) {
  using R = MlagP2p::HostEntry;
  return record<R>(n, out, error,
                   {field("intf", &R::intfIs), field("lastMoveTime", &R::lastMoveTimeIs), field("moves", &R::movesIs),
                    field("entryType", &R::entryTypeIs)});
}

bool readValue(YAML::Node const& n, VxlanController::MacVtepV2& out, std::string& error) {
  using R = VxlanController::MacVtepV2;
  return record<R>(
      n, out, error,
      {field("vtepIp", &R::vtepIpIs), field("seqNum", &R::seqNumIs), field("preference", &R::preferenceIs)});
}

bool readValue(YAML::Node const& n, Arp::InputConfigEntry& out, std::string& error) {
  using R = Arp::InputConfigEntry;
  return record<R>(n, out, error,
                   {field("ethAddr", &R::ethAddrIs), field("kind", &R::kindIs), field("stateCode", &R::stateCodeIs),
                    field("metric", &R::metricIs), field("generation", &R::generationIs)});
}

bool readValue(YAML::Node const& n, VxlanController::BfdPeerStatusV2& out, std::string& error) {
  using R = VxlanController::BfdPeerStatusV2;
  return record<R>(
      n, out, error,
      {field("label", &R::labelIs), field("status", &R::statusIs), field("remoteStatus", &R::remoteStatusIs)});
}

bool readValue(YAML::Node const& n, Bridging::Flat::VlanConfigFlat& out, std::string& error) {
  using R = Bridging::Flat::VlanConfigFlat;
  return record<R>(n, out, error,
                   {field("configSource", &R::configSourceIs), field("state", &R::stateIs), field("name", &R::nameIs),
                    field("priority", &R::priorityIs), field("timestamp", &R::timestampIs), field("flags", &R::flagsIs),
                    field("owner", &R::ownerIs)});
}

bool readValue(YAML::Node const& n, Arp::ArpEntry& out, std::string& error) {
  using R = Arp::ArpEntry;
  return record<R>(n, out, error, {field("ethAddr", &R::ethAddrIs), field("kind", &R::kindIs)});
}

namespace {

// The parts of "a/b/c"; the count must be one of `counts`.
bool slashParts(YAML::Node const& n, std::initializer_list<std::size_t> counts, char const* example,
                std::vector<std::string>& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  out.clear();
  for (std::size_t from = 0;;) {
    auto slash = s.find('/', from);
    out.push_back(s.substr(from, slash - from));
    if (slash == std::string::npos) break;
    from = slash + 1;
  }
  if (std::find(counts.begin(), counts.end(), out.size()) != counts.end()) return true;
  error = "'" + s + "' is not of the form " + example;
  return false;
}

template <class T>
bool part(std::string const& s, T& out, std::string& error) {
  return readValue(YAML::Node(s), out, error);
}

}  // namespace

bool readValue(YAML::Node const& n, Swix::FString& out, std::string& error) {
  std::string s;
  if (!ValuesImpl::scalar(n, s, error)) return false;
  if (s.size() > Swix::FString::maxLength()) {
    error = "a text of at most " + std::to_string(Swix::FString::maxLength()) + " bytes";
    return false;
  }
  out = Swix::FString(s);
  return true;
}

bool readValue(YAML::Node const& n, Vxlan::VlanIpPair& out, std::string& error) {
  std::vector<std::string> p;
  Lanx::IpGenAddr addr;
  std::uint64_t vlan = 0;
  if (!slashParts(n, {2}, "10.0.0.5/10 (an address and its VLAN)", p, error) || !part(p[0], addr, error)) {
    return false;
  }
  if (!ValuesImpl::number(p[1], 0, Bridging::VlanId::max, vlan)) {
    error = "'" + p[1] + "' is not a VLAN from 0 (none) to 4094";
    return false;
  }
  out = Vxlan::VlanIpPair(static_cast<std::uint16_t>(vlan), addr);
  return true;
}

bool readValue(YAML::Node const& n, Mlag::VtiVtep& out, std::string& error) {
  std::vector<std::string> p;
  Lanx::IntfId intf;
  Lanx::IpGenAddr vtep;
  if (!slashParts(n, {2}, "Vxlan1/10.0.0.2 (a VTI and a VTEP)", p, error) || !part(p[0], intf, error) ||
      !part(p[1], vtep, error)) {
    return false;
  }
  out = Mlag::VtiVtep(intf, vtep);
  return true;
}

bool readValue(YAML::Node const& n, Bfd::Peer& out, std::string& error) {
  std::vector<std::string> p;
  Lanx::IpGenAddr ip;
  Lanx::IntfId intf;
  std::uint32_t type = 0;
  if (!slashParts(n, {3, 6}, "10.0.0.2/Vxlan1/3 (address, interface, type[, VRF, session id, source])", p, error) ||
      !part(p[0], ip, error) || !part(p[1], intf, error) || !part(p[2], type, error)) {
    return false;
  }
  std::uint64_t sessionId = 0;
  Lanx::IpGenAddr srcIp;
  bool const full = p.size() == 6;
  if (full && (!part(p[4], sessionId, error) || !part(p[5], srcIp, error))) return false;
  out = Bfd::Peer(full ? Brix::String(p[3]) : Brix::String(), intf, sessionId, type, ip, srcIp);
  return true;
}

namespace {

// "name=value,name=value" into a map, every name given once and among `names`.
bool destFields(std::string_view body, std::initializer_list<std::string_view> names,
                std::map<std::string, std::string, std::less<>>& out, std::string& error) {
  while (!body.empty()) {
    auto comma = body.find(',');
    std::string_view item = body.substr(0, comma);
    auto eq = item.find('=');
    std::string_view name = item.substr(0, eq);
    if (eq == std::string_view::npos || std::find(names.begin(), names.end(), name) == names.end() ||
        !out.emplace(name, item.substr(eq + 1)).second) {
      error = "'" + std::string(item) + "' is not one of its fields given once";
      return false;
    }
    body = comma == std::string_view::npos ? std::string_view() : body.substr(comma + 1);
  }
  for (auto name : names) {
    if (!out.contains(name)) {
      error = "field '" + std::string(name) + "' is missing";
      return false;
    }
  }
  return true;
}

bool hexId(std::string const& s, L2Rib::DestId& out) {
  std::uint64_t v = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v, 16);
  if (s.empty() || ec != std::errc() || end != s.data() + s.size()) return false;
  out = L2Rib::DestId(v);
  return true;
}

template <class T>
bool fieldAs(std::map<std::string, std::string, std::less<>> const& f, std::string_view name, T& out,
             std::string& error) {
  if constexpr (std::is_integral_v<T>) {
    std::uint64_t v = 0;
    if (!ValuesImpl::number(f.find(name)->second, 0, std::numeric_limits<T>::max(), v)) {
      error = "'" + std::string(name) + "' is not a number that fits";
      return false;
    }
    out = static_cast<T>(v);
    return true;
  } else {
    return readValue(YAML::Node(f.find(name)->second), out, error);
  }
}

}  // namespace

bool readValue(YAML::Node const& n, L2Rib::Dest& out, std::string& error) {
  std::string raw;
  if (!ValuesImpl::scalar(n, raw, error)) return false;
  std::string s;
  std::copy_if(raw.begin(), raw.end(), std::back_inserter(s), [](char c) { return c != ' '; });
  auto open = s.find('(');
  if (open == std::string::npos) {
    Lanx::IpGenAddr addr;
    if (!readValue(YAML::Node(s), addr, error)) return false;
    out = L2Rib::canonicalVxlanDest(addr);
    return true;
  }
  std::string const kind = s.substr(0, open);
  auto fail = [&](std::string const& why) {
    error = "destination '" + raw + "': " + why;
    return false;
  };
  if (s.back() != ')') return fail("expected its fields between '(' and ')'");
  std::string_view const body = std::string_view(s).substr(open + 1, s.size() - open - 2);
  std::map<std::string, std::string, std::less<>> f;
  L2Rib::DestId id;
  auto idOk = [&] { return hexId(f["id"], id) || fail("the id is a hexadecimal number"); };
  if (kind == "vxlan") {
    Lanx::IntfId intf;
    std::uint32_t vni = 0;
    Lanx::IpGenAddr addr;
    if (!destFields(body, {"id", "intf", "vni", "vtepAddr"}, f, error) || !idOk() || !fieldAs(f, "vni", vni, error) ||
        !fieldAs(f, "vtepAddr", addr, error)) {
      return fail(error);
    }
    if (!f["intf"].empty()) intf = Lanx::IntfId(f["intf"]);
    out = L2Rib::Dest(id, L2Rib::DestDataVxlan(intf, vni, addr));
  } else if (kind == "intf") {
    Lanx::IntfId intf;
    if (!destFields(body, {"id", "intf"}, f, error) || !idOk() || !fieldAs(f, "intf", intf, error)) return fail(error);
    out = L2Rib::Dest(id, L2Rib::DestDataIntf(intf));
  } else if (kind == "mpls") {
    std::uint32_t label = 0;
    Lanx::IpGenAddr nexthop;
    if (!destFields(body, {"id", "label", "nexthop"}, f, error) || !idOk() || !fieldAs(f, "label", label, error) ||
        !fieldAs(f, "nexthop", nexthop, error)) {
      return fail(error);
    }
    out = L2Rib::Dest(id, L2Rib::DestDataMpls(label, nexthop));
  } else if (kind == "tunnel") {
    std::uint64_t tunnelId = 0;
    if (!destFields(body, {"id", "tunnelId"}, f, error) || !idOk() || !fieldAs(f, "tunnelId", tunnelId, error)) {
      return fail(error);
    }
    out = L2Rib::Dest(id, L2Rib::DestDataTunnel(tunnelId));
  } else if (kind == "none") {
    if (!destFields(body, {"id"}, f, error) || !idOk()) return fail(error);
    out = L2Rib::Dest(id);
  } else {
    return fail("'" + kind + "' is not a kind of destination (vxlan, intf, mpls, tunnel, none)");
  }
  return true;
}

}  // namespace Sim
