// Address translation: what is wanted, and what the data plane answered.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"

namespace Ip::Nat {

// Which address of a packet that leaves the inside is translated.
GANT_ENUM( NatTarget, U8, ( source, 0 ), ( destination, 1 ) )

// Names a static translation: where it applies, and what it translates. `protocol` 0 and port 0: any. `acl` empty: all
// packets.
class StaticKey {
   GANT_VALUE( "Ip::Nat::StaticKey", StaticKey, ( Kynet::IntfId, intfId ), ( NatTarget, target ),
               ( Kynet::IpAndPort, original ), ( U8, protocol ), ( Gant::String, acl ) )
};

class StaticConnection {
   GANT_VALUE( "Ip::Nat::StaticConnection", StaticConnection, ( Kynet::IpAndPort, translated ), ( U16, vlan ),
               ( Kynet::IpAddrWithFullMask, filter ) )
};

// Names a dynamic rule: the packets of a VLAN that an access list permits get an address as they come.
class DynamicKey {
   GANT_VALUE( "Ip::Nat::DynamicKey", DynamicKey, ( U16, vlan ), ( Gant::String, acl ) )
};

class DynamicRule {
   GANT_VALUE( "Ip::Nat::DynamicRule", DynamicRule, ( NatTarget, target ), ( U32, priority ) )
};

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

// What is wanted.
class Status : public Gant::Entity {
 public:
   using StaticConnections = Gant::OrderedMap< StaticKey, StaticConnection >;
   using DynamicRules = Gant::OrderedMap< DynamicKey, DynamicRule >;
   class Notifiee : public Gant::NotifieeOf< Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onStaticConnection( const StaticKey & ) {}
      virtual void onDynamicRule( const DynamicKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( StaticConnections, staticConnection, onStaticConnection )
   GANT_WATCHED_MAP( DynamicRules, dynamicRule, onDynamicRule )
};

// A static translation that the data plane's helper was told of.
class HwNatStaticConnection : public Gant::PtrInterface {
 public:
   explicit HwNatStaticConnection( const StaticKey & key ) : key_( key ) {}
   GANT_CONST( StaticKey, key )
   GANT_ATTR( StaticConnection, connection )
   // The helper took it. Whether packets are translated is the data plane's affair.
   GANT_ATTR( bool, accepted, false )
   GANT_ATTR( U64, packets, 0 )
};

class HwNatTwiceConnection : public Gant::PtrInterface {
 public:
   explicit HwNatTwiceConnection( const StaticKey & key ) : key_( key ) {}
   GANT_CONST( StaticKey, key )
};

// What the data plane answered.
class HwStatus : public Gant::Entity {
 public:
   using Connections = Gant::OrderedMap< StaticKey, Gant::Ptr< HwNatStaticConnection > >;
   using DynamicRules = Gant::OrderedMap< DynamicKey, bool >;
   using Entity::Entity;
   GANT_INSTANTIATING( Connections, staticConnection )
   GANT_MAP( DynamicRules, dynamicRule ) // whether the helper took it
};

class IntfStatus : public Gant::Entity {
 public:
   using Entity::Entity;
};

class HwCapabilities : public Gant::Entity {
 public:
   class Notifiee : public Gant::NotifieeOf< HwCapabilities > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onNatSupported() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED( bool, natSupported, onNatSupported, false )
};

} // namespace Ip::Nat

namespace MrouteLib {

// Static translations that multicast shares.
class StaticNatInfo : public Gant::PtrInterface {};

} // namespace MrouteLib
