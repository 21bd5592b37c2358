// Quality of service: class maps, policy maps, and where they are applied.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetIntfId.h"

#include <vector>

namespace Qos {

GANT_ENUM( MapType, U8, ( mapNone, 0 ), ( mapQos, 1 ), ( mapControlPlane, 2 ), ( mapPdp, 3 ) )

GANT_ENUM( Direction, U8, ( input, 0 ), ( output, 1 ) )

// How a class map finds its packets.
GANT_ENUM( ClassMapMatchOption, U8, ( matchNone, 0 ), ( matchIpAccessGroup, 1 ), ( matchIpv6AccessGroup, 2 ),
           ( matchVlan, 3 ) )

GANT_ENUM( ActionType, U8, ( actionNone, 0 ), ( actionSetCos, 1 ), ( actionPolice, 2 ), ( actionSetDscp, 3 ),
           ( actionSetTc, 4 ) )

class Dscp {
 public:
   static constexpr U8 min = 0;
   static constexpr U8 max = 63;
   static constexpr U8 invalid = 255;
};

inline constexpr U8 trafficClassMax = 7;

// An interface of a policy: itself, or the link aggregation group that it is a member of.
class IntfPairKey {
   GANT_VALUE( "Qos::IntfPairKey", IntfPairKey, ( Kynet::IntfId, intfId ), ( Kynet::IntfId, lagIntf ) )
};

// The class that every policy map may have, for what no other class matches.
inline constexpr const char * classDefault = "class-default";

struct ClassMapConfig {
   ClassMapMatchOption matchOption = ClassMapMatchOption::matchIpAccessGroup_;
   std::vector< Gant::String > accessLists; // a packet that one of them permits is of the class
   U32 vlan = 0;
   friend bool operator==( const ClassMapConfig &, const ClassMapConfig & ) = default;
};

struct PolicyClass {
   using Actions = Gant::OrderedMap< ActionType, U32 >;
   Gant::String name; // of a class map, or classDefault
   Actions actions;
   friend bool operator==( const PolicyClass &, const PolicyClass & ) = default;
};

struct PolicyMapConfig {
   std::vector< PolicyClass > classes; // the first that matches decides
   friend bool operator==( const PolicyMapConfig &, const PolicyMapConfig & ) = default;
};

class ServicePolicyKey {
   GANT_VALUE( "Qos::ServicePolicyKey", ServicePolicyKey, ( Kynet::IntfId, intfId ), ( Direction, direction ) )
};

// What the user wrote.
class Status : public Gant::Entity {
 public:
   using ClassMaps = Gant::OrderedMap< Gant::String, ClassMapConfig >;
   using PolicyMaps = Gant::OrderedMap< Gant::String, PolicyMapConfig >;
   using ServicePolicies = Gant::OrderedMap< ServicePolicyKey, Gant::String >; // the name of a policy map
   class Notifiee : public Gant::NotifieeOf< Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onClassMap( const Gant::String & ) {}
      virtual void onPolicyMap( const Gant::String & ) {}
      virtual void onServicePolicy( const ServicePolicyKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( ClassMaps, classMap, onClassMap )
   GANT_WATCHED_MAP( PolicyMaps, policyMap, onPolicyMap )
   GANT_WATCHED_MAP( ServicePolicies, servicePolicy, onServicePolicy )
};

class HwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class SliceHwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

// What the data plane can do about policies.
class AclHwStatus : public Gant::Entity {
 public:
   using Actions = Gant::OrderedMap< U32, bool >; // by the number of an ActionType
   using Entity::Entity;
   GANT_ATTR( bool, policyQosSupported, false )
   GANT_MAP( Actions, policyQosActionsSupported )
   GANT_ATTR( U32, policyQosNumCMapSupported, 0 ) // class maps in one policy map
   GANT_ATTR( bool, ip6AclsSupported, true )
   GANT_ATTR( bool, coppSupported, true )
   GANT_ATTR( bool, showPdpCountersSupported, true )
   // The others hold from now on.
   GANT_ATTR( bool, hwInitialized, false )
};

class AclSliceHwStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class CounterConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

namespace Input {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Input

} // namespace Qos
