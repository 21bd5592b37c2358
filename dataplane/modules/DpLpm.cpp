#include "DpLpm.h"

#include <algorithm>
#include <cassert>
#include <new>
#include <span>

namespace Vexdp {

namespace {

constexpr std::size_t kRootSize = 1u << 16;

std::size_t rootAt( Ipv4Addr addr ) { return addr.value >> 16; }
std::size_t level2At( Ipv4Addr addr ) { return addr.value >> 8 & 255; }
std::size_t level3At( Ipv4Addr addr ) { return addr.value & 255; }

// The longest prefix that stands at the level above that of a length.
unsigned lengthAbove( unsigned len ) { return len > 24 ? 24 : len > 16 ? 16 : 0; }

// A block without prefixes, in place of what was there.
LpmEntry blockBelow( LpmPool & pool, LpmEntry above ) {
   const auto block = pool.take( 1 );
   pool.at( block ).above = above;
   return { 0, true, block };
}

// The other way round.
LpmEntry withoutBlock( LpmPool & pool, LpmEntry owner ) {
   const auto above = pool.at( owner.number ).above;
   pool.giveBack( owner.number );
   return above;
}

// Where the range is a run, and stays one: most changes of a route, and the end of many. False, and no change: it is
// not so.
template < typename Change >
bool replaceRun( LpmBlock & block, unsigned from, unsigned end, Change & change ) {
   auto & run = block.at( from );
   if ( run.isBlock ) return false;
   const auto fresh = change( run );
   if ( fresh.isBlock || ( from != 0 && block.at( from - 1 ) == fresh ) ) return false;
   if ( end < LpmBlock::kPlaces && block.at( end ) == fresh ) return false;
   run = fresh;
   return true;
}

// Of the owner's block: what it has in the range becomes what `change` makes of it, and the block as large as it must
// be. A block that is twice as large as that keeps its place: it may grow again.
template < typename Change >
void replaceRange( LpmPool & pool, LpmEntry & owner, unsigned from, unsigned count, Change change ) {
   auto & block = pool.at( owner.number );
   const auto end = from + count;
   if ( block.isRun( from, end ) && replaceRun( block, from, end, change ) ) return;
   LpmBlock::Runs fresh( from, std::min( end + 1, LpmBlock::kPlaces ) );
   if ( from != 0 ) fresh.behind( block.at( from - 1 ) );
   for ( auto place = from; place < end; place = block.endOf( place ) ) fresh.add( place, change( block.at( place ) ) );
   if ( end < LpmBlock::kPlaces ) fresh.add( end, block.at( end ) );
   const auto runs = block.runsWith( fresh );
   if ( const auto order = LpmBlock::orderFor( std::max( runs, block.runs() ) );
        order > block.order || order + 1u < block.order )
      owner.number = pool.moved( owner.number, std::max( runs, block.runs() ) );
   pool.at( owner.number ).replace( fresh );
}

// The same for the prefixes there: of a place with a block below, the block has it.
template < typename Change >
void writeRange( LpmPool & pool, LpmEntry & owner, unsigned from, unsigned count, int users, Change change ) {
   replaceRange( pool, owner, from, count, [ & ]( LpmEntry entry ) {
      if ( !entry.isBlock ) return change( entry );
      auto & above = pool.at( entry.number ).above;
      above = change( above );
      return entry;
   } );
   auto & block = pool.at( owner.number );
   block.users = std::uint16_t( block.users + users );
}

} // namespace

Lpm::Lpm( LpmPool & pool ) :
     pool_( pool ), root_( static_cast< LpmEntry * >( std::calloc( kRootSize, sizeof( LpmEntry ) ) ), &std::free ) {
   if ( !root_ ) throw std::bad_alloc();
}

Lpm::~Lpm() {
   for ( const auto & entry : std::span( root_.get(), kRootSize ) ) giveBackBelow( entry );
}

void Lpm::giveBackBelow( const LpmEntry & owner ) {
   if ( !owner.isBlock ) return;
   const auto & block = pool_.at( owner.number );
   for ( const auto & entry : std::span( block.entries(), block.runs() ) ) giveBackBelow( entry );
   pool_.giveBack( owner.number );
}

void Lpm::expect( Ipv4Prefix prefix ) {
   rules_.prefetch( keyOf( prefix ) );
   __builtin_prefetch( &root_[ rootAt( prefix.addr ) ] );
   const auto before = std::exchange( expected_[ expecting_++ % expected_.size() ], prefix.addr );
   const auto root = root_[ rootAt( before ) ];
   if ( root.isBlock ) __builtin_prefetch( &pool_.at( root.number ), 1 );
}

Lpm::Insert Lpm::insert( Ipv4Prefix prefix, std::uint32_t value, bool room, std::uint32_t * was ) {
   assert( value < kMostValues );
   const auto [ rule, added ] = rules_.try_emplace( keyOf( prefix ), value );
   if ( added && !room ) {
      rules_.erase( rule );
      return Insert::full;
   }
   if ( !added && was != nullptr ) *was = rule->second;
   if ( !added && rule->second == value ) return Insert::replaced;
   rule->second = value;
   if ( added ) ++byLength_[ prefix.len ];
   if ( prefix.len == 0 ) {
      default_ = value;
   } else {
      const LpmEntry fresh{ prefix.len, false, value };
      write( prefix, added ? 1 : 0, [ fresh ]( LpmEntry at ) { return at.depth <= fresh.depth ? fresh : at; } );
   }
   return added ? Insert::added : Insert::replaced;
}

bool Lpm::remove( Ipv4Prefix prefix, std::uint32_t * was ) {
   const auto rule = rules_.find( keyOf( prefix ) );
   if ( rule == rules_.end() ) return false;
   if ( was != nullptr ) *was = rule->second;
   rules_.erase( rule );
   // Memory of a table that was large. Packets wait meanwhile: so there is little left to move.
   if ( rules_.capacity() > 65536 && rules_.size() < rules_.capacity() / 256 ) rules_.rehash( 0 );
   --byLength_[ prefix.len ];
   if ( prefix.len == 0 ) {
      default_.reset();
      return true;
   }
   const auto back = shorterAtLevel( prefix );
   write( prefix, -1, [ back, len = prefix.len ]( LpmEntry at ) { return at.depth == len ? back : at; } );
   return true;
}

template < typename Change >
void Lpm::write( Ipv4Prefix prefix, int users, Change change ) {
   auto & root = root_[ rootAt( prefix.addr ) ];
   if ( prefix.len <= 16 ) {
      for ( auto & entry : std::span( &root, std::size_t( 1 ) << ( 16 - prefix.len ) ) ) {
         auto & own = entry.isBlock ? pool_.at( entry.number ).above : entry;
         own = change( own );
      }
      return;
   }
   if ( !root.isBlock ) root = blockBelow( pool_, root );
   if ( prefix.len <= 24 )
      writeRange( pool_, root, level2At( prefix.addr ), 1u << ( 24 - prefix.len ), users, change );
   else
      writeHosts( root, prefix, users, change );
   if ( pool_.at( root.number ).users == 0 ) root = withoutBlock( pool_, root );
}

template < typename Change >
void Lpm::writeHosts( LpmEntry & root, Ipv4Prefix prefix, int users, Change change ) {
   const auto place = level2At( prefix.addr );
   if ( const auto present = pool_.at( root.number ).at( place ); !present.isBlock ) {
      const auto below = blockBelow( pool_, present );
      replaceRange( pool_, root, place, 1, [ below ]( LpmEntry ) { return below; } );
      ++pool_.at( root.number ).users;
   }
   auto & owner = pool_.at( root.number ).at( place );
   writeRange( pool_, owner, level3At( prefix.addr ), 1u << ( 32 - prefix.len ), users, change );
   if ( pool_.at( owner.number ).users != 0 ) return;
   const auto above = withoutBlock( pool_, owner );
   replaceRange( pool_, root, place, 1, [ above ]( LpmEntry ) { return above; } );
   --pool_.at( root.number ).users;
}

LpmEntry Lpm::shorterAtLevel( Ipv4Prefix prefix ) const {
   for ( unsigned len = prefix.len - 1u; len > lengthAbove( prefix.len ); --len ) {
      if ( byLength_[ len ] == 0 ) continue;
      const auto rule = rules_.find( keyOf( { { prefix.addr.value & maskOf( len ) }, std::uint8_t( len ) } ) );
      if ( rule != rules_.end() ) return { len, false, rule->second };
   }
   return {};
}

std::optional< Lpm::Route > Lpm::lookup( Ipv4Addr addr ) const {
   Match match;
   lookup( std::span( &addr, 1 ), &match );
   if ( match.value == kNoMatch ) return std::nullopt;
   return Route{ { { addr.value & maskOf( match.len ) }, match.len }, match.value };
}

Lpm::Match Lpm::matchOf( LpmEntry best ) const {
   if ( best.depth == 0 ) return { default_.value_or( kNoMatch ), 0 };
   return { best.number, std::uint8_t( best.depth ) };
}

void Lpm::lookup( std::span< const Ipv4Addr > addrs, Match * matches ) const {
   assert( addrs.size() <= kMostAtOnce );
   // Those that are not at their end, and the block of each.
   std::array< std::uint8_t, kMostAtOnce > open;
   std::array< const LpmBlock *, kMostAtOnce > blocks;
   std::array< const LpmEntry *, kMostAtOnce > entries;
   std::size_t count = 0;
   for ( const auto addr : addrs ) __builtin_prefetch( &root_[ rootAt( addr ) ] );
   for ( std::size_t i = 0; i < addrs.size(); ++i ) {
      const auto entry = root_[ rootAt( addrs[ i ] ) ];
      if ( !entry.isBlock ) {
         matches[ i ] = matchOf( entry );
         continue;
      }
      open[ count ] = std::uint8_t( i );
      blocks[ count ] = &pool_.at( entry.number );
      __builtin_prefetch( blocks[ count++ ] );
   }
   for ( std::size_t i = 0; i < count; ++i ) {
      entries[ i ] = &blocks[ i ]->at( level2At( addrs[ open[ i ] ] ) );
      __builtin_prefetch( entries[ i ] );
   }
   std::size_t deeper = 0;
   std::array< LpmEntry, kMostAtOnce > best;
   for ( std::size_t i = 0; i < count; ++i ) {
      const auto entry = *entries[ i ];
      if ( !entry.isBlock ) {
         matches[ open[ i ] ] = matchOf( entry.depth != 0 ? entry : blocks[ i ]->above );
         continue;
      }
      best[ deeper ] = blocks[ i ]->above;
      open[ deeper ] = open[ i ];
      blocks[ deeper ] = &pool_.at( entry.number );
      __builtin_prefetch( blocks[ deeper++ ] );
   }
   for ( std::size_t i = 0; i < deeper; ++i ) {
      if ( blocks[ i ]->above.depth != 0 ) best[ i ] = blocks[ i ]->above;
      entries[ i ] = &blocks[ i ]->at( level3At( addrs[ open[ i ] ] ) );
      __builtin_prefetch( entries[ i ] );
   }
   for ( std::size_t i = 0; i < deeper; ++i )
      matches[ open[ i ] ] = matchOf( entries[ i ]->depth != 0 ? *entries[ i ] : best[ i ] );
}

std::optional< std::uint32_t > Lpm::exact( Ipv4Prefix prefix ) const {
   const auto rule = rules_.find( keyOf( prefix ) );
   if ( rule == rules_.end() ) return std::nullopt;
   return rule->second;
}

std::vector< Lpm::Route > Lpm::routes() const {
   std::vector< Route > routes;
   routes.reserve( rules_.size() );
   for ( const auto & [ key, value ] : rules_ ) routes.push_back( { prefixOf( key ), value } );
   return routes;
}

} // namespace Vexdp
