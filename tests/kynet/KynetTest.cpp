#include "KynetAddr.h"
#include "KynetIntfId.h"

#include <gtest/gtest.h>

namespace {

using namespace Kynet;

template < typename T >
Gant::String roundTrip( const char * text ) {
   const auto value = T::fromString( text );
   if ( !value ) return "-";
   EXPECT_EQ( Gant::valueFromStrep< T >( value->strep() ), *value );
   return value->stringValue();
}

TEST( Kynet, addressesAndPrefixesReadAndWriteTheirTexts ) {
   EXPECT_EQ( roundTrip< IpAddr >( "192.0.2.255" ), "192.0.2.255" );
   EXPECT_EQ( IpAddr::fromString( "1.2.3.4" )->value(), 0x01020304u );
   EXPECT_EQ( roundTrip< Ip6Addr >( "2001:DB8:0::1" ), "2001:db8::1" );
   EXPECT_EQ( roundTrip< IpGenAddr >( "10.0.0.1" ), "10.0.0.1" );
   EXPECT_EQ( roundTrip< IpGenAddr >( "fe80::1" ), "fe80::1" );
   EXPECT_EQ( roundTrip< Prefix >( "0.0.0.0/0" ), "0.0.0.0/0" );
   EXPECT_EQ( roundTrip< Prefix >( "10.1.2.3/32" ), "10.1.2.3/32" );
   EXPECT_EQ( roundTrip< Ip6Prefix >( "2001:db8::/128" ), "2001:db8::/128" );
   EXPECT_EQ( roundTrip< IpGenPrefix >( "2001:db8::/32" ), "2001:db8::/32" );
   EXPECT_EQ( roundTrip< EthAddr >( "00:1C:73:00:00:fe" ), "00:1c:73:00:00:fe" );
}

TEST( Kynet, textsThatAreNoneAreRefused ) {
   for ( const auto * text : { "", "1.2.3", "1.2.3.256", "1.2.3.4.5", "01.2.3.4x", " 1.2.3.4", "1.2.3.4 ", "::1" } )
      EXPECT_FALSE( IpAddr::fromString( text ) ) << text;
   for ( const auto * text :
         { "1.2.3.4", "1.2.3.4/", "1.2.3.4/33", "1.2.3.4/-1", "1.2.3.4/8x", "1.2.3.4/256", "::/0" } )
      EXPECT_FALSE( Prefix::fromString( text ) ) << text;
   EXPECT_FALSE( IpAddr::fromString( std::string_view( "1.2.3.4\0", 8 ) ) );
   EXPECT_FALSE( Ip6Prefix::fromString( "::/129" ) );
   for ( const auto * text :
         { "", "00:1c:73:00:00", "00:1c:73:00:00:0", "00-1c-73-00-00-01", "00:1c:73:00:00:0g", "00:1c:73:00:00:011" } )
      EXPECT_FALSE( EthAddr::fromString( text ) ) << text;
}

TEST( Kynet, interfaceNamesAndIdsAreTheSameThing ) {
   const struct {
      const char * given;
      const char * longName;
      const char * shortName;
   } cases[] = {
        { "Ethernet1", "Ethernet1", "Et1" },         { "et3/2.100", "Ethernet3/2.100", "Et3/2.100" },
        { "VLAN4094", "Vlan4094", "Vl4094" },        { "Tu0", "Tunnel0", "Tu0" },
        { "Loopback0", "Loopback0", "Lo0" },         { "Cpu", "Cpu", "Cpu" },
        { "Port-Channel7", "Port-Channel7", "Po7" }, { "Vx1", "Vxlan1", "Vx1" },
   };
   for ( const auto & c : cases ) {
      const auto id = IntfId::fromString( c.given );
      ASSERT_TRUE( id ) << c.given;
      EXPECT_EQ( id->stringValue(), c.longName );
      EXPECT_EQ( id->shortName(), c.shortName );
      EXPECT_EQ( IntfId::fromString( c.shortName ), id );
      EXPECT_EQ( Gant::valueFromStrep< IntfId >( id->strep() ), *id );
   }
   for ( const auto * name :
         { "", "Ethernet", "Et01", "Et1/0", "Et1/", "Et65536", "Vlan1/2", "Cpu1", "eth0", "Et1.", "Et1.0" } )
      EXPECT_FALSE( IntfId::fromString( name ) ) << name;
   EXPECT_EQ( IntfId().shortName(), "" );
   EXPECT_TRUE( !IntfId() );
   EXPECT_EQ( TunnelIntfId::port( *IntfId::fromString( "Tunnel12" ) ), 12u );
}

} // namespace
