#include "GantAssert.h"
#include "GantTrace.h"
#include "vex/next_hop_command.h"
#include "VexL3Sm.h"

namespace VexL3Unicast {

namespace next_hop_command = vex::next_hop_command;

static Gant::TraceHandle traceHandle( "VexL3Sm" );

FecUpdateReturnCode VexL3Sm::programLpmFec( const Gant::Ptr< Fec > & fec ) {
   const bool nhmWrite = writeToNhModules( fec );
   const bool nhrWrite = writeToNhResolveModules( fec );
   // Last, and in any case: every entry that can be written is there before the FIB refers to it.
   const auto coll = nhColl( l3Modules(), fec );
   getFibModule()->addFec( fec->key(), coll );
   if ( nhmWrite && nhrWrite ) return FecUpdateReturnCode::success_;
   GANT_TRACE( 4, "VexL3Sm::programLpmFec", " Setting partialSuccess_ ", " fec ", fec, " nhmWrite ", nhmWrite,
               " nhrWrite ", nhrWrite );
   return FecUpdateReturnCode::partialSuccess_;
}

bool VexL3Sm::writeToNhModules( const Gant::Ptr< Fec > & fec ) {
   bool written = true;
   const auto & info = fec->info();
   for ( U32 i = 0; i < info.numberOfUniqueNextHops(); ++i ) {
      const auto & nhk = info.nextHop( i );
      const auto & nhm = l3Modules()->nextHopMod( nhk.intf() );
      if ( !nhm ) {
         GANT_TRACE( 4, "VexL3Sm::writeToNhModules ", "NextHop Module Not found", " for ", nhk );
         written = false;
         continue;
      }
      nhm->writeNH( nhk, getNextHopInfo( nhk ) );
   }
   return written;
}

bool VexL3Sm::writeToNhResolveModules( const Gant::Ptr< Fec > & fec ) {
   bool written = true;
   const auto & info = fec->info();
   for ( U32 i = 0; i < info.numberOfUniqueNextHops(); ++i ) {
      const auto & nhk = info.nextHop( i );
      if ( !nhk.tunnelIntf() ) continue;
      const auto & nhr = l3Modules()->nhResolve( nhk.tunnelIntf() );
      if ( !nhr ) {
         GANT_TRACE( 4, "VexL3Sm::writeToNhResolveModules ", "NH-Resolve Module Not found for interface ",
                     nhk.tunnelIntf() );
         written = false;
         continue;
      }
      const NhrEntryKey key( fec->key(), i, nhk.intf(), nhk.nhLocalIndex() );
      const U32 nhrIndex = nhr->allocNhrIndex();
      GANT_ASSERT( nhrIndex < 1024, " index ", nhrIndex );
      nhr->nhrEntryIs( key, nhrIndex );
      nhr->addNhResolveEntry( key );
   }
   return written;
}

NexthopInfoColl nhColl( const Gant::Ptr< L3Modules > & l3Modules, const Gant::Ptr< Fec > & fec ) {
   NexthopInfoColl coll;
   const auto & info = fec->info();
   for ( U32 i = 0; i < info.numberOfUniqueNextHops(); ++i ) {
      const auto & nhk = info.nextHop( i );
      if ( !!nhk.tunnelIntf() ) {
         const NhrEntryKey key( fec->key(), i, nhk.intf(), nhk.nhLocalIndex() );
         if ( const auto & nhr = l3Modules->nhResolve( nhk.tunnelIntf() ) )
            coll.newNh( NexthopInfo( nhk.tunnelIntf(), nhr->nhrEntry( key ) ) );
         else
            GANT_TRACE( 4, "NH-Resolve Module Not found for tunnel ", nhk.tunnelIntf(), " NH Local Index ",
                        nhk.nhLocalIndex(), " local interface ", nhk.intf() );
      } else if ( nhk.pktCmd() != NextHopPktCmd::pktCmdDrop_ ) {
         coll.newNh( NexthopInfo( nhk.intf(), nhk.nhLocalIndex() ) );
      }
   }
   return coll;
}

namespace {

// Virtual interfaces of the router's own software, by the reason for which packets go there.
constexpr VexVif::VifId dropVif( 490 ), slowReceiveVif( 499 ), receiveVif( 509 ), arpTrapVif( 510 ), floodVif( 0 );

} // namespace

VexNhEntry VexL3Sm::getNextHopInfo( const NextHopKey & nhk ) const {
   VexNhEntry entry;
   const auto commandIs = [ &entry ]( U32 pktCmd, VexVif::VifId egressVif ) {
      entry.pktCmdIs( pktCmd );
      entry.egressVifIs( egressVif );
   };
   switch ( nhk.pktCmd() ) {
   case NextHopPktCmd::pktCmdForward_: entry.pktCmdIs( next_hop_command::kForward ); break;
   case NextHopPktCmd::pktCmdArpTrap_: commandIs( next_hop_command::kPunt, arpTrapVif ); break;
   case NextHopPktCmd::pktCmdReceive_: commandIs( next_hop_command::kPunt, receiveVif ); break;
   case NextHopPktCmd::pktCmdSlowReceive_: commandIs( next_hop_command::kPunt, slowReceiveVif ); break;
   case NextHopPktCmd::pktCmdTrapVxlanULFlood_: commandIs( next_hop_command::kPunt, floodVif ); break;
   case NextHopPktCmd::pktCmdDrop_: commandIs( next_hop_command::kDrop, dropVif ); break;
   default: GANT_ASSERT( false, " pktCmd ", nhk.pktCmd() );
   }
   entry.nhLocalIndexIs( nhk.nhLocalIndex() );
   entry.propTTLIs( 1 );
   entry.ecmpSizeIs( 1 );
   entry.egressBdIs( nhk.vlanId() );
   entry.macDAIs( nhk.ethAddr() );
   if ( !nhk.intf() ) commandIs( next_hop_command::kDrop, dropVif );
   return entry;
}

void VexL3Sm::deleteLpmFec( const Gant::Ptr< Fec > & fec ) {
   // First, so that the FIB does not refer to entries that are gone.
   getFibModule()->delFec( fec->key() );
   deleteLpmFecInfo( fec->key(), fec->info() );
}

void VexL3Sm::deleteLpmFecInfo( FecKey fecKey, const FecInfo & info ) {
   for ( U32 i = 0; i < info.numberOfUniqueNextHops(); ++i ) {
      const auto & nhk = info.nextHop( i );
      nhIndexManager()->freeNhLocalIndex( nhk.intf(), static_cast< U16 >( nhk.nhLocalIndex() ) );
      if ( const auto & nhm = l3Modules()->nextHopMod( nhk.intf() ) ) nhm->deleteNH( nhk );
      const auto & nhr = l3Modules()->nhResolve( nhk.tunnelIntf() );
      if ( !nhr ) continue;
      const NhrEntryKey key( fecKey, i, nhk.intf(), nhk.nhLocalIndex() );
      if ( !nhr->nhrEntryHas( key ) ) continue;
      nhr->deleteNhResolveEntry( key );
      const U32 index = nhr->nhrEntryDel( key );
      GANT_ASSERT( index != 0, " key ", key );
      nhr->freeNhrIndex( index );
   }
}

void VexL3Sm::updateLpmRoutesForFec( const Gant::Ptr< Fec > & fec ) {
   for ( const auto & vrfPrefix : fec->lpmRouteKeys() ) {
      const auto & vexRouteInfo = routeDb()->route( vrfPrefix );
      GANT_ASSERT( vexRouteInfo, " vrfprefix ", vrfPrefix );
      GANT_ASSERT( vexRouteInfo->fecKey() == fec->key(), " vrfprefix ", vrfPrefix, " fecKey ", fec->key() );
      if ( vrfPrefix.prefix().af() == Kynet::AddressFamily::ipv4_ ) {
         const Hul::VrfAndPrefix v4VrfPrefix( vrfPrefix.vrfId(), vrfPrefix.prefix().v4Prefix() );
         GANT_ASSERT( programLpmRoute4( v4VrfPrefix, fec ), " vrfprefix ", vrfPrefix );
      } else {
         const Hul::VrfAndIp6Prefix v6VrfPrefix( vrfPrefix.vrfId(), vrfPrefix.prefix().v6Prefix() );
         GANT_ASSERT( programLpmRoute6( v6VrfPrefix, fec ), " vrfprefix ", vrfPrefix );
      }
   }
}

} // namespace VexL3Unicast
