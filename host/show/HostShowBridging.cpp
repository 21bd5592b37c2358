// show vrrp: the virtual routers' MACs, and whether their interfaces answer to them. show vlans. show nat.

#include "HostAgentView.h"
#include "HostNatText.h"
#include "HostShows.h"
#include "StateBridging.h"
#include "StateFhrp.h"
#include "StateIpNat.h"

namespace Host {

namespace {

using Routing::Fhrp::VirtualRouterMac;

// Why the interface does not answer to the MAC.
std::string whyNot( const AgentView & session, const VirtualRouterMac & key ) {
   const auto & l2Intf = session.vexcsd()->l2Intf( key.intfId() );
   if ( !l2Intf ) return "the interface is not there";
   if ( l2Intf->isTunnelType() ) return "the interface is a tunnel";
   return l2Intf->virtualMacAddrHas( key.mac() ) ? "" : "the interface was not told";
}

std::unique_ptr< Answer > vrrp( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      const auto & mounts = session.agent()->fhrpMounts();
      if ( !mounts || !mounts->virtualMacStatusIn() ) return;
      for ( const auto & [ key, answers ] : mounts->virtualMacStatusIn()->vrrpVirtualMacIterator() ) {
         const auto reason = answers ? whyNot( session, key ) : "another router is the master";
         Json row{ { "interface", key.intfId().stringValue() },
                   { "mac", key.mac().stringValue() },
                   { "programmed", reason.empty() } };
         if ( !reason.empty() ) row[ "reason" ] = reason;
         out.row( row );
      }
      if ( const auto & status = mounts->fhrpHwStatus() ) out.endMember( "maxGroups", status->vrrpSupportedMaxNum() );
   } );
}

std::unique_ptr< Answer > vlans( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      for ( const auto & [ vlanId, config ] : session.agent()->bridgingConfig()->vlanConfigIterator() ) {
         auto members = Json::array();
         bool routed = false;
         for ( const auto & intfId : config->intfIterator() ) {
            const bool router = intfId.type() == Kynet::IntfType::cpu_;
            routed = routed || router;
            if ( !router ) members.push_back( intfId.stringValue() );
         }
         out.row( { { "vlan", vlanId.value() }, { "members", std::move( members ) }, { "router", routed } } );
      }
   } );
}

void staticRows( const AgentView & session, Output & out ) {
   const auto & told = session.agent()->natStatus();
   const auto & taken = session.agent()->natHwStatus();
   for ( const auto & [ key, connection ] : told->staticConnectionIterator() ) {
      const auto hw = taken->staticConnection( key );
      Json row{ { "kind", "static" },
                { "interface", key.intfId().stringValue() },
                { "target", key.target().stringValue() },
                { "original", textOf( key.original() ) },
                { "translated", textOf( connection.translated() ) } };
      if ( connection.vlan() != 0 ) row[ "vlan" ] = connection.vlan();
      if ( key.protocol() != 0 ) row[ "protocol" ] = key.protocol();
      if ( !key.acl().empty() ) row[ "acl" ] = key.acl();
      row[ "accepted" ] = hw && hw->accepted();
      row[ "translating" ] = false;
      row[ "packets" ] = hw ? hw->packets() : 0;
      out.row( row );
   }
}

void dynamicRows( const AgentView & session, Output & out ) {
   const auto & taken = session.agent()->natHwStatus();
   for ( const auto & [ key, rule ] : session.agent()->natStatus()->dynamicRuleIterator() )
      out.row( { { "kind", "dynamic" },
                 { "vlan", key.vlan() },
                 { "target", rule.target().stringValue() },
                 { "acl", key.acl() },
                 { "priority", rule.priority() },
                 { "accepted", taken->dynamicRule( key ) },
                 { "translating", false } } );
}

std::unique_ptr< Answer > nat( const Asked & asked ) {
   const AgentView session( asked.daemon );
   return atOnce( [ session ]( Output & out ) {
      // An agent whose host has mounted no translations knows of none.
      if ( session.agent()->natStatus() && session.agent()->natHwStatus() ) {
         staticRows( session, out );
         dynamicRows( session, out );
      }
      // The agent's helper accepts every rule, and the data plane has no module that translates.
      out.endMember( "translation", "none" );
   } );
}

} // namespace

Commands bridgingShows() { return { { "show vrrp", {}, vrrp }, { "show vlans", {}, vlans }, { "show nat", {}, nat } }; }

} // namespace Host
