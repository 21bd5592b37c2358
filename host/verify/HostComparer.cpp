#include "HostComparer.h"

#include "vex/next_hop_command.h"
#include "VexDescribe.h"

#include <google/protobuf/message.h>
#include <google/protobuf/util/message_differencer.h>

namespace Host {

using namespace VexL3Unicast;

void Findings::write( Output & out ) const {
   for ( const auto & difference : kept_ )
      out.row( { { "difference", difference.kind },
                 { "module", difference.module },
                 { "object", difference.object },
                 { "agent", difference.agent },
                 { "dataPlane", difference.dataPlane } } );
   out.endMember( "differences", count_ );
   out.endMember( "compared", compared_ );
   out.endMember( "notCompared", notCompared_ );
}

namespace {

// As the agent writes them: what has no MAC, or no interface, is punted or dropped.
S32 commandOf( const NextHopKey & key ) {
   using namespace vex::next_hop_command;
   if ( key.pktCmd() == NextHopPktCmd::pktCmdForward_ ) return kForward;
   return key.pktCmd() == NextHopPktCmd::pktCmdDrop_ ? kDrop : kPunt;
}

} // namespace

Comparison::Comparison( const AgentView & session, size_t mostFindings ) :
     session( session ), findings( mostFindings ), modules( session.modules() ) {
   for ( const auto & [ intfId, l2Intf ] : session.vexcsd()->l2IntfIterator() )
      if ( l2Intf->ingressClassify() ) classified[ l2Intf->ingressClassify().get() ] = intfId;
   const auto routeDb = session.routeDb();
   for ( const auto & [ fecKey, version ] : routeDb->fecForLpmIterator() ) {
      const auto & fec = routeDb->fec( fecKey );
      if ( !fec ) continue;
      for ( U32 slot = 0; slot < fec->info().numberOfUniqueNextHops(); ++slot ) {
         const auto & key = fec->info().nextHop( slot );
         nexthops[ key.intf() ].insert_or_assign( key.nhLocalIndex(),
                                                  NexthopIntent{ commandOf( key ), key.ethAddr(), fecKey } );
      }
   }
}

void Comparer::created( const google::protobuf::Any & arg ) {
   const auto * const meant = module_.initArgs();
   if ( meant == nullptr ) {
      if ( !arg.value().empty() ) findings().different( name(), "arguments", "none", arg.type_url() );
      return;
   }
   const std::unique_ptr< google::protobuf::Message > held( meant->New() );
   if ( !arg.UnpackTo( held.get() ) )
      findings().different( name(), "arguments", meant->GetTypeName(), arg.type_url() );
   else if ( !google::protobuf::util::MessageDifferencer::Equals( *meant, *held ) )
      findings().different( name(), "arguments", Vex::describe( *meant ), Vex::describe( *held ) );
}

void Comparer::command( const std::string & cmd, const std::string & type, const std::string & arg ) {
   if ( cmd == "setCounterIds" ) {
      const auto message = Vex::messageOf( type, arg );
      if ( !message ) return findings().notCompared( name() + " " + cmd );
      std::vector< const google::protobuf::FieldDescriptor * > fields;
      message->GetReflection()->ListFields( *message, &fields );
      for ( const auto * field : fields ) counters_.insert( message->GetReflection()->GetUInt32( *message, field ) );
      counters_.erase( Vex::CounterId().value() );
   } else if ( !told( cmd, arg ) ) {
      findings().notCompared( std::string( Vex::VexModule::name( module_.moduleClass() ) ) + " " + cmd );
   }
}

void Comparer::finishCounters() {
   std::set< U32 > meant;
   for ( const auto id : module_.inUseCounterIterator() ) meant.insert( id.value() );
   findings().compared( "counters", meant.size() );
   findings().compare( name(), "counters", Json( meant ).dump(), Json( counters_ ).dump() );
}

Kynet::EthAddr macOf( const std::string & bytes ) {
   Kynet::EthAddr::Bytes mac{};
   if ( bytes.size() == mac.size() ) std::copy( bytes.begin(), bytes.end(), mac.begin() );
   return Kynet::EthAddr( mac );
}

std::unique_ptr< Comparer > comparerOf( Comparison & comparison, Vex::Module & module ) {
   using Vex::VexModule;
   static const std::map< VexModule::ModuleClass, MakeComparer > makers{
        { VexModule::FibIpv4, fibComparer },           { VexModule::NextHop, nexthopComparer },
        { VexModule::NhResolve, resolveComparer },     { VexModule::IpInput, ipInputComparer },
        { VexModule::IpOutput, ipOutputComparer },     { VexModule::EtherClassify, classifyComparer },
        { VexModule::KyAclDb, ruleTablesComparer },    { VexModule::KyAcl, accessListComparer },
        { VexModule::PolicyQos, policyComparer },      { VexModule::Trap, trapComparer },
        { VexModule::IpsecManagement, ipsecComparer }, { VexModule::PortRxCp, portComparer },
        { VexModule::PortRx, portComparer },           { VexModule::TunnelIngress, tunnelComparer },
   };
   const auto at = makers.find( module.moduleClass() );
   return at == makers.end() ? std::make_unique< Comparer >( comparison, module ) : at->second( comparison, module );
}

} // namespace Host
