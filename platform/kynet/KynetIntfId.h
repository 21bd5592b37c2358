// Interface ids: what an interface is and its numbers, in 64 bits, so that an id is a name and a name is an id.
//
// The top byte is the type, then come two 16-bit numbers, and the last 16 bits are the subinterface: Ethernet3/2.100 is
// type ethernet, 3, 2 and 100.
#pragma once

#include "GantEnum.h"
#include "GantValue.h"

#include <optional>
#include <string_view>

namespace Kynet {

GANT_ENUM( IntfType, U8, ( intfTypeNone, 0 ), ( ethernet, 1 ), ( vlan, 2 ), ( loopback, 3 ), ( tunnel, 4 ),
           ( vxlan, 5 ), ( management, 6 ), ( portChannel, 7 ), ( cpu, 8 ) )

class IntfId {
 public:
   constexpr IntfId() = default;
   explicit constexpr IntfId( U64 value ) : value_( value ) {}
   constexpr IntfId( IntfType type, U16 first, U16 second = 0, U16 sub = 0 ) :
        value_( U64( type.value() ) << 56 | U64( first ) << 32 | U64( second ) << 16 | sub ) {}

   constexpr U64 value() const { return value_; }
   constexpr IntfType type() const { return IntfType( static_cast< U8 >( value_ >> 56 ) ); }
   constexpr U16 first() const { return static_cast< U16 >( value_ >> 32 ); }
   constexpr U16 second() const { return static_cast< U16 >( value_ >> 16 ); }
   constexpr U16 sub() const { return static_cast< U16 >( value_ ); }
   constexpr bool operator!() const { return value_ == 0; }
   friend constexpr bool operator==( IntfId a, IntfId b ) = default;
   friend constexpr auto operator<=>( IntfId a, IntfId b ) = default;
   size_t hash() const { return Gant::Hash().word( value_ ).value(); }

   // "Et3/2.100"; empty when there is no interface.
   Gant::String shortName() const;
   // "Ethernet3/2.100"
   Gant::String stringValue() const;
   Gant::String strep() const { return Gant::strepQuoted( stringValue() ); }
   void strepIs( Gant::StrepReader & in );
   // Takes long and short names, in any case. Nothing for a name that is none.
   static std::optional< IntfId > fromString( std::string_view name );

 private:
   Gant::String named( bool shortForm ) const;
   U64 value_ = 0;
};

// The views of an id that depend on its type.
struct TunnelIntfId {
   static constexpr bool isTunnelIntfId( IntfId id ) { return id.type() == IntfType::tunnel_; }
   // The number of the tunnel.
   static constexpr U32 port( IntfId id ) { return id.first(); }
};

struct VxlanTunnelIntfId {
   static constexpr bool isVxlanTunnelIntfId( IntfId id ) { return id.type() == IntfType::vxlan_; }
};

} // namespace Kynet
