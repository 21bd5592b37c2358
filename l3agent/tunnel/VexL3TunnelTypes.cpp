#include "VexL3TunnelTypes.h"

#include "GantException.h"

namespace VexL3Unicast {

void TunnelInfoEntry::checkEntryIdx( U16 entryIdx ) {
   if ( entryIdx < TunnelInfoTableParams::firstTunInfoIdx_ || entryIdx > TunnelInfoTableParams::lastTunInfoIdx_ )
      Gant::throwRangeException( "TunnelInfoEntry::entryIdx < 256 or > 4095 not allowed" );
}

void TunnelInfoEntry::checkEcmpSize( U8 ecmpSize ) {
   if ( static_cast< signed char >( ecmpSize ) < 1 )
      Gant::throwRangeException( "TunnelInfoEntry::ecmpSize < 1 or > 127 not allowed" );
}

TunnelInfoEntry::TunnelInfoEntry( const Hul::VrfAndIpAddr & entryKey, U16 entryIdx ) :
     entryKey_( entryKey ), entryIdx_( entryIdx ) {
   checkEntryIdx( entryIdx );
   checkEcmpSize( ecmpSize() );
}

const Gant::Ptr< TunnelInfoEntry > & TunnelDb::tunnelInfoTableIs( const Hul::VrfAndIpAddr & key, U16 entryIdx ) {
   const auto at = tunnelInfoTable_.find( key );
   if ( at == tunnelInfoTable_.end() )
      return tunnelInfoTable_.emplace( key, tunnelInfoEntryFactory( key, entryIdx ) ).first->second;
   at->second->entryIdxIs( entryIdx );
   return at->second;
}

TunnelVifTargetId::TunnelVifTargetId( U32 requestId, Hul::HulTunnelId tunInfoId, Hul::TunnelType tunnelType,
                                      VexSdk::VexDeviceId deviceId ) {
   unusedIs( 0 );
   requestIdIs( requestId );
   tunInfoIdIs( tunInfoId );
   tunnelTypeIs( tunnelType );
   deviceIdIs( deviceId );
}

void TunnelVifTargetId::bitsAre( U32 at, U32 width, U64 bits ) {
   const U64 mask = ( U64( 1 ) << width ) - 1;
   value_ = ( value_ & ~( mask << at ) ) | ( bits & mask ) << at;
}

bool TunnelVifTargetId::operator!() const {
   return *this == TunnelVifTargetId( 0, Hul::HulTunnelId( 65535 ), Hul::TunnelType( 0 ), VexSdk::VexDeviceId( 127 ) );
}

Gant::String TunnelVifTargetId::stringValue() const {
   return Gant::textsOf( "0x", Gant::format( "%llx", static_cast< unsigned long long >( value_ ) ),
                         " (tnlId: ", tunInfoId(), ", tnlType: ", tunnelType(), ", devId: ", deviceId(),
                         ", timestamp: ", requestId(), ")" );
}

Gant::Ptr< TunnelDb > tunnelDbFactory() { return Gant::make< TunnelDb >(); }

Gant::Ptr< TunnelInfoEntry > tunnelInfoEntryFactory( const Hul::VrfAndIpAddr & entryKey, U16 entryIdx ) {
   return Gant::make< TunnelInfoEntry >( entryKey, entryIdx );
}

Gant::Ptr< TunnelConfig > tunnelConfigFactory( const Hul::VrfAndIpAddr & key ) {
   return Gant::make< TunnelConfig >( key );
}

Gant::Ptr< TunnelConfigDir > tunnelConfigDirFactory( const Gant::Name & name ) {
   return Gant::make< TunnelConfigDir >( name );
}

Gant::Ptr< TunnelStatusDir > tunnelStatusDirFactory( const Gant::Name & name ) {
   return Gant::make< TunnelStatusDir >( name );
}

} // namespace VexL3Unicast
