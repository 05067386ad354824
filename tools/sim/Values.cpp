#include "Values.h"

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

bool readValue(YAML::Node const& n, Arp::ArpEntry& out, std::string& error) {
  using R = Arp::ArpEntry;
  return record<R>(n, out, error, {field("ethAddr", &R::ethAddrIs), field("kind", &R::kindIs)});
}

}  // namespace Sim
