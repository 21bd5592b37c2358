#include "HostDescription.h"

#include "GantCleanse.h"
#include "HostDocument.h"
#include "HostFile.h"
#include "HostVerdict.h"

#include <algorithm>
#include <cctype>

namespace Host {

std::string printable( std::string_view text, size_t longest, bool lines ) {
   constexpr char digits[] = "0123456789abcdef";
   std::string out;
   for ( const char c : text.substr( 0, longest ) ) {
      const auto byte = static_cast< unsigned char >( c );
      if ( std::iscntrl( byte ) && !( lines && c == '\n' ) )
         out.append( "\\x" ).append( { digits[ byte >> 4 ], digits[ byte & 15 ] } );
      else
         out += c;
   }
   return text.size() > longest ? out + "..." : out;
}

std::string SourceError::stringValue() const {
   return file + ( line == 0 ? "" : ":" + std::to_string( line ) ) + ": " + text;
}

void SourceErrors::note( SourceError note ) {
   constexpr size_t longest = 10000;
   note.text = printable( note.text, longest, true );
   if ( tell_ ) tell_( note );
}

void SourceErrors::add( SourceError error ) {
   if ( ++count_ > kept ) return;
   error.text = printable( error.text );
   if ( tell_ ) tell_( error );
   errors_.push_back( std::move( error ) );
}

// The entries that were refused, each with those that were refused because it was: one mistyped rule takes its list,
// the interfaces that name the list, and their neighbours.
class Description::WrongEntries {
 public:
   void add( const std::string & kind, const std::string & key, int line, std::string text ) {
      const auto because = std::ranges::find_if( names_, [ & ]( const auto & name ) { return name.isIn( text ); } );
      const size_t root = because == names_.end() ? roots_.size() : because->root;
      if ( because == names_.end() )
         roots_.push_back( { line, std::move( text ), {} } );
      else
         roots_[ root ].hanging.push_back( kind + " " + key + " (line " + std::to_string( line ) + ")" );
      names_.push_back( { wordFor( kind ), key, root } );
   }
   void tell( const std::string & path, SourceErrors & errors ) const {
      for ( const auto & root : roots_ ) errors.add( { path, root.line, root.text + inWords( root.hanging ) } );
   }

 private:
   struct Root {
      int line;
      std::string text;
      std::vector< std::string > hanging;
   };
   // As others speak of an object: an access list as such, an interface by its name alone.
   struct Name {
      const char * word;
      std::string key;
      size_t root; // among roots_

      bool isIn( const std::string & text ) const {
         const auto part = []( char c ) {
            return std::isalnum( static_cast< unsigned char >( c ) ) || c == '-' || c == '_';
         };
         if ( word == nullptr ) return false;
         const auto words = word + key;
         for ( auto at = text.find( words ); at != std::string::npos; at = text.find( words, at + 1 ) ) {
            const auto end = at + words.size();
            const bool more =
                 end < text.size() && ( part( text[ end ] ) || ( text[ end ] == '.' || text[ end ] == '/' ) );
            if ( ( at == 0 || !part( text[ at - 1 ] ) ) && !more ) return true;
         }
         return false;
      }
   };
   // Null: nothing else leans on objects of the kind.
   static const char * wordFor( const std::string & kind ) {
      if ( kind == "vrf" ) return "VRF ";
      if ( kind == "interface" || kind == "tunnel" ) return "";
      if ( kind == "access-list" ) return "access-list ";
      if ( kind == "class-map" ) return "class ";
      if ( kind == "policy-map" ) return "policy-map ";
      return nullptr;
   }
   static std::string inWords( const std::vector< std::string > & hanging ) {
      constexpr size_t most = 10;
      if ( hanging.empty() ) return {};
      std::string words = "; with it goes";
      for ( size_t at = 0; at < std::min( most, hanging.size() ); ++at )
         words += ( at == 0 ? " " : ", " ) + hanging[ at ];
      return hanging.size() <= most ? words : words + " and " + std::to_string( hanging.size() - most ) + " more";
   }

   std::vector< Root > roots_;
   std::vector< Name > names_;
};

std::optional< Description > Description::read( const std::string & path, SourceErrors & errors ) {
   YAML::Node root;
   std::string text;
   if ( auto why = readFile( path, descriptionBounds.bytes, text ); !why.empty() ) {
      errors.add( { path, 0, std::move( why ) } );
      return std::nullopt;
   }
   try {
      root = parseDocument( text, descriptionBounds );
   } catch ( const EntryError & error ) {
      errors.add( { path, error.line(), error.what() } );
      Gant::cleanse( text );
      return std::nullopt;
   }
   Gant::cleanse( text );
   Description description;
   description.path_ = path;
   if ( root.IsNull() ) return description;
   if ( !root.IsMap() ) {
      errors.add( { path, 1, "a description is a map of sections" } );
      return std::nullopt;
   }
   for ( const auto & section : sections() ) description.readSection( *section, root[ section->name() ], errors );
   for ( const auto & pair : root ) {
      const auto name = pair.first.IsScalar() ? pair.first.Scalar() : std::string();
      const bool known = std::ranges::any_of( sections(), [ & ]( const auto & s ) { return s->name() == name; } );
      try {
         if ( name == "route-file" )
            description.readRouteFile( Entry( pair.second ) );
         else if ( name == "kernel-routes" )
            description.kernelRoutes_ = Entry( pair.second ).flag( "kernel-routes" );
         else if ( name == "kernel-offload" )
            description.kernelOffload_ = Entry( pair.second ).flag( "kernel-offload" );
         else if ( !known )
            Entry( pair.first ).fail( "there is no section " + quoted( name ) );
      } catch ( const EntryError & error ) {
         errors.add( { path, error.line(), error.what() } );
      }
   }
   return description;
}

void Description::readSection( const Section & section, const YAML::Node & node, SourceErrors & errors ) {
   if ( !node.IsDefined() || node.IsNull() ) return;
   if ( node.IsSequence() )
      for ( const auto & item : node ) readEntry( section, Entry( item ), errors );
   else
      readEntry( section, Entry( node ), errors );
}

void Description::readEntry( const Section & section, const Entry & entry, SourceErrors & errors ) {
   try {
      const auto key = section.key( entry );
      if ( !keys_[ &section ].insert( key ).second )
         entry.fail( std::string( section.kind() ) + " " + key + " is there twice" );
      entries_.push_back( { &section, entry } );
   } catch ( const EntryError & error ) {
      errors.add( { path_, error.line(), error.what() } );
   }
}

void Description::readRouteFile( const Entry & entry ) {
   entry.only( { "path", "vrf", "nexthops", "ecmp", "groups" } );
   routeFile_.description = path_;
   routeFile_.vrf = entry.vrf();
   if ( entry.has( "path" ) ) routeFile_.path = entry.at( "path" ).text( "a file name" );
   for ( const auto & group : entry.list( "groups" ) ) {
      std::vector< Entry > hops;
      for ( const auto & hop : group.node() ) hops.emplace_back( hop );
      if ( hops.empty() ) group.fail( "a group is a list of next hops" );
      routeFile_.groups.push_back( { hopsOf( hops ), group.line() } );
   }
   const auto hops = hopsOf( entry.list( "nexthops" ) );
   const auto ecmp = entry.number( "ecmp", 1, 4096, 1 );
   if ( !hops.empty() && ecmp > hops.size() )
      entry.at( "ecmp" ).fail( "ecmp " + std::to_string( ecmp ) + " is more than there are next hops" );
   // Each next hop begins a group with those that follow it, in a ring.
   for ( size_t first = 0; first < hops.size(); ++first ) {
      RouteFileConfig::Group group{ {}, entry.at( "nexthops" ).line() };
      for ( size_t at = 0; at < ecmp; ++at ) group.hops.push_back( hops[ ( first + at ) % hops.size() ] );
      routeFile_.groups.push_back( std::move( group ) );
      if ( ecmp == hops.size() ) break;
   }
}

void Description::apply( RouterState & state, SourceErrors & errors ) const {
   // What something else still leans on goes after that has been told anew.
   delOthers( state, nullptr );
   WrongEntries wrong;
   for ( const auto & section : sections() ) replaceAll( state, *section, errors, wrong );
   wrong.tell( path_, errors );
   delOthers( state, &errors );
   for ( const auto & told : entries_ ) told.section->forget( told.entry );
}

void Description::delOthers( RouterState & state, SourceErrors * errors ) const {
   static const std::set< std::string > none;
   for ( auto section = sections().rbegin(); section != sections().rend(); ++section ) {
      const auto keys = keys_.find( section->get() );
      const auto refusals =
           ( *section )->delOthers( state, Teller::description(), keys == keys_.end() ? none : keys->second );
      if ( errors == nullptr ) continue;
      for ( const auto & refusal : refusals ) errors->add( { path_, 0, refusal.message } );
   }
}

// An entry may have to wait for another one of its section: an address that moves between interfaces is free only once
// the other one has left it.
void Description::replaceAll( RouterState & state, const Section & section, SourceErrors & errors,
                              WrongEntries & wrong ) const {
   struct Refused {
      const Told * told;
      int line;
      std::string text;
   };
   std::vector< const Told * > waiting;
   for ( const auto & told : entries_ )
      if ( told.section == &section ) waiting.push_back( &told );
   std::vector< Refused > refusals;
   while ( true ) {
      refusals.clear();
      for ( const auto * told : waiting ) {
         try {
            auto result = section.replace( state, told->entry, Teller::description() );
            if ( !isDone( result ) )
               refusals.push_back( { told, told->entry.line(), std::move( result.message ) } );
            else if ( !result.message.empty() )
               errors.note( { path_, told->entry.line(), std::move( result.message ) } );
         } catch ( const EntryError & error ) {
            refusals.push_back( { told, error.line(), error.what() } );
         }
      }
      if ( refusals.empty() || refusals.size() == waiting.size() ) break;
      waiting.clear();
      for ( const auto & refusal : refusals ) waiting.push_back( refusal.told );
   }
   for ( auto & refusal : refusals )
      wrong.add( section.kind(), section.key( refusal.told->entry ), refusal.line, std::move( refusal.text ) );
}

} // namespace Host
