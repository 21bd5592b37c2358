#include "KynetIntfId.h"

#include <algorithm>
#include <charconv>

namespace Kynet {

namespace {

struct Naming {
   IntfType::Value type;
   std::string_view longName;
   std::string_view shortName;
   bool numbered;
   bool slots; // two numbers are possible
};

constexpr Naming namings[] = {
     { IntfType::ethernet_, "Ethernet", "Et", true, true },
     { IntfType::vlan_, "Vlan", "Vl", true, false },
     { IntfType::loopback_, "Loopback", "Lo", true, false },
     { IntfType::tunnel_, "Tunnel", "Tu", true, false },
     { IntfType::vxlan_, "Vxlan", "Vx", true, false },
     { IntfType::management_, "Management", "Ma", true, true },
     { IntfType::portChannel_, "Port-Channel", "Po", true, false },
     { IntfType::cpu_, "Cpu", "Cpu", false, false },
};

bool acceptWord( std::string_view & text, std::string_view word ) {
   const auto same = []( char a, char b ) { return std::tolower( a ) == std::tolower( b ); };
   if ( text.size() < word.size() || !std::equal( word.begin(), word.end(), text.begin(), same ) ) return false;
   text.remove_prefix( word.size() );
   return true;
}

// A number from `least` up, without leading zeros.
bool acceptNumber( std::string_view & text, U16 least, U16 & number ) {
   const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), number );
   if ( error != std::errc() || number < least ) return false;
   if ( text[ 0 ] == '0' && end != text.data() + 1 ) return false;
   text.remove_prefix( static_cast< size_t >( end - text.data() ) );
   return true;
}

std::optional< IntfId > numbers( const Naming & naming, std::string_view text ) {
   if ( !naming.numbered ) return text.empty() ? std::optional( IntfId( naming.type, 0 ) ) : std::nullopt;
   U16 first = 0, second = 0, sub = 0;
   if ( !acceptNumber( text, 0, first ) ) return std::nullopt;
   if ( naming.slots && text.starts_with( '/' ) ) {
      text.remove_prefix( 1 );
      if ( !acceptNumber( text, 1, second ) ) return std::nullopt;
   }
   if ( text.starts_with( '.' ) ) {
      text.remove_prefix( 1 );
      if ( !acceptNumber( text, 1, sub ) ) return std::nullopt;
   }
   if ( !text.empty() ) return std::nullopt;
   return IntfId( naming.type, first, second, sub );
}

} // namespace

Gant::String IntfId::named( bool shortForm ) const {
   const auto * const naming = std::ranges::find( namings, type().value(), []( const Naming & n ) { return n.type; } );
   if ( naming == std::end( namings ) ) return {};
   Gant::String out( shortForm ? naming->shortName : naming->longName );
   if ( !naming->numbered ) return out;
   out += std::to_string( first() );
   if ( second() != 0 ) out += "/" + std::to_string( second() );
   if ( sub() != 0 ) out += "." + std::to_string( sub() );
   return out;
}

Gant::String IntfId::shortName() const { return named( true ); }

Gant::String IntfId::stringValue() const { return named( false ); }

void IntfId::strepIs( Gant::StrepReader & in ) {
   const auto name = in.quoted();
   const auto id = name.empty() ? std::optional( IntfId() ) : fromString( name );
   if ( !id ) in.fail( "an interface", name );
   *this = *id;
}

std::optional< IntfId > IntfId::fromString( std::string_view name ) {
   for ( const auto & naming : namings )
      for ( const auto word : { naming.longName, naming.shortName } ) {
         auto rest = name;
         if ( !acceptWord( rest, word ) ) continue;
         if ( const auto id = numbers( naming, rest ) ) return id;
      }
   return std::nullopt;
}

} // namespace Kynet
