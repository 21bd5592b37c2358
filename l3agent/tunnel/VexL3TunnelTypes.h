// The model of a tunnel table, for a data plane in which a tunnel takes a row of a table and a block of virtual
// interfaces. This one programs its tunnels through their modules: nobody fills the model.
#pragma once

#include "HulTunnelTypes.h"
#include "StateVexVif.h"
#include "VexL3Types.h"

namespace VexL3Unicast {

// Rows of the table.
GANT_ENUM( TunnelInfoTableParams, U16, ( firstTunInfoIdx, 256 ), ( lastTunInfoIdx, 4095 ),
           ( invalidTunInfoIdx, 65535 ) )

// A tunnel's row. The limits raise a range error, from the constructor and from the setters.
class TunnelInfoEntry : public Gant::PtrInterface {
 public:
   using TunnelTypes = Gant::HashMap< Hul::TunnelType, bool >;
   class Notifiee : public Gant::NotifieeOf< TunnelInfoEntry > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onEntryIdx() {}
      virtual void onEcmpSize() {}
   };
   GANT_NOTIFIER( Notifiee )
   TunnelInfoEntry( const Hul::VrfAndIpAddr & entryKey, U16 entryIdx );
   const char * fwkType() const override { return "VexL3Unicast::TunnelInfoEntry"; }

   GANT_CONST( Hul::VrfAndIpAddr, entryKey )
   GANT_WATCHED_LIMITED( U16, entryIdx, onEntryIdx, checkEntryIdx, 0 ) // 256 to 4095
   GANT_ATTR( VexVif::VifId, vifBase )                                 // of a block of ecmpSize
   GANT_WATCHED_LIMITED( U8, ecmpSize, onEcmpSize, checkEcmpSize, 1 )  // 1 to 127 members
   GANT_MAP( TunnelTypes, tunnelType )
   GANT_ATTR( VexVif::VifAllocRequestId, allocRequestId )

 private:
   static void checkEntryIdx( U16 entryIdx );
   static void checkEcmpSize( U8 ecmpSize );
};

class TunnelDb : public Gant::PtrInterface {
 public:
   using FreeTunnelInfoIdxs = Gant::OrderedMap< U16, bool >;
   using TunnelInfoTable = Gant::HashMap< Hul::VrfAndIpAddr, Gant::Ptr< TunnelInfoEntry > >;
   using FecInfoTunnelMap = Gant::HashMap< Hul::VrfAndIpAddr, FecInfo >;
   using VifRequests = Gant::HashMap< VexVif::VifAllocRequestId, Hul::VrfAndIpAddr >;
   using IntfToTunnelVif = Gant::HashMap< Kynet::IntfId, VexVifRequester::VifCollection >;
   using TunnelVifToIntf = Gant::HashMap< VexVif::VifId, Kynet::IntfId >;
   const char * fwkType() const override { return "VexL3Unicast::TunnelDb"; }

   // Rows that are free, the lowest first.
   GANT_MAP( FreeTunnelInfoIdxs, freeTunnelInfoIdx )
   GANT_KEYED( TunnelInfoTable, tunnelInfoTable )
   // Makes the entry, or gives the one that is there the row.
   const Gant::Ptr< TunnelInfoEntry > & tunnelInfoTableIs( const Hul::VrfAndIpAddr & key, U16 entryIdx );
   GANT_MAP( FecInfoTunnelMap, fecInfoTunnelMap )
   GANT_MAP( VifRequests, vifRequestedForTunnel )
   GANT_MAP( IntfToTunnelVif, intfToTunnelVif )
   GANT_MAP( TunnelVifToIntf, tunnelVifToIntf )
   GANT_ATTR( U32, l3HdrInsertId, 0 )
   GANT_ATTR( U32, l4HdrInsertId, 0 )
   GANT_ATTR( U32, l2InsertPtrUntagged, 0 )
   GANT_ATTR( U32, l2InsertPtrTagged, 0 )
   GANT_ATTR( Kynet::EthAddr, bridgeMacAddr )
};

class TunnelConfig : public Gant::PtrInterface {
 public:
   explicit TunnelConfig( const Hul::VrfAndIpAddr & key ) : key_( key ) {}
   const char * fwkType() const override { return "VexL3Unicast::TunnelConfig"; }
   GANT_CONST( Hul::VrfAndIpAddr, key )
   GANT_ATTR( U64, genId, 0 )
   GANT_ATTR( Hul::TunnelTtl, ttl, U8( 64 ) )
   GANT_ATTR( FecInfo, info )
};

class TunnelConfigDir : public Gant::Entity {
 public:
   using TunnelConfigs = Gant::HashMap< Hul::VrfAndIpAddr, Gant::Ptr< TunnelConfig > >;
   using Entity::Entity;
   const char * fwkType() const override { return "VexL3Unicast::TunnelConfigDir"; }
   GANT_INSTANTIATING( TunnelConfigs, tunnelConfig )
};

// `genId` is that of the configuration that it answers.
class TunnelStatus {
   GANT_VALUE( "VexL3Unicast::TunnelStatus", TunnelStatus, ( Hul::VrfAndIpAddr, key ), ( U64, genId ),
               ( Hul::HulTunnelId, tunnelId ), ( Hul::HulNextHopId, nextHopId ) )
};

class TunnelStatusDir : public Gant::Entity {
 public:
   using TunnelStatuses = Gant::HashMap< Hul::VrfAndIpAddr, TunnelStatus >;
   using Entity::Entity;
   const char * fwkType() const override { return "VexL3Unicast::TunnelStatusDir"; }
   GANT_KEYED( TunnelStatuses, tunnelStatus )
   const TunnelStatus & tunnelStatusIs( const TunnelStatus & status ) {
      return tunnelStatus_.insert_or_assign( status.key(), status ).first->second;
   }
};

// A next hop behind a virtual interface.
class VifNextHopKey {
   GANT_VALUE( "VexL3Unicast::VifNextHopKey", VifNextHopKey, ( VexVif::VifId, vifId ), ( NextHopKey, nextHop ) )
   // It is the default.
   bool operator!() const { return *this == VifNextHopKey(); }
};

// What a tunnel's virtual interface leads to, in the 64 bits of a VexVif::TargetId, from the least significant one:
//
//   0 to 31   requestId     48 to 51   tunnelType     60 to 63   unused
//   32 to 47  tunInfoId     52 to 59   deviceId
class TunnelVifTargetId {
 public:
   TunnelVifTargetId() = default;
   explicit TunnelVifTargetId( VexVif::TargetId targetId ) : value_( targetId.value() ) {}
   TunnelVifTargetId( U32 requestId, Hul::HulTunnelId tunInfoId, Hul::TunnelType tunnelType,
                      VexSdk::VexDeviceId deviceId );

   U64 value() const { return value_; }
   VexVif::TargetId targetId() const { return VexVif::TargetId( value_ ); }
   U32 requestId() const { return static_cast< U32 >( bits( 0, 32 ) ); }
   void requestIdIs( U32 requestId ) { bitsAre( 0, 32, requestId ); }
   Hul::HulTunnelId tunInfoId() const { return Hul::HulTunnelId( static_cast< U16 >( bits( 32, 16 ) ) ); }
   void tunInfoIdIs( Hul::HulTunnelId tunInfoId ) { bitsAre( 32, 16, tunInfoId.value() ); }
   Hul::TunnelType tunnelType() const { return Hul::TunnelType( static_cast< U8 >( bits( 48, 4 ) ) ); }
   void tunnelTypeIs( Hul::TunnelType tunnelType ) { bitsAre( 48, 4, tunnelType.value() ); }
   VexSdk::VexDeviceId deviceId() const { return VexSdk::VexDeviceId( static_cast< U8 >( bits( 52, 8 ) ) ); }
   void deviceIdIs( VexSdk::VexDeviceId deviceId ) { bitsAre( 52, 8, deviceId.value() ); }
   U8 unused() const { return static_cast< U8 >( bits( 60, 4 ) ); }
   // Keeps the low 4 bits.
   void unusedIs( U8 unused ) { bitsAre( 60, 4, unused ); }

   // Names no target: no tunnel, on a device that there is not. Zero is a target.
   bool operator!() const;
   friend bool operator==( const TunnelVifTargetId &, const TunnelVifTargetId & ) = default;
   friend auto operator<=>( const TunnelVifTargetId &, const TunnelVifTargetId & ) = default;
   size_t hash() const { return Gant::hashOf( value_ ); }
   // "0x7f0ffff00000000 (tnlId: 65535, tnlType: 0, devId: 127, timestamp: 0)"
   Gant::String stringValue() const;

 private:
   U64 bits( U32 at, U32 width ) const { return value_ >> at & ( ( U64( 1 ) << width ) - 1 ); }
   void bitsAre( U32 at, U32 width, U64 bits );

   U64 value_ = 0;
};

VEXL3_EXPORT Gant::Ptr< TunnelDb > tunnelDbFactory();
VEXL3_EXPORT Gant::Ptr< TunnelInfoEntry > tunnelInfoEntryFactory( const Hul::VrfAndIpAddr & entryKey, U16 entryIdx );
VEXL3_EXPORT Gant::Ptr< TunnelConfig > tunnelConfigFactory( const Hul::VrfAndIpAddr & key );
VEXL3_EXPORT Gant::Ptr< TunnelConfigDir > tunnelConfigDirFactory( const Gant::Name & name );
VEXL3_EXPORT Gant::Ptr< TunnelStatusDir > tunnelStatusDirFactory( const Gant::Name & name );

} // namespace VexL3Unicast
