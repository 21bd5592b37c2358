#include "DpNextHop.h"

#include "DpEthernet.h"
#include "DpModuleClass.h"
#include "DpWalk.h"
#include "vex/next_hop_command.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {
using NextHopCounter = NextHopCounterIdArg;
constexpr GateId kFramed = 1;
} // namespace

const ModuleClass & NextHop::moduleClass() {
   static const ModuleClass self = describe< NextHop, NextHopInitArg >(
        "NextHop", "last step on an Ethernet interface: takes the TTL's hop and prepends the Ethernet header",
        { .igates = kMaxGates, .ogates = 2 },
        { command< &NextHop::setSrcMacAddr >( "setSrcMacAddr" ), command< &NextHop::writeNh >( "writeNH" ),
          command< &NextHop::deleteNh >( "deleteNH" ), command< &NextHop::showNh >( "showNH" ),
          command< &NextHop::setCounterIds >( "setCounterIds" ) } );
   return self;
}

Outcome NextHop::check( const NextHopInitArg & init ) {
   if ( init.has_max_nexthops() && init.max_nexthops() == 0 ) return refuse( ERANGE, "max_nexthops 0 leaves no room" );
   return requireAtMost( "max_nexthops", init.max_nexthops(), kMaxNexthops );
}

NextHop::NextHop( Identity identity, const NextHopInitArg & init ) :
     Module( std::move( identity ) ), maxNexthops_( init.has_max_nexthops() ? init.max_nexthops() : kDefaultNexthops ),
     intfId_( init.has_intf_id() ? std::optional( init.intf_id() ) : std::nullopt ) {}

const NextHop::Entry * NextHop::entry( std::uint32_t index ) const {
   return index < entries_.size() && entries_[ index ] ? &*entries_[ index ] : nullptr;
}

Outcome NextHop::setSrcMacAddr( const EthernetConfigArg & arg ) {
   if ( auto out = requireFields( { { arg.has_mac_addr(), "mac_addr" } } ); !out.ok() ) return out;
   MacAddr mac;
   if ( auto out = macFrom( "mac_addr", arg.mac_addr(), mac ); !out.ok() ) return out;
   srcMac_ = mac;
   return {};
}

Outcome NextHop::writeNh( const NextHopWriteNHArg & arg ) {
   if ( auto out = requireFields( { { arg.nexthopinfo_size() > 0, "nexthopinfo" } } ); !out.ok() ) return out;
   MacAddr mac;
   for ( const auto & info : arg.nexthopinfo() ) {
      if ( auto out = requireFields(
                { { info.has_nh_index(), "nexthopinfo.nh_index" }, { info.has_pkt_cmd(), "nexthopinfo.pkt_cmd" } } );
           !out.ok() )
         return out;
      if ( auto out = requireAtMost( "nh_index", info.nh_index(), maxNexthops_ - 1 ); !out.ok() ) return out;
      if ( !info.has_mac_da() ) continue;
      if ( auto out = macFrom( "mac_da", info.mac_da(), mac ); !out.ok() ) return out;
   }
   for ( const auto & info : arg.nexthopinfo() ) {
      if ( info.nh_index() >= entries_.size() ) entries_.resize( info.nh_index() + 1 );
      auto & slot = entries_[ info.nh_index() ];
      if ( !slot ) ++used_;
      slot = Entry{ {}, info.pkt_cmd() };
      if ( !info.has_mac_da() ) continue;
      slot->mac.emplace();
      std::ranges::copy( info.mac_da(), slot->mac->bytes.begin() );
   }
   return {};
}

Outcome NextHop::deleteNh( const NextHopWriteNHArg & arg ) {
   if ( auto out = requireFields( { { arg.nexthopinfo_size() > 0, "nexthopinfo" } } ); !out.ok() ) return out;
   for ( const auto & info : arg.nexthopinfo() ) {
      if ( auto out = requireFields( { { info.has_nh_index(), "nexthopinfo.nh_index" } } ); !out.ok() ) return out;
      if ( auto out = requireAtMost( "nh_index", info.nh_index(), maxNexthops_ - 1 ); !out.ok() ) return out;
   }
   for ( const auto & info : arg.nexthopinfo() ) {
      if ( entry( info.nh_index() ) == nullptr ) continue;
      --used_;
      entries_[ info.nh_index() ].reset();
   }
   return {};
}

Outcome NextHop::showNh( const NextHopShowArg & arg, NextHopReadNHResp & resp ) const {
   resp.set_cmd_action( "showNH" );
   if ( arg.has_cli_socket() ) resp.set_cli_socket( arg.cli_socket() );
   if ( intfId_ ) resp.set_intf_id( *intfId_ );
   if ( arg.has_intfname() ) resp.set_intfname( arg.intfname() );
   for ( std::uint32_t index = 0; index < entries_.size(); ++index ) {
      const auto * nh = entry( index );
      if ( nh == nullptr ) continue;
      auto & info = *resp.add_nexthopinfo();
      info.set_nh_index( index );
      info.set_mac_da( nh->mac ? fmt::format( "{}", *nh->mac ) : "" );
      info.set_pkt_cmd( nh->pktCmd );
   }
   return {};
}

Fate NextHop::process( Packet & packet, Context & context ) {
   const auto index = packet.meta.nhIndex;
   const auto * nh = entry( index );
   if ( nh == nullptr )
      return context.drop( counters_[ NextHopCounter::kInvalidNexthopCounterFieldNumber ], "there is no next hop {}",
                           index );
   switch ( nh->pktCmd ) {
   case vex::next_hop_command::kPunt: return context.punt( "next hop {} is to be punted", index );
   case vex::next_hop_command::kForward: return forwardTo( *nh, packet, context );
   case vex::next_hop_command::kDrop: return context.drop( kNoCounter, "next hop {} is a drop entry", index );
   default:
      return context.drop( counters_[ NextHopCounter::kBadNexthopCmdCounterFieldNumber ],
                           "next hop {} has the command {}", index, nh->pktCmd );
   }
}

void NextHop::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

bool NextHop::punts( const Packet & packet ) const {
   const auto * nh = entry( packet.meta.nhIndex );
   if ( nh == nullptr ) return false;
   const bool forwards = nh->pktCmd == vex::next_hop_command::kForward && nh->mac && srcMac_;
   return nh->pktCmd == vex::next_hop_command::kPunt || ( forwards && !hasHop( packet ) );
}

Fate NextHop::forwardTo( const Entry & entry, Packet & packet, Context & context ) {
   if ( !entry.mac )
      return context.drop( counters_[ NextHopCounter::kInvalidNexthopCounterFieldNumber ], "next hop {} has no MAC",
                           packet.meta.nhIndex );
   if ( !srcMac_ )
      return context.drop( counters_[ NextHopCounter::kMismatchRouterMacCounterFieldNumber ], "no source MAC is set" );
   auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   if ( !takeHop( *header, packet ) ) return context.punt( "the TTL expired" );
   context.note( "TTL {}", header->ttl() );
   if ( !prependEthernet( packet, *entry.mac, *srcMac_, kEtherTypeIpv4 ) )
      return context.drop( counters_[ NextHopCounter::kPrependFailCounterFieldNumber ],
                           "no room for an Ethernet header" );
   context.note( "next hop {}, from {} to {}", packet.meta.nhIndex, *srcMac_, *entry.mac );
   return context.forward( kFramed );
}

CommandSource NextHop::commands() const {
   return [ counters = counters_.command(), srcMac = srcMac_, entries = entries_ ]( CommandSink & sink ) {
      counters( sink );
      if ( srcMac ) {
         EthernetConfigArg arg;
         arg.set_mac_addr( bytesOf( *srcMac ) );
         sink.command( "setSrcMacAddr", arg );
      }
      for ( std::uint32_t index = 0; index < entries.size(); ++index ) {
         if ( !entries[ index ] ) continue;
         NextHopWriteNHArg arg;
         auto & info = *arg.add_nexthopinfo();
         info.set_nh_index( index );
         if ( entries[ index ]->mac ) info.set_mac_da( bytesOf( *entries[ index ]->mac ) );
         info.set_pkt_cmd( entries[ index ]->pktCmd );
         sink.command( "writeNH", arg );
      }
   };
}

std::string NextHop::desc() const { return fmt::format( "{} of {} next hops", used_, maxNexthops_ ); }

} // namespace Vexdp
