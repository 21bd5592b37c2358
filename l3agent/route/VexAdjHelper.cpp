#include "VexAdjHelper.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "VexL3Sm.h"

#include <cstdio>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexAdjHelper" );

AdjHelper::AdjHelper( const Gant::Name & name, const Gant::Ptr< RouteDb > & routeDb,
                      const Gant::Ptr< Hul::L3Status > & hulL3Status, const Gant::Ptr< VexL3Sm > & l3Writer ) :
     AdjSmHelper( name ),
     routeDb_( routeDb ), hulL3Status_( hulL3Status ), l3Writer_( l3Writer ) {}

AdjHelper::~AdjHelper() = default;

Hul::AdjUpdateStatus AdjHelper::createAdj( const AdjPtr & adj ) {
   const auto & l2AdjKey = adj->key();
   if ( const auto known = routeDb()->adjIdxToFec( l2AdjKey ); known != FecKey::null() ) {
      GANT_TRACE( 4, "AdjHelper::createAdj", " fecKey found, calling updateAdj ", " fecKey ", known, " ", l2AdjKey );
      return updateAdj( adj ).updateStatus();
   }
   GANT_TRACE( 4, "AdjHelper::createAdj", " fecKey not found, not calling updateAdj ", l2AdjKey );
   numCreateAdjInc();
   const auto fecKey = routeDb()->allocateFecKey();
   GANT_ASSERT( fecKey != FecKey::null(), " l2AdjKey ", l2AdjKey );
   FecInfo fecInfo;
   createFecInfo( this, adj, fecInfo, hulL3Status()->hulL3IntfTable() );
   const auto fec = routeDb()->fecIs( fecKey );
   fec->infoIs( std::move( fecInfo ) );
   fec->versionIs( FecVersion( 1 ) );
   routeDb()->adjIdxToFecIs( l2AdjKey, fecKey );
   routeDb()->fecToAdjIdxIs( fecKey, l2AdjKey );
   updateFecSets( routeDb(), fec, true );
   const auto ret = l3Writer()->addFecForLpm( fec );
   if ( ret != FecUpdateReturnCode::fail_ ) return Hul::AdjUpdateStatus::adjUpdateSucceeded_;
   deleteAdj( adj );
   return Hul::AdjUpdateStatus::adjUpdateFailed_;
}

Hul::AdjUpdateReturnType AdjHelper::updateAdj( const AdjPtr & adj ) {
   using Hul::AdjUpdateReturnType;
   using Hul::AdjUpdateStatus;
   numUpdateAdjInc();
   const auto fecKey = routeDb()->adjIdxToFec( adj->key() );
   if ( fecKey == FecKey::null() ) {
      GANT_TRACE( 1, "AdjHelper::updateAdj", " failed to find fecKey ", adj->key() );
      return AdjUpdateReturnType( AdjUpdateStatus::adjUpdateFailed_, true );
   }
   const auto & fec = routeDb()->fec( fecKey );
   GANT_ASSERT( fec, " fecKey ", fecKey );
   const bool wasEcmp = fec->isEcmp();
   // The new next hops get their indexes while the old ones still hold theirs.
   FecInfo newInfo;
   createFecInfo( this, adj, newInfo, hulL3Status()->hulL3IntfTable() );
   updateFecSets( routeDb(), fec, false );
   const auto oldInfo = fec->infoExchange( std::move( newInfo ) );
   fec->versionInc( FecVersion( 1 ) );
   updateFecSets( routeDb(), fec, true );
   GANT_TRACE( 4, "AdjHelper::updateAdj ", fec, " was ecmp ", wasEcmp, " is ecmp ", fec->isEcmp() );
   const auto ret = l3Writer()->addFecForLpm( fec );
   // Last, and in any case.
   l3Writer()->deleteLpmFecInfo( fecKey, oldInfo );
   switch ( ret ) {
   case FecUpdateReturnCode::fail_: return AdjUpdateReturnType( AdjUpdateStatus::adjUpdateFailed_, true );
   case FecUpdateReturnCode::partialSuccess_: return AdjUpdateReturnType( AdjUpdateStatus::adjUpdateSucceeded_, true );
   case FecUpdateReturnCode::success_: break;
   }
   return AdjUpdateReturnType( AdjUpdateStatus::adjUpdateSucceeded_, false );
}

void AdjHelper::deleteAdj( const AdjPtr & adj ) {
   numDeleteAdjInc();
   const auto & l2AdjKey = adj->key();
   const auto fecKey = routeDb()->adjIdxToFec( l2AdjKey );
   if ( fecKey == FecKey::null() ) {
      GANT_TRACE( 1, "AdjHelper::deleteAdj", " already deleted ", l2AdjKey );
      return;
   }
   const auto fec = routeDb()->fec( fecKey );
   GANT_ASSERT( fec, " fecKey ", fecKey );
   GANT_ASSERT( fec->lpmRoutes() == 0, " fecKey ", fecKey, " routes ", fec->lpmRoutes() );
   fec->versionInc( FecVersion( 1 ) );
   updateFecSets( routeDb(), fec, false );
   l3Writer()->removeFecForLpm( fec );
   routeDb()->unusedFecKeyIs( fecKey, true );
   routeDb()->fecDel( fecKey );
   routeDb()->adjIdxToFecDel( l2AdjKey );
   routeDb()->fecToAdjIdxDel( fecKey );
}

void AdjHelper::verifyAdj( const AdjPtr & adj ) {
   const auto & l2AdjKey = adj->key();
   const auto fecKey = routeDb()->adjIdxToFec( l2AdjKey );
   const auto & fec = routeDb()->fec( fecKey );
   GANT_ASSERT( fec, " fecKey ", fecKey, " l2AdjKey ", l2AdjKey );
   GANT_ASSERT( routeDb()->fecToAdjIdxHas( fecKey ), " fecKey ", fecKey, " l2AdjKey ", l2AdjKey );
   GANT_ASSERT( routeDb()->fecToAdjIdx( fecKey ) == l2AdjKey, " fecKey ", fecKey, " l2AdjKey ", l2AdjKey );
}

Pbr::NexthopIndex AdjHelper::getNexthopIndexForAdj( const AdjPtr & adj ) const {
   const auto fecKey = routeDb()->adjIdxToFec( adj->key() );
   if ( fecKey == FecKey::null() ) {
      GANT_TRACE( 1, "AdjHelper::getNexthopIndexForAdj", " failed to find fecKey for l2AdjKey ", adj->key() );
      return Pbr::NexthopIndex( U64( -1 ) );
   }
   return Pbr::NexthopIndex( fecKey );
}

void AdjHelper::showSoftwareSummary( unsigned fd ) const {
   const auto socket = static_cast< int >( fd );
   dprintf( socket, "'adjCreates':%llu,\n", static_cast< unsigned long long >( numCreateAdj() ) );
   dprintf( socket, "'adjUpdates':%llu,\n", static_cast< unsigned long long >( numUpdateAdj() ) );
   dprintf( socket, "'adjDeletes':%llu\n", static_cast< unsigned long long >( numDeleteAdj() ) );
}

void createFecInfo( const Gant::Ptr< AdjHelper > & adjHelper, const Gant::Ptr< const Hul::L2Adjacency > & adj,
                    FecInfo & fecInfo, const Gant::Ptr< HulL3Intf::Table > & l3IntfTable ) {
   fecInfo.numberOfNextHopsIs( 0 );
   fecInfo.numberOfUniqueNextHopsIs( 0 );
   fecInfo.nextHopDelAll();
   const auto & via = adj->via();
   for ( const auto & [ nextHop, multiplicity ] : via ) {
      if ( multiplicity == 0 ) continue;
      const auto nhk = createNextHopKey( adjHelper, nextHop.type(), nextHop.l2Intf(), nextHop.l3Intf(),
                                         nextHop.staticInterfaceTunnelIntfId(), nextHop.macAddr(),
                                         nextHop.tunnelL2Info(), l3IntfTable );
      const auto slot = fecInfo.numberOfUniqueNextHops();
      fecInfo.nextHopIs( slot, nhk );
      fecInfo.nextHopBitmapIs( slot, via.nextHopBitmap( nextHop ) );
      fecInfo.numberOfUniqueNextHopsInc( 1 );
      fecInfo.numberOfNextHopsInc( multiplicity );
   }
}

namespace {

NextHopKey forwardKey( Kynet::IntfId l2Intf, Kynet::IntfId l3Intf, Kynet::IntfId tunnelIntf,
                       const Kynet::EthAddr & macAddr, U32 index, const Gant::Ptr< Hul::TunnelL2Info > & tunnelL2Info,
                       const Gant::Ptr< HulL3Intf::Table > & l3IntfTable ) {
   // clang-format off
   GANT_ASSERT( ! !l3Intf, " l2Intf ", l2Intf );
   // clang-format on
   const bool vxlan = Kynet::VxlanTunnelIntfId::isVxlanTunnelIntfId( l2Intf );
   const auto l3Id = l3IntfTable->intfIdToL3Id( l3Intf );
   if ( l3Id == 0 || ( vxlan && !tunnelL2Info ) )
      return NextHopKey( NextHopPktCmd::pktCmdDrop(), {}, l3Intf, tunnelIntf, {}, index, {} );
   const Bridging::VlanIdOrNone vlanId( static_cast< U16 >( l3Id ) );
   Hul::VrfAndIpAddr tunnelKey;
   if ( vxlan )
      tunnelKey =
           Hul::VrfAndIpAddr( tunnelL2Info->tunnelKey().vrfId(), tunnelL2Info->tunnelKey().dstIpAddr().v4Addr() );
   return NextHopKey( NextHopPktCmd::pktCmdForward(), vlanId, l3Intf, tunnelIntf, macAddr, index, tunnelKey );
}

} // namespace

NextHopKey createNextHopKey( const Gant::Ptr< AdjHelper > & adjHelper, Hul::NextHopEntryType type, Kynet::IntfId l2Intf,
                             Kynet::IntfId l3Intf, Kynet::IntfId tunnelIntf, const Kynet::EthAddr & macAddr,
                             const Gant::Ptr< Hul::TunnelL2Info > & tunnelL2Info,
                             const Gant::Ptr< HulL3Intf::Table > & l3IntfTable ) {
   // For every kind, also one that will drop.
   const U32 index = adjHelper->l3Writer()->nhIndexManager()->allocNhLocalIndex( l3Intf );
   const auto key = [ & ]( NextHopPktCmd pktCmd ) {
      return NextHopKey( pktCmd, {}, l3Intf, tunnelIntf, {}, index, {} );
   };
   switch ( type ) {
   case Hul::NextHopEntryType::unresolved_: return key( NextHopPktCmd::pktCmdArpTrap_ );
   case Hul::NextHopEntryType::receive_: return key( NextHopPktCmd::pktCmdReceive_ );
   case Hul::NextHopEntryType::forward_:
      return forwardKey( l2Intf, l3Intf, tunnelIntf, macAddr, index, tunnelL2Info, l3IntfTable );
   case Hul::NextHopEntryType::drop_: return key( NextHopPktCmd::pktCmdDrop_ );
   case Hul::NextHopEntryType::slowReceive_:
   case Hul::NextHopEntryType::slowReceiveBroadcast_: return key( NextHopPktCmd::pktCmdSlowReceive_ );
   }
   GANT_ASSERT( false, " type ", type );
   return {};
}

void updateFecSets( const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< Fec > & fec, bool add ) {
   const auto & info = fec->info();
   for ( U32 i = 0; i < info.numberOfUniqueNextHops(); ++i ) {
      const auto & nhk = info.nextHop( i );
      const auto intf = nhk.intf();
      const U16 vlan = nhk.vlanId().value();
      if ( !intf && vlan == 0 ) {
         GANT_TRACE( 6, "updateFecSets", " nhk intfd is not valid and vlanId is 0", " fec ", fec->key() );
         continue;
      }
      if ( !!intf ) routeDb->intfToFecSetFecIs( intf, fec, add );
      if ( vlan == 0 ) {
         GANT_TRACE( 6, "updateFecSets", " nhk vlanId is 0 ", " fec ", fec->key() );
         continue;
      }
      const Bridging::VlanId vlanId( vlan );
      routeDb->vlanToFloodingFecSetFecIs( vlanId, fec, add );
      if ( !intf ) {
         GANT_TRACE( 6, "updateFecSets", " nhk intfd is not valid", " fec ", fec->key() );
         continue;
      }
      routeDb->intfAndVlanToFecSetFecIs( IntfAndVlan( intf, vlanId ), fec, add );
   }
}

} // namespace VexL3Unicast
