#include "CtlAgentText.h"

#include <cctype>
#include <charconv>
#include <map>

namespace Ctl {

namespace {

class Reader {
 public:
   explicit Reader( std::string_view text ) : text_( text ) {}

   // Past blanks, commas and comments. The form has more commas than it needs.
   bool more() {
      while ( at_ < text_.size() ) {
         if ( text_[ at_ ] == '#' )
            at_ = std::min( text_.find( '\n', at_ ), text_.size() );
         else if ( text_[ at_ ] == ',' || std::isspace( static_cast< unsigned char >( text_[ at_ ] ) ) )
            ++at_;
         else
            return true;
      }
      return false;
   }
   bool at( char wanted ) { return more() && text_[ at_ ] == wanted; }
   bool skip( char wanted ) {
      if ( !at( wanted ) ) return false;
      ++at_;
      return true;
   }
   void expect( char wanted ) {
      if ( !skip( wanted ) ) fail( std::string( "'" ) + wanted + "'" );
   }
   std::string quoted() {
      expect( '\'' );
      const auto end = text_.find( '\'', at_ );
      if ( end == std::string_view::npos ) fail( "a quote" );
      const auto text = text_.substr( at_, end - at_ );
      at_ = end + 1;
      return std::string( text );
   }
   Json value() {
      if ( at( '\'' ) ) return quoted();
      if ( skip( '(' ) ) return tuple();
      if ( skip( '{' ) ) return dictionary();
      return number();
   }

 private:
   Json tuple() {
      auto values = Json::array();
      while ( !skip( ')' ) ) values.push_back( value() );
      return values;
   }
   Json dictionary() {
      auto entries = Json::object();
      while ( !skip( '}' ) ) {
         const auto key = quoted();
         expect( ':' );
         entries[ key ] = value();
      }
      return entries;
   }
   Json number() {
      std::int64_t number = 0;
      more();
      const auto [ end, error ] = std::from_chars( text_.data() + at_, text_.data() + text_.size(), number );
      if ( error != std::errc() ) fail( "a value" );
      at_ = static_cast< size_t >( end - text_.data() );
      return number;
   }
   [[noreturn]] void fail( const std::string & missing ) const {
      throw Error{ "refused", "the agent's text has no " + missing + " at byte " + std::to_string( at_ ) };
   }

   const std::string_view text_;
   size_t at_ = 0;
};

// The number between a prefix and a suffix; false when the key is none of these.
bool isKey( std::string_view key, std::string_view prefix, std::string_view suffix, std::string & number ) {
   if ( !key.starts_with( prefix ) || !key.ends_with( suffix ) || key.size() <= prefix.size() + suffix.size() )
      return false;
   number = key.substr( prefix.size(), key.size() - prefix.size() - suffix.size() );
   return true;
}

// Next hops of a FEC come in pairs of numbers: index, gate. A gate that is not there is written as -1 of 32 bits, with
// its sign or without.
Json nexthopsOf( const Json & fec ) {
   constexpr std::uint32_t noGate = ~std::uint32_t( 0 );
   auto nexthops = Json::array();
   for ( size_t at = 0; at + 1 < fec.size(); at += 2 ) {
      Json nexthop;
      if ( static_cast< std::uint32_t >( fec[ at + 1 ].get< std::int64_t >() ) != noGate )
         nexthop[ "gate" ] = fec[ at + 1 ];
      nexthop[ "index" ] = fec[ at ];
      nexthops.push_back( std::move( nexthop ) );
   }
   return nexthops;
}

// Routes come as prefix, (VRF, FEC), prefix, ...
void fibRows( const Json & routes, const Json & fecs, std::vector< Json > & rows ) {
   for ( size_t at = 0; at + 1 < routes.size(); at += 2 ) {
      const auto & about = routes[ at + 1 ];
      Json row{ { "vrf", about.at( 0 ) }, { "prefix", routes[ at ] }, { "fec", about.at( 1 ) } };
      const auto fec = fecs.find( inWords( about.at( 1 ) ) );
      if ( fec == fecs.end() )
         row[ "fecMissing" ] = true;
      else
         row[ "nexthops" ] = nexthopsOf( *fec );
      rows.push_back( std::move( row ) );
   }
}

void nexthopRows( const std::string & interface, const Json & nexthops, std::vector< Json > & rows ) {
   static const std::map< int, const char * > commands{ { 0, "punt" }, { 1, "forward" }, { 2, "drop" } };
   for ( const auto & [ index, nexthop ] : nexthops.items() ) {
      const auto command = commands.find( nexthop.at( 2 ).get< int >() );
      rows.push_back( { { "interface", interface },
                        { "index", nexthop.at( 1 ) },
                        { "command", command == commands.end() ? inWords( nexthop.at( 2 ) ) : command->second },
                        { "mac", nexthop.at( 3 ) } } );
   }
}

} // namespace

std::vector< std::pair< std::string, Json > > parseAgentText( std::string_view text ) {
   std::vector< std::pair< std::string, Json > > entries;
   Reader reader( text );
   while ( reader.more() ) {
      auto key = reader.quoted();
      reader.expect( ':' );
      entries.emplace_back( std::move( key ), reader.value() );
   }
   return entries;
}

std::vector< Json > rowsOfAgentText( std::string_view text, const Json & intfNames ) {
   std::vector< Json > rows;
   const Json * routes = nullptr;
   const auto entries = parseAgentText( text );
   for ( const auto & [ key, value ] : entries ) {
      std::string number;
      if ( isKey( key, "pModuleFIB", "", number ) )
         routes = &value;
      else if ( isKey( key, "pModuleFEC", "", number ) && routes != nullptr )
         fibRows( *std::exchange( routes, nullptr ), value, rows );
      else if ( isKey( key, "pModule", "NH", number ) )
         nexthopRows( intfNames.value( number, number ), value, rows );
   }
   return rows;
}

void AgentTextAnswer::row( const Json & row ) {
   if ( const auto text = row.find( "agentText" ); text != row.end() )
      text_ += text->get< std::string >();
   else
      to_.row( row );
}

void AgentTextAnswer::end( const Json & end ) {
   auto members = end;
   const auto names = members.value( "interfaces", Json::object() );
   members.erase( "interfaces" );
   for ( const auto & row : rowsOfAgentText( text_, names ) ) to_.row( row );
   to_.end( members );
}

} // namespace Ctl
