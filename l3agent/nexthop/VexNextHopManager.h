// The frame of a manager for a flat next-hop table, as a data plane with narrow and wide entries and ECMP groups in
// contiguous blocks would need it, and of its compaction. Here each interface numbers its own next hops, so that
// nothing is allocated or moved: every operation leaves a trace.
#pragma once

#include "GantActivity.h"
#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"

#include <memory>

namespace VexL3Unicast {

// Who uses the table.
GANT_ENUM( FeatureType, U8, ( RoutingUnicastFeature, 0 ), ( RoutingMulticastFeature, 1 ), ( RoutingNatFeature, 2 ),
           ( RoutingVxlanFeature, 3 ), ( RoutingVxlanTunnelFeature, 4 ) )

class NextHopEntry {
   GANT_VALUE( "VexL3Unicast::NextHopEntry", NextHopEntry, ( U16, hwIndex ), ( bool, wide ), ( U64, data ),
               ( U64, wideData ) )
   // At no place of the table yet.
   NextHopEntry( bool wide, U64 data, U64 wideData ) : NextHopEntry( 0, wide, data, wideData ) {}
};

class U64Collection {
 public:
   using Data = Gant::OrderedMap< U16, U64 >;
   GANT_MAP( Data, data )
   friend bool operator==( const U64Collection & a, const U64Collection & b ) { return a.data_ == b.data_; }
   Gant::String strep() const;
};

class ECMPGroup : public Gant::PtrInterface {
 public:
   using NextHops = Gant::HashMap< U16, NextHopEntry >;
   using Features = Gant::HashMap< FeatureType, bool >;
   explicit ECMPGroup( U16 groupId ) : groupId_( groupId ) {}
   const char * fwkType() const override { return "VexL3Unicast::ECMPGroup"; }
   GANT_CONST( U16, groupId )
   GANT_ATTR( bool, wide, false )
   GANT_ATTR( bool, fixedSize, false )
   GANT_ATTR( bool, mcast, false )
   GANT_ATTR( U16, size, 0 )
   GANT_ATTR( U16, hwStartIndex, 0 )
   GANT_MAP( NextHops, nextHops )
   GANT_MAP( Features, featuresSupported )
};

// What a feature wants to hear of its next hops. A feature overrides the operation: the base's ends the process.
class NextHopCallback : public Gant::Entity {
 public:
   NextHopCallback( Gant::Name name, FeatureType fType ) : Entity( std::move( name ) ), fType_( fType ) {}
   const char * fwkType() const override { return "VexL3Unicast::NextHopCallback"; }
   virtual void updateNextHopAction( U16, U16, U16 );
   GANT_CONST( FeatureType, fType )
};

class NextHopManager;

// Compaction of the table. Its timer is never armed.
class DefragManager : public Gant::StateMachine {
 public:
   explicit DefragManager( NextHopManager * nextHopManager );
   ~DefragManager() override;
   const char * fwkType() const override { return "VexL3Unicast::DefragManager"; }
   GANT_CONST( NextHopManager *, nextHopManager )
   GANT_ATTR( bool, scheduleDefragment, false )
   GANT_ATTR( double, defragDelay, 5.0 ) // seconds ahead of a run
   const Gant::Ptr< Gant::Clock > & defragScheduler() const { return defragScheduler_; }
   const Gant::Ptr< Gant::Clock > & defragSchedulerIs( const Gant::Ptr< Gant::Clock > & clock );
   GANT_ATTR( double, defragTime, 0.1 ) // seconds of a run
   GANT_ATTR( U32, defragCount, 0 )
   GANT_ATTR( bool, initialized, false )

   void handleDefragInitialized();
   void handleDefragSchedulerTimeOut();
   void defragment();
   void defragNarrowBlock();
   void defragWideBlock();

 private:
   class GantDefragScheduler;
   Gant::Ptr< Gant::Clock > defragScheduler_;
   std::unique_ptr< GantDefragScheduler > gantDefragScheduler_;
};

class NextHopManager : public Gant::StateMachine {
 public:
   using Entries = Gant::HashMap< U16, bool >;
   using OrderedEntries = Gant::OrderedMap< U16, bool >;
   using EcmpGroups = Gant::OrderedMap< U16, Gant::Ptr< ECMPGroup > >;
   using GroupIds = Gant::HashMap< U16, U16 >; // by startIndex
   using Features = Gant::HashMap< Gant::Name, Gant::Ptr< NextHopCallback > >;
   NextHopManager();
   ~NextHopManager() override;
   const char * fwkType() const override { return "VexL3Unicast::NextHopManager"; }
   GANT_MAP( Entries, allocatedEntries )
   GANT_MAP( OrderedEntries, freeEntries )
   GANT_ATTR( U16, lastNarrowIndex, 0 )
   GANT_ATTR( U16, lastWideIndex, 0 )
   GANT_INSTANTIATING( EcmpGroups, ecmpGroups )
   GANT_MAP( OrderedEntries, freeGroupIds )
   GANT_MAP( GroupIds, hwStartToGroupId )
   GANT_MAP( Features, features )
   GANT_ATTR( U16, simNextHopTableBound, 0 )
   GANT_ATTR( bool, simMode, false )
   GANT_OWNED( DefragManager, defragManager, DefragManager, () )
   GANT_ATTR( bool, initialized, false )

   S32 updateNextHopHWIndex( U16 index, bool allocate );
   S32 findAvailableBlock( U16 length, bool wide );
   S32 findAvailableNarrowBlock( U16 length );
   S32 allocateBlock( U16 start, U16 length );
   S32 freeBlock( U16 start, U16 length );
   void showFreeEntrySummary( U32 socket );
   void setSimulationMode( bool on, U16 bound );
   void handleSimulationMode();
   void initHandler();
};

} // namespace VexL3Unicast
