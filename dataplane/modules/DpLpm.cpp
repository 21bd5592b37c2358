#include "DpLpm.h"

#include <sys/mman.h>

#include <algorithm>
#include <cassert>
#include <cstring>
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

} // namespace

// Block 0 is never given out.
LpmPool::LpmPool() {
   grow();
   free_.erase( std::ranges::find( free_, Index( 0 ) ) );
}

LpmPool::~LpmPool() { assert( inUse_ == 0 ); }

LpmPool::Index LpmPool::take() {
   assert( inUse_ < kMaxBlocks );
   if ( free_.empty() ) grow();
   const Index block = free_.back();
   free_.pop_back();
   ++inUse_;
   return block;
}

void LpmPool::giveBack( Index block ) {
   assert( std::all_of( entries( block ), entries( block ) + kBlockSize,
                        []( const LpmEntry & entry ) { return entry.depth == 0 && entry.child == 0; } ) );
   users_[ block ] = 0;
   free_.push_back( block );
   --inUse_;
}

// A chunk is one huge page, so that a look-up in a full table misses few translations.
void LpmPool::grow() {
   static_assert( sizeof( Chunk ) == 2u << 20 );
   void * memory = std::aligned_alloc( sizeof( Chunk ), sizeof( Chunk ) );
   if ( memory == nullptr ) throw std::bad_alloc();
   madvise( memory, sizeof( Chunk ), MADV_HUGEPAGE );
   std::memset( memory, 0, sizeof( Chunk ) );
   chunks_.emplace_back( static_cast< Chunk * >( memory ) );
   users_.resize( chunks_.size() * kChunk );
   const auto first = Index( ( chunks_.size() - 1 ) * kChunk );
   for ( auto block = Index( first + kChunk ); block-- > first; ) free_.push_back( block );
}

Lpm::Lpm( LpmPool & pool ) :
     pool_( pool ), root_( static_cast< LpmEntry * >( std::calloc( kRootSize, sizeof( LpmEntry ) ) ), &std::free ) {
   if ( !root_ ) throw std::bad_alloc();
}

Lpm::~Lpm() {
   const auto release = [ this ]( LpmPool::Index block ) {
      std::fill_n( pool_.entries( block ), LpmPool::kBlockSize, LpmEntry{} );
      pool_.giveBack( block );
   };
   for ( std::size_t i = 0; i < kRootSize; ++i ) {
      const LpmPool::Index level2 = root_[ i ].child;
      if ( level2 == 0 ) continue;
      for ( std::size_t j = 0; j < LpmPool::kBlockSize; ++j )
         if ( const LpmPool::Index level3 = pool_.entries( level2 )[ j ].child; level3 != 0 ) release( level3 );
      release( level2 );
   }
}

Lpm::Insert Lpm::insert( Ipv4Prefix prefix, std::uint32_t value, bool room ) {
   const auto [ rule, added ] = rules_.try_emplace( keyOf( prefix ), value );
   if ( added && !room ) {
      rules_.erase( rule );
      return Insert::full;
   }
   if ( !added && rule->second == value ) return Insert::replaced;
   rule->second = value;
   if ( added ) ++byLength_[ prefix.len ];
   if ( prefix.len == 0 ) {
      default_ = value;
   } else {
      const auto range = rangeOf( prefix );
      const auto block = range.level3 != 0 ? range.level3 : range.level2;
      if ( added && block != 0 ) pool_.userAdd( block );
      for ( auto & entry : std::span( range.first, range.count ) )
         if ( entry.depth <= prefix.len ) entry = { value, prefix.len, entry.child };
   }
   return added ? Insert::added : Insert::replaced;
}

bool Lpm::remove( Ipv4Prefix prefix ) {
   if ( rules_.erase( keyOf( prefix ) ) == 0 ) return false;
   // Memory of a table that was large. Packets wait meanwhile: so there is little left to move.
   if ( rules_.capacity() > 65536 && rules_.size() < rules_.capacity() / 256 ) rules_.rehash( 0 );
   --byLength_[ prefix.len ];
   if ( prefix.len == 0 ) {
      default_.reset();
      return true;
   }
   const auto range = rangeOf( prefix );
   const auto back = shorterAtLevel( prefix );
   for ( auto & entry : std::span( range.first, range.count ) )
      if ( entry.depth == prefix.len ) entry = { back.value, back.depth, entry.child };
   freeUnused( prefix, range );
   return true;
}

Lpm::Range Lpm::rangeOf( Ipv4Prefix prefix ) {
   auto & root = root_[ rootAt( prefix.addr ) ];
   if ( prefix.len <= 16 ) return { &root, std::size_t( 1 ) << ( 16 - prefix.len ) };

   if ( root.child == 0 ) root.child = pool_.take();
   const LpmPool::Index level2 = root.child;
   auto & middle = pool_.entries( level2 )[ level2At( prefix.addr ) ];
   if ( prefix.len <= 24 ) return { &middle, std::size_t( 1 ) << ( 24 - prefix.len ), level2 };

   if ( middle.child == 0 ) {
      middle.child = pool_.take();
      pool_.userAdd( level2 );
   }
   const LpmPool::Index level3 = middle.child;
   auto & leaf = pool_.entries( level3 )[ level3At( prefix.addr ) ];
   return { &leaf, std::size_t( 1 ) << ( 32 - prefix.len ), level2, level3 };
}

void Lpm::freeUnused( Ipv4Prefix prefix, const Range & range ) {
   if ( range.level3 != 0 ) {
      if ( !pool_.userDel( range.level3 ) ) return;
      pool_.entries( range.level2 )[ level2At( prefix.addr ) ].child = 0;
      pool_.giveBack( range.level3 );
   }
   if ( range.level2 != 0 && pool_.userDel( range.level2 ) ) {
      root_[ rootAt( prefix.addr ) ].child = 0;
      pool_.giveBack( range.level2 );
   }
}

LpmEntry Lpm::shorterAtLevel( Ipv4Prefix prefix ) const {
   for ( unsigned len = prefix.len - 1u; len > lengthAbove( prefix.len ); --len ) {
      if ( byLength_[ len ] == 0 ) continue;
      const auto rule = rules_.find( keyOf( { { prefix.addr.value & maskOf( len ) }, std::uint8_t( len ) } ) );
      if ( rule != rules_.end() ) return { rule->second, len, 0 };
   }
   return {};
}

std::optional< Lpm::Route > Lpm::lookup( Ipv4Addr addr ) const {
   LpmEntry best{};
   auto entry = root_[ rootAt( addr ) ];
   if ( entry.depth != 0 ) best = entry;
   if ( entry.child != 0 ) {
      entry = pool_.entries( entry.child )[ level2At( addr ) ];
      if ( entry.depth != 0 ) best = entry;
      if ( entry.child != 0 ) {
         entry = pool_.entries( entry.child )[ level3At( addr ) ];
         if ( entry.depth != 0 ) best = entry;
      }
   }
   if ( best.depth == 0 ) {
      if ( !default_ ) return std::nullopt;
      best.value = *default_;
   }
   return Route{ { { addr.value & maskOf( best.depth ) }, std::uint8_t( best.depth ) }, best.value };
}

void Lpm::fetch( std::span< const Ipv4Addr > addrs ) const {
   assert( addrs.size() <= kMostFetched );
   std::array< const LpmEntry *, kMostFetched > below;
   for ( const auto addr : addrs ) __builtin_prefetch( &root_[ rootAt( addr ) ] );
   std::size_t deeper = 0;
   std::array< Ipv4Addr, kMostFetched > deep;
   for ( const auto addr : addrs ) {
      const auto & entry = root_[ rootAt( addr ) ];
      if ( entry.child == 0 ) continue;
      deep[ deeper ] = addr;
      below[ deeper ] = &pool_.entries( entry.child )[ level2At( addr ) ];
      __builtin_prefetch( below[ deeper++ ] );
   }
   for ( std::size_t i = 0; i < deeper; ++i )
      if ( below[ i ]->child != 0 ) __builtin_prefetch( &pool_.entries( below[ i ]->child )[ level3At( deep[ i ] ) ] );
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
