#include "HostRouteFile.h"

#include "HostEntry.h"

namespace Host {

namespace {

constexpr size_t knownMax = 65536;

template < typename P >
constexpr auto familyOf =
     std::is_same_v< P, Kynet::Prefix > ? Kynet::AddressFamily::ipv4_ : Kynet::AddressFamily::ipv6_;

constexpr std::string_view blanks = " \t\r,";

// The next word, which is taken off the text.
std::string_view word( std::string_view & text ) {
   const auto begin = text.find_first_not_of( blanks );
   if ( begin == std::string::npos ) return text = {};
   const auto end = std::min( text.find_first_of( blanks, begin ), text.size() );
   const auto found = text.substr( begin, end - begin );
   text.remove_prefix( end );
   return found;
}

// Gives what is wrong, empty when nothing is.
std::string parseWays( std::string_view text, Ways & ways ) {
   while ( true ) {
      const auto hopText = word( text );
      if ( hopText.empty() ) return {};
      if ( hopText == "blackhole" ) {
         if ( !ways.hops.empty() || !word( text ).empty() ) return "\"blackhole\" stands alone";
         ways.kind = Mirel::RouteType::drop();
         return {};
      }
      Hop hop;
      if ( auto wrong = parseHop( hopText, hop ); !wrong.empty() ) return wrong;
      ways.hops.push_back( std::move( hop ) );
   }
}

} // namespace

RouteFile::RouteFile( RouterState & state, RouteFileConfig config, SourceErrors & errors ) :
     state_( state ), config_( std::move( config ) ),
     errors_( errors ), v4_{ state.routes4() }, v6_{ state.routes6() } {
   const auto vrfId = state_.vrfBook().id( config_.vrf );
   if ( config_.path.empty() ) {
      v4_.book.mark( Teller::routeFile() );
      v6_.book.mark( Teller::routeFile() );
      phase_ = Phase::removing;
   } else if ( !vrfId ) {
      errors_.add( { config_.path, 0, textOf( config_.vrf ) + " does not exist" } );
      phase_ = Phase::over;
   } else if ( const auto reason = in_.open( config_.path ); !reason.empty() ) {
      errors_.add( { config_.path, 0, reason } );
      phase_ = Phase::over;
   } else {
      vrfId_ = *vrfId;
      v4_.book.mark( Teller::routeFile() );
      v6_.book.mark( Teller::routeFile() );
      makeGroups( v4_, true );
      makeGroups( v6_, false );
   }
}

RouteFile::~RouteFile() {
   forget( v4_ );
   forget( v6_ );
}

template < typename P >
void RouteFile::makeGroups( Family< P > & family, bool tellErrors ) {
   for ( const auto & group : config_.groups ) {
      auto made = acquire( family, { Mirel::RouteType::forward(), group.hops } );
      if ( made.fecId == 0 && tellErrors )
         errors_.add( { config_.description, group.line, "route-file: " + made.wrong } );
      else if ( auto text = state_.shortOf( vrfId_, { made.kind, group.hops } ); !text.empty() && tellErrors )
         errors_.note( { config_.description, group.line, "route-file: " + text } );
      // A prefix goes to its group or nowhere: groups that are wrong keep their place.
      family.groups.push_back( std::move( made ) );
   }
}

template < typename P >
RouteFile::Known RouteFile::acquire( Family< P > & family, const Ways & ways ) {
   auto wrong = state_.wrongWays( familyOf< P >, ways );
   if ( !wrong.empty() ) return { ways.kind, 0, std::move( wrong ) };
   return { ways.kind, family.book.fecs().acquire( vrfId_, ways ), {} };
}

template < typename P >
void RouteFile::forget( Family< P > & family ) {
   for ( const auto & group : family.groups )
      if ( group.fecId != 0 ) family.book.fecs().release( group.fecId );
   for ( const auto & [ text, known ] : family.known )
      if ( known.fecId != 0 ) family.book.fecs().release( known.fecId );
   family.groups.clear();
   family.known.clear();
}

bool RouteFile::step( size_t most ) {
   while ( phase_ == Phase::reading ) {
      if ( most-- == 0 ) return true;
      std::string_view text;
      if ( const auto next = in_.next( text ); next != LineFile::Next::line ) {
         end( next );
         return phase_ != Phase::over;
      }
      ++line_;
      line( text.substr( 0, text.find( '#' ) ) );
   }
   if ( phase_ == Phase::removing && !v4_.book.sweep( Teller::routeFile(), v4_.at, most ) &&
        !v6_.book.sweep( Teller::routeFile(), v6_.at, most ) )
      phase_ = Phase::over;
   return phase_ != Phase::over;
}

void RouteFile::end( LineFile::Next how ) {
   phase_ = how == LineFile::Next::end ? Phase::removing : Phase::over;
   if ( phase_ == Phase::removing ) return;
   const auto why = how == LineFile::Next::torn      ? line_ == 0 ? "it is empty" : "its last line has no end"
                    : how == LineFile::Next::changed ? "it changed while it was read"
                                                     : in_.why();
   errors_.add( { config_.path, 0, std::string( why ) + ": no route of it is taken away" } );
}

void RouteFile::line( std::string_view text ) {
   const auto prefixText = word( text );
   if ( prefixText.empty() ) return;
   if ( const auto prefix = Kynet::Prefix::fromString( prefixText ) )
      route( v4_, *prefix, text );
   else if ( const auto prefix6 = Kynet::Ip6Prefix::fromString( prefixText ) )
      route( v6_, *prefix6, text );
   else
      error( quoted( prefixText ) + " is not an IP prefix" );
}

template < typename P >
void RouteFile::route( Family< P > & family, const P & prefix, std::string_view hops ) {
   if ( auto wrong = wrongPrefix( prefix ); !wrong.empty() ) return error( prefix.stringValue() + ": " + wrong );
   const auto & ways = waysOf( family, prefix, hops );
   if ( ways.fecId == 0 ) return error( prefix.stringValue() + ": " + ways.wrong );
   if ( family.book.fresh( vrfId_, prefix, Teller::routeFile() ) )
      return error( prefix.stringValue() + ": an earlier line has the prefix already" );
   family.book.routeIs( vrfId_, prefix, Teller::routeFile(), ways.kind, ways.fecId );
   // What a command had put in its place.
   if ( family.book.routes( Teller::command() ) != 0 ) family.book.routeDel( vrfId_, prefix, Teller::command() );
}

template < typename P >
const RouteFile::Known & RouteFile::waysOf( Family< P > & family, const P & prefix, std::string_view hops ) {
   static const Known none{ {}, 0, "it has no next hops, and the description has none to spread it over" };
   const auto first = hops.find_first_not_of( blanks );
   if ( first == std::string::npos )
      return family.groups.empty() ? none : family.groups[ prefix.hash() % family.groups.size() ];
   std::string text( hops.substr( first ) );
   if ( const auto at = family.known.find( text ); at != family.known.end() ) return at->second;
   if ( family.known.size() >= knownMax ) {
      for ( const auto & [ former, known ] : family.known )
         if ( known.fecId != 0 ) family.book.fecs().release( known.fecId );
      family.known.clear();
   }
   Ways ways;
   auto wrong = parseWays( text, ways );
   auto known = wrong.empty() ? acquire( family, ways ) : Known{ ways.kind, 0, std::move( wrong ) };
   if ( known.fecId != 0 && notes_ < SourceErrors::kept )
      if ( auto less = state_.shortOf( vrfId_, ways ); !less.empty() ) {
         ++notes_;
         errors_.note( { config_.path, line_, prefix.stringValue() + ": " + less } );
      }
   return family.known.emplace( std::move( text ), std::move( known ) ).first->second;
}

void RouteFile::error( std::string text ) { errors_.add( { config_.path, line_, std::move( text ) } ); }

} // namespace Host
