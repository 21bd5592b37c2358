#include "VexL3FecVersionSm.h"

#include "GantAssert.h"
#include "GantException.h"
#include "GantTrace.h"
#include "HulAdjSm.h"
#include "HulVrfRootSm.h"

#include <cstdio>

namespace VexL3Unicast {

static Gant::TraceHandle traceHandle( "VexL3FecVersionSm" );

class FecVersionSm::GantPortVifStatus : public VexVif::PortVifStatus::Notifiee {
 public:
   explicit GantPortVifStatus( FecVersionSm * sm ) : Notifiee( sm, sm->portVifStatus() ), sm_( sm ) {}
   void onIntfToPortVifMap( const Kynet::IntfId & intfId ) override { sm_->handlePortVif( intfId ); }
   // Also FECs on interfaces whose virtual interface went meanwhile.
   void onRenotify() override {
      for ( const auto & intfId : sm_->routeDb()->intfToFecSetKeys() ) sm_->handlePortVif( intfId );
   }

 private:
   FecVersionSm * sm_;
};

class FecVersionSm::GantMcastVifStatus : public VexMcast::McastVifStatus::Notifiee {
 public:
   explicit GantMcastVifStatus( FecVersionSm * sm ) : Notifiee( sm, sm->mcastVifStatus() ), sm_( sm ) {}
   void onVlanFloodsetEgressVif( const Bridging::VlanId & vlanId ) override { sm_->handleFloodVif( vlanId ); }
   void onRenotify() override {
      for ( const auto & vlanId : sm_->routeDb()->vlanToFloodingFecSetKeys() ) sm_->handleFloodVif( vlanId );
   }

 private:
   FecVersionSm * sm_;
};

class FecVersionSm::GantVlanStatusDir : public Bridging::VlanStatusDir::Notifiee {
 public:
   explicit GantVlanStatusDir( FecVersionSm * sm ) : Notifiee( sm, sm->vlanStatusDir() ), sm_( sm ) {}
   void onVlanStatus( const Bridging::VlanId & vlanId ) override { sm_->handleVlanStatus( vlanId ); }
   void onRenotify() override { sm_->handleVlanStatus(); }

 private:
   FecVersionSm * sm_;
};

class FecVersionSm::GantVexcsd : public Vex::VexCommonSmData::Notifiee {
 public:
   explicit GantVexcsd( FecVersionSm * sm ) : Notifiee( sm, sm->vexcsd() ), sm_( sm ) {}
   void onL3Intf( const Kynet::IntfId & intfId ) override { sm_->handleL3Intf( intfId ); }
   // Also interfaces that went meanwhile have FECs.
   void onRenotify() override {
      for ( const auto & intfId : sm_->routeDb()->intfToFecSetKeys() ) sm_->handleL3Intf( intfId );
   }

 private:
   FecVersionSm * sm_;
};

class FecVersionSm::GantVlanStatus::Reactor : public Bridging::VlanStatus::Notifiee {
 public:
   Reactor( GantVlanStatus * watcher, const Gant::Ptr< const Bridging::VlanStatus > & status ) :
        Notifiee( watcher, status ), watcher_( watcher ) {}
   void onVlanPortStatus( const Kynet::IntfId & intfId ) override { watcher_->handleVlanPortStatus( intfId ); }
   void onRenotify() override { watcher_->handleVlanPortStatus(); }

 private:
   GantVlanStatus * watcher_;
};

FecVersionSm::GantVlanStatus::GantVlanStatus( Bridging::VlanId vlanId ) : vlanId_( vlanId ) {}

FecVersionSm::GantVlanStatus::~GantVlanStatus() = default;

void FecVersionSm::GantVlanStatus::notifierIs( const Gant::Ptr< const Bridging::VlanStatus > & status ) {
   if ( reactor_ && reactor_->notifier() == status ) return;
   reactor_ = std::make_unique< Reactor >( this, status );
   handleVlanPortStatus();
}

void FecVersionSm::GantVlanStatus::handleVlanPortStatus() const {
   for ( const auto & intfId : reactor_->notifier()->vlanPortStatusKeys() ) handleVlanPortStatus( intfId );
}

void FecVersionSm::GantVlanStatus::handleVlanPortStatus( Kynet::IntfId intfId ) const {
   const auto & status = reactor_->notifier()->vlanPortStatus( intfId );
   GANT_TRACE( 4, "FecVersionSm::handleVlanPortStatus", " intf ", intfId, " vlan ", vlanId(), " new status ",
               status.allowedTrafficDirection(), " ", status.tagOnEgress() );
}

FecVersionSm::FecVersionSm( Gant::String name, const Gant::Ptr< RouteDb > & routeDb,
                            const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
                            const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
                            const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                            const Gant::Ptr< Hul::L3Status > & hulL3Status,
                            const Gant::Ptr< Hul::VrfRootSm > & hulVrfRootSm,
                            const Gant::Ptr< Vex::VexCommonSmData > & vexcsd ) :
     name_( std::move( name ) ),
     routeDb_( routeDb ), portVifStatus_( portVifStatus ), mcastVifStatus_( mcastVifStatus ),
     vlanStatusDir_( vlanStatusDir ), hulL3Status_( hulL3Status ), hulVrfRootSm_( hulVrfRootSm ), vexcsd_( vexcsd ) {
   if ( portVifStatus ) gantPortVifStatus_ = std::make_unique< GantPortVifStatus >( this );
   if ( mcastVifStatus ) gantMcastVifStatus_ = std::make_unique< GantMcastVifStatus >( this );
   if ( vlanStatusDir ) gantVlanStatusDir_ = std::make_unique< GantVlanStatusDir >( this );
   if ( vexcsd ) gantVexcsd_ = std::make_unique< GantVexcsd >( this );
   handleVlanStatus();
}

FecVersionSm::~FecVersionSm() = default;

void FecVersionSm::handlePortVif( Kynet::IntfId intfId ) {
   GANT_TRACE( 4, "FecVersionSm::handlePortVif ", intfId, " new vif ", portVifStatus()->intfToPortVifMap( intfId ) );
   numUpdatePortVifInc( 1 );
   processFecForIntf( intfId );
}

void FecVersionSm::handleL3Intf( Kynet::IntfId intfId ) { processFecForIntf( intfId ); }

void FecVersionSm::processFecForIntf( Kynet::IntfId intfId ) {
   const auto fecSet = routeDb()->intfToFecSet( intfId );
   if ( !fecSet ) {
      GANT_TRACE( 4, "FecVersionSm::processFecForIntf", " skipping - intfId not intfToFecSet ", intfId );
      return;
   }
   schedulePrefixWalk( *fecSet );
}

void FecVersionSm::handleFloodVif( Bridging::VlanId vlanId ) {
   const auto fecSet = routeDb()->vlanToFloodingFecSet( vlanId );
   if ( !fecSet ) {
      GANT_TRACE( 4, "FecVersionSm::handleFloodVif", " skipping - vlanId not vlanToFloodingFecSet ", vlanId );
      return;
   }
   numUpdateFloodVifInc( 1 );
   schedulePrefixWalk( *fecSet );
}

// One run for each FEC: numScheduledPrefixWalk counts FECs.
void FecVersionSm::schedulePrefixWalk( const FecSet & fecSet ) {
   for ( const auto & fec : fecSet.fecIterator() ) {
      pendingFecSetIs( fec, true );
      schedulePrefixWalk();
   }
}

void FecVersionSm::schedulePrefixWalk() {
   for ( const auto & fec : pendingFecSetIterator() ) {
      const auto l2AdjKey = routeDb()->fecToAdjIdx( fec->key() );
      const auto & adj = hulL3Status()->l2AdjList( l2AdjKey );
      if ( !adj ) continue;
      fec->versionInc( FecVersion( 1 ) );
      for ( const auto & [ fibFecId, adjEntry ] : adj->adjEntryIterator() ) {
         GANT_ASSERT( adjEntry, " adj ", l2AdjKey.index(), " fibFecId ", fibFecId );
         const auto adjSm = hulVrfRootSm()->hulAdjSm();
         if ( adjSm ) adjSm->schedulePrefixWalk( adjEntry );
      }
   }
   numScheduledPrefixWalkInc( 1 );
   GANT_TRACE( 4, "FecVersionSm::schedulePrefixWalk", " done review clock ", numScheduledPrefixWalk() );
   pendingFecSetDelAll();
}

const Gant::Ptr< FecVersionSm::GantVlanStatus > & FecVersionSm::vlanStatusIs(
     const Gant::Ptr< const Bridging::VlanStatus > & status ) {
   if ( !status )
      Gant::throwRangeException(
           "null _vlanStatus parameter to mutator for VexL3Unicast::FecVersionSm::vlanStatus not allowed\"" );
   auto & watcher = vlanStatus_[ status->vlanId() ];
   if ( !watcher || watcher->zombie() ) watcher = Gant::make< GantVlanStatus >( status->vlanId() );
   watcher->notifierIs( status );
   return watcher;
}

void FecVersionSm::handleVlanStatus( Bridging::VlanId vlanId ) {
   if ( const auto & status = vlanStatusDir()->vlanStatus( vlanId ) )
      vlanStatusIs( status );
   else
      vlanStatusDel( vlanId );
}

void FecVersionSm::handleVlanStatus() {
   if ( !vlanStatusDir() ) return;
   for ( const auto & vlanId : vlanStatusDir()->vlanStatusKeys() ) handleVlanStatus( vlanId );
   for ( const auto & vlanId : vlanStatusKeys() )
      if ( !vlanStatusDir()->vlanStatusHas( vlanId ) ) vlanStatusDel( vlanId );
}

void FecVersionSm::showSoftwareSummary( unsigned fd ) const {
   const auto out = static_cast< int >( fd );
   const auto number = []( U64 n ) { return static_cast< unsigned long long >( n ); };
   dprintf( out, "\nFEC Version Summary\n" );
   dprintf( out, " updates port vif: %llu\n, flood vif: %llu,", number( numUpdatePortVif() ),
            number( numUpdateFloodVif() ) );
   dprintf( out, "         vlan port status: %llu\n", number( numUpdateVlanPortStatus() ) );
}

Gant::Ptr< FecVersionSm > fecVersionSmFactory( Gant::String name, const Gant::Ptr< RouteDb > & routeDb,
                                               const Gant::Ptr< const VexVif::PortVifStatus > & portVifStatus,
                                               const Gant::Ptr< const VexMcast::McastVifStatus > & mcastVifStatus,
                                               const Gant::Ptr< const Bridging::VlanStatusDir > & vlanStatusDir,
                                               const Gant::Ptr< Hul::L3Status > & hulL3Status,
                                               const Gant::Ptr< Hul::VrfRootSm > & hulVrfRootSm,
                                               const Gant::Ptr< Vex::VexCommonSmData > & vexcsd ) {
   return Gant::make< FecVersionSm >( std::move( name ), routeDb, portVifStatus, mcastVifStatus, vlanStatusDir,
                                      hulL3Status, hulVrfRootSm, vexcsd );
}

} // namespace VexL3Unicast
