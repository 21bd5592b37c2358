#include "HostEntry.h"

#include "NearestWord.h"

#include <algorithm>
#include <charconv>

namespace Host {

namespace {

template < typename Number >
bool parseNumber( std::string_view text, Number & number ) {
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), number );
   return error == std::errc() && end == text.data() + text.size();
}

// Of the digits of a key that landed beside its place, none is to reach a log.
bool looksSecret( std::string_view text ) {
   constexpr int longestPlain = 15;
   int digits = 0;
   for ( const char c : text ) {
      digits = std::isxdigit( static_cast< unsigned char >( c ) ) ? digits + 1 : 0;
      if ( digits > longestPlain ) return true;
   }
   return false;
}

} // namespace

std::string quoted( std::string_view text ) {
   constexpr size_t longest = 64;
   if ( looksSecret( text ) ) return "a text of " + std::to_string( text.size() ) + " characters";
   return "\"" + printable( text, longest ) + "\"";
}

void Entry::only( std::initializer_list< const char * > keys ) const {
   if ( !node_.IsMap() ) fail( "an entry is a map of keys and values" );
   for ( const auto & pair : node_ ) {
      if ( !pair.first.IsScalar() ) throw EntryError( "a key is a word", pair.first.Mark().line + 1 );
      const auto & key = pair.first.Scalar();
      if ( std::ranges::find( keys, key ) == keys.end() )
         throw EntryError( "unknown key " + quoted( key ) +
                                Runtime::didYouMean( key, std::vector< std::string >( keys.begin(), keys.end() ) ),
                           pair.first.Mark().line + 1 );
   }
}

Entry Entry::at( const char * key ) const {
   if ( !has( key ) ) fail( quoted( key ) + " is missing" );
   return Entry( node_[ key ] );
}

std::vector< Entry > Entry::list( const char * key ) const {
   std::vector< Entry > entries;
   if ( !has( key ) ) return entries;
   const auto node = node_[ key ];
   if ( node.IsSequence() )
      for ( const auto & item : node ) entries.emplace_back( item );
   else if ( !node.IsNull() )
      entries.emplace_back( node );
   return entries;
}

std::string Entry::text( const char * what ) const {
   if ( !node_.IsScalar() ) fail( std::string( "here should be " ) + what );
   return node_.Scalar();
}

U32 Entry::number( const char * what, U32 low, U32 high ) const {
   const auto text = this->text( "a number" );
   U64 value = 0;
   if ( !parseNumber( std::string_view( text ), value ) )
      fail( std::string( what ) + ": " + quoted( text ) + " is not a number" );
   if ( value < low ) fail( std::string( what ) + " " + text + " is under " + std::to_string( low ) );
   if ( value > high ) fail( std::string( what ) + " " + text + " is over " + std::to_string( high ) );
   return static_cast< U32 >( value );
}

U32 Entry::number( const char * key, U32 low, U32 high, U32 otherwise ) const {
   return has( key ) ? at( key ).number( key, low, high ) : otherwise;
}

bool Entry::flag( const char * what ) const {
   bool value = false;
   if ( !node_.IsScalar() || !YAML::convert< bool >::decode( node_, value ) )
      fail( std::string( what ) + " is true or false" );
   return value;
}

bool Entry::flag( const char * key, bool otherwise ) const { return has( key ) ? at( key ).flag( key ) : otherwise; }

Kynet::IntfId Entry::intf( const char * key ) const { return at( key ).value< Kynet::IntfId >( "an interface name" ); }

L3::VrfName Entry::vrf( const char * key ) const {
   if ( !has( key ) ) return L3::VrfName::defaultVrf();
   const auto name = at( key ).text( "a VRF name" );
   if ( const auto wrong = wrongVrfName( name ); !wrong.empty() ) at( key ).fail( wrong );
   return L3::VrfName( name );
}

Kynet::IpAddr Entry::ip4( const char * key ) const {
   const auto entry = at( key );
   const auto address = entry.value< Kynet::IpGenAddr >( "an IPv4 address" );
   if ( address.af() != Kynet::AddressFamily::ipv4_ )
      entry.fail( std::string( key ) + " " + address.stringValue() + " is IPv6, and has to be IPv4" );
   return address.v4Addr();
}

std::string Entry::name( const char * key, const char * what ) const {
   const auto entry = at( key );
   const auto name = entry.text( what );
   if ( const auto wrong = wrongName( what, name ); !wrong.empty() ) entry.fail( wrong );
   return name;
}

Kynet::IpGenPrefix Entry::prefix() const {
   if ( node_.IsScalar() && node_.Scalar() == "default" ) return Kynet::IpGenPrefix( Kynet::Prefix() );
   return value< Kynet::IpGenPrefix >( "an IP prefix" );
}

Kynet::Prefix Entry::interfaceAddress() const {
   const auto text = this->text( "an address" );
   if ( const auto address = Kynet::IpAddr::fromString( text ) ) return Kynet::Prefix( *address, 32 );
   if ( const auto prefix = Kynet::Prefix::fromString( text ) ) return *prefix;
   if ( Kynet::Ip6Prefix::fromString( text ) || Kynet::Ip6Addr::fromString( text ) )
      fail( "address " + text + " is IPv6, and interfaces take IPv4 ones" );
   fail( quoted( text ) + " is not an IPv4 address with its prefix length" );
}

std::string parseHop( std::string_view text, Hop & hop ) {
   hop = Hop();
   auto rest = text;
   if ( const auto star = rest.find( '*' ); star != std::string::npos ) {
      U16 weight = 0;
      if ( !parseNumber( rest.substr( star + 1 ), weight ) || weight == 0 )
         return "weight " + quoted( rest.substr( star + 1 ) ) + " is not a number from 1 to 65535";
      hop.weightIs( weight );
      rest = rest.substr( 0, star );
   }
   const auto percent = rest.find( '%' );
   const auto intfText = percent == std::string::npos ? std::string_view() : rest.substr( percent + 1 );
   if ( const auto address = Kynet::IpGenAddr::fromString( rest.substr( 0, percent ) ) ) {
      hop.addrIs( *address );
      if ( percent == std::string::npos ) return {};
   } else if ( percent != std::string::npos ) {
      return "next hop " + quoted( rest ) + " does not begin with an address";
   }
   const auto intfId = Kynet::IntfId::fromString( percent == std::string::npos ? rest : intfText );
   if ( !intfId ) return "next hop " + quoted( rest ) + " is not an address or an interface";
   hop.intfIdIs( *intfId );
   return {};
}

std::string wrongName( const std::string & what, const std::string & name ) {
   constexpr size_t longest = 63;
   const auto plain = []( char c ) {
      return std::isalnum( static_cast< unsigned char >( c ) ) || c == '-' || c == '_' || c == '.';
   };
   if ( name.empty() ) return "a name of " + what + " is not empty";
   if ( name.size() > longest || !std::ranges::all_of( name, plain ) )
      return what + " name " + quoted( name ) + " is not one of up to 63 letters, digits, \"-\", \"_\" and \".\"";
   return {};
}

std::string wrongVrfName( const std::string & name ) {
   return name.empty() ? "a VRF name is not empty" : wrongName( "VRF", name );
}

} // namespace Host
