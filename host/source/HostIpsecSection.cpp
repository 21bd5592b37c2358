// ipsec: connections with their security associations, as a key exchange has agreed upon them.
#include "HostSection.h"

#include "GantCleanse.h"
#include "HostVerdict.h"

namespace Host {

namespace {

using Ipsec::Ike::Connection;
using Ipsec::Ike::EncapIdType;
using Ipsec::Ike::KeyMaterial;
using Ipsec::Ike::SaMode;
using Ipsec::Ike::SecurityAssociation;

// Of a text that is a key nothing is ever said but that it is wrong.
struct Key {
   KeyMaterial bytes;
   U16 bits = 0;
};

int digitOf( char c ) {
   if ( c >= '0' && c <= '9' ) return c - '0';
   if ( c >= 'a' && c <= 'f' ) return c - 'a' + 10;
   if ( c >= 'A' && c <= 'F' ) return c - 'A' + 10;
   return -1;
}

// "0x0011...", two digits a byte; nothing when the key is not there.
Key keyOf( const Entry & entry, const char * name ) {
   if ( !entry.has( name ) ) return {};
   const auto at = entry.at( name );
   const std::string wrong =
        std::string( name ) + " is not 0x and two hexadecimal digits for each byte, up to 64 bytes";
   if ( !at.node().IsScalar() ) at.fail( wrong );
   std::string_view text = at.node().Scalar();
   constexpr size_t bytesMax = 64;
   if ( !text.starts_with( "0x" ) || text.size() % 2 != 0 || text.size() > 2 + 2 * bytesMax ) at.fail( wrong );
   text.remove_prefix( 2 );
   Gant::keepFromDumps();
   char bytes[ bytesMax ];
   for ( size_t i = 0; i < text.size() / 2; ++i ) {
      const int high = digitOf( text[ 2 * i ] ), low = digitOf( text[ 2 * i + 1 ] );
      if ( high < 0 || low < 0 ) {
         Gant::cleanse( bytes, sizeof( bytes ) );
         at.fail( wrong );
      }
      bytes[ i ] = static_cast< char >( high << 4 | low );
   }
   Key key{ KeyMaterial( std::string_view( bytes, text.size() / 2 ) ), static_cast< U16 >( text.size() * 4 ) };
   Gant::cleanse( bytes, sizeof( bytes ) );
   return key;
}

SaMode modeOf( const Entry & entry ) {
   if ( !entry.has( "mode" ) ) return SaMode::IPSEC_TUNNEL_MODE();
   const auto text = entry.at( "mode" ).text( "a mode" );
   if ( text == "tunnel" ) return SaMode::IPSEC_TUNNEL_MODE();
   if ( text == "transport" ) return SaMode::IPSEC_TRANSPORT_MODE();
   entry.at( "mode" ).fail( "mode \"" + text + "\" is not tunnel or transport" );
}

// Numbers may be hexadecimal: that is how SPIs are told.
U32 spiOf( const Entry & entry ) {
   const auto at = entry.at( "spi" );
   const auto text = at.text( "an SPI" );
   size_t end = 0;
   unsigned long spi = 0;
   try {
      spi = std::stoul( text, &end, 0 );
   } catch ( const std::exception & ) {
      end = 0;
   }
   if ( end == 0 || end != text.size() || text.front() == '-' || spi > ~U32( 0 ) )
      at.fail( "spi \"" + text + "\" is not a number of 32 bits" );
   return static_cast< U32 >( spi );
}

std::string algorithmOf( const Entry & entry, const char * key, const char * otherwise ) {
   return entry.has( key ) ? entry.at( key ).text( "an algorithm" ) : otherwise;
}

SecurityAssociation saOf( const Entry & entry ) {
   constexpr U8 esp = 50;
   constexpr U16 inet = 2;
   entry.only( { "spi", "source", "destination", "mode", "encryption", "encryption-key", "authentication",
                 "authentication-key", "icv-bits", "replay-window", "udp" } );
   SecurityAssociation sa;
   sa.sakeyIs( Ipsec::Ike::SaKey(
        Ipsec::Ike::SaId( spiOf( entry ), Kynet::IpGenAddr( entry.ip4( "destination" ) ), esp ), inet ) );
   sa.saddrIs( Kynet::IpGenAddr( entry.ip4( "source" ) ) );
   sa.modeIs( modeOf( entry ) );
   sa.replay_windowIs( entry.number( "replay-window", 0, ~U32( 0 ), 64 ) );
   sa.cryptoAlgoIs( algorithmOf( entry, "encryption", "cipher_null" ) );
   const auto cryptoKey = keyOf( entry, "encryption-key" );
   sa.cryptoKeyIs( cryptoKey.bytes );
   sa.cryptoKeyLenIs( cryptoKey.bits );
   sa.authAlgoIs( algorithmOf( entry, "authentication", "" ) );
   const auto authKey = keyOf( entry, "authentication-key" );
   sa.authKeyIs( authKey.bytes );
   sa.authKeyLenIs( authKey.bits );
   constexpr U32 icvOfGcm = 128;
   sa.icvLenIs( static_cast< U16 >(
        entry.number( "icv-bits", 0, 65535, sa.cryptoAlgo() == "rfc4106(gcm(aes))" ? icvOfGcm : 0 ) ) );
   if ( !entry.has( "udp" ) ) return sa;
   const auto udp = entry.at( "udp" );
   udp.only( { "source-port", "destination-port" } );
   sa.encapTypeIs( 1 );
   sa.encapSrcPortIs( static_cast< U16 >( udp.number( "source-port", 0, 65535, 0 ) ) );
   sa.encapDstPortIs( static_cast< U16 >( udp.number( "destination-port", 0, 65535, 0 ) ) );
   return sa;
}

EncapIdType typeOf( const Entry & entry ) {
   if ( !entry.has( "type" ) ) return EncapIdType::IpsecVti();
   const auto text = entry.at( "type" ).text( "a type" );
   if ( text == "vti" ) return EncapIdType::IpsecVti();
   if ( text == "gre" ) return EncapIdType::IpsecGre();
   entry.at( "type" ).fail( "type " + quoted( text ) + " is not vti or gre" );
}

void cleanseScalars( const YAML::Node & node ) {
   if ( node.IsScalar() ) {
      // In place: a copy would leave the bytes where they are.
      const auto & text = node.Scalar();
      Gant::cleanse( const_cast< char * >( text.data() ), text.size() );
   } else if ( node.IsMap() ) {
      for ( const auto & pair : node ) cleanseScalars( pair.second );
   } else if ( node.IsSequence() ) {
      for ( const auto & item : node ) cleanseScalars( item );
   }
}

class IpsecSection : public Section {
 public:
   const char * name() const override { return "ipsec"; }
   const char * kind() const override { return "ipsec"; }
   std::string key( const Entry & entry ) const override { return entry.at( "name" ).text( "a name" ); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.ipsecBook().connections().contains( key( entry ) );
   }

   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "name", "id", "type", "vrf", "interfaces", "inbound", "outbound" } );
      IpsecFact fact;
      fact.key = Ipsec::Ike::ConnectionKey(
           Kynet::NamespaceName( entry.vrf().value() ),
           Ipsec::Ike::EncapId( entry.at( "id" ).number( "id", 0, ~U32( 0 ) ), typeOf( entry ) ) );
      fact.connection.nameIs( key( entry ) );
      Ipsec::Ike::IntfList intfs;
      for ( const auto & intf : entry.list( "interfaces" ) )
         intfs.intfIs( intf.value< Kynet::IntfId >( "an interface name" ), true );
      fact.connection.intfListIs( intfs );
      Ipsec::Ike::SecurityAssociationQueue saq;
      for ( const auto & inbound : entry.list( "inbound" ) ) saq.saqEnq( saOf( inbound ) );
      fact.connection.inSaqIs( saq );
      if ( entry.has( "outbound" ) ) fact.connection.outSaIs( saOf( entry.at( "outbound" ) ) );
      return state.ipsecIs( fact, teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      return state.ipsecDel( key( entry ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      std::vector< Gant::Name > gone;
      for ( const auto & [ name, told ] : state.ipsecBook().connections() )
         if ( told.teller == teller && !keys.contains( name ) ) gone.push_back( name );
      for ( const auto & name : gone ) state.ipsecDel( name );
      return {};
   }
   void forget( const Entry & entry ) const override { cleanseScalars( entry.node() ); }
};

} // namespace

std::unique_ptr< const Section > ipsecSection() { return std::make_unique< IpsecSection >(); }

} // namespace Host
