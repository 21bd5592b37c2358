// Policy maps as the layer hands them to its helpers.
#pragma once

#include "HulAclTypes.h"
#include "StateQos.h"

namespace Hul {

class QosPolicyMapKey {
   GANT_VALUE( "Hul::QosPolicyMapKey", QosPolicyMapKey, ( Gant::String, name ), ( Qos::MapType, type ),
               ( Qos::Direction, direction ), ( Gant::String, group, "Default" ) ) // one group is all that there is
};

class QosClassDataKey {
   GANT_VALUE( "Hul::QosClassDataKey", QosClassDataKey, ( Gant::String, pmapName ), ( Qos::MapType, pmapType ),
               ( Gant::String, cmapName ), ( Qos::MapType, cmapType ) )
};

// The lists by which a class finds its packets in one way.
class QosClassMatchData : public Gant::PtrInterface {
 public:
   using AclDatas = Gant::OrderedMap< AclKey, AclDataPtr >;
   const char * fwkType() const override { return "Hul::QosClassMatchData"; }
   GANT_MAP( AclDatas, aclData )
};

class QosActionData {
   GANT_VALUE( "Hul::QosActionData", QosActionData, ( U32, val ) )
};

class QosClassData : public Gant::PtrInterface {
 public:
   using MatchDatas = Gant::OrderedMap< Qos::ClassMapMatchOption, Gant::Ptr< QosClassMatchData > >;
   using ActionDatas = Gant::OrderedMap< U32, QosActionData >; // by the number of a Qos::ActionType
   explicit QosClassData( QosClassDataKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Hul::QosClassData"; }
   GANT_CONST( QosClassDataKey, key )
   GANT_MAP( MatchDatas, matchData )
   GANT_MAP( ActionDatas, actionData )
};
using QosClassDataPtr = Gant::Ptr< const QosClassData >;

// A policy map that is applied somewhere.
class QosPolicyMapState : public Gant::PtrInterface {
 public:
   using Intfs = Gant::OrderedSet< Qos::IntfPairKey >;
   explicit QosPolicyMapState( QosPolicyMapKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Hul::QosPolicyMapState"; }
   GANT_CONST( QosPolicyMapKey, key )
   GANT_COUNTER( U32, version ) // counts its builds
   GANT_SET( Intfs, activeIntf )
   // In the order of matching.
   const std::vector< QosClassDataPtr > & classData() const { return classData_; }
   void classDataIs( std::vector< QosClassDataPtr > classData ) { classData_ = std::move( classData ); }

 private:
   std::vector< QosClassDataPtr > classData_;
};
using QosPolicyMapStatePtr = Gant::Ptr< const QosPolicyMapState >;

class QosClassCounterData {
   GANT_VALUE( "Hul::QosClassCounterData", QosClassCounterData, ( U64, pktHits ) )
};

} // namespace Hul
