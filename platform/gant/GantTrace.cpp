#include "GantTrace.h"

#include "GantActivity.h"

#include <algorithm>
#include <array>
#include <memory>

namespace Gant {

namespace {

TraceHandle * handles = nullptr;
TraceStream theStream = nullptr;

constexpr size_t blips = 8192;

// The Blipline: the newest `blips` lines.
struct Blipline {
   std::unique_ptr< std::array< detail::TraceSlot, blips > > slots =
        std::make_unique< std::array< detail::TraceSlot, blips > >();
   size_t written = 0;
};

Blipline & blipline() {
   static Blipline ring;
   return ring;
}

} // namespace

TraceHandle::TraceHandle( const char * unit ) : unit_( unit ), next_( handles ) { handles = this; }

bool TraceHandle::levelIs( std::string_view unit, int level, int streamLevel ) {
   bool found = false;
   for ( auto * handle = handles; handle != nullptr; handle = handle->next_ ) {
      if ( unit != "*" && unit != handle->unit_ ) continue;
      handle->level_ = std::clamp( level, 0, traceLevelMax );
      handle->streamLevel_ = std::clamp( streamLevel, 0, traceLevelMax );
      found = true;
   }
   return found;
}

std::vector< const TraceHandle * > TraceHandle::all() {
   std::vector< const TraceHandle * > out;
   for ( const auto * handle = handles; handle != nullptr; handle = handle->next_ ) out.push_back( handle );
   std::ranges::sort( out, []( const auto * a, const auto * b ) { return std::string_view( a->unit() ) < b->unit(); } );
   return out;
}

void traceStreamIs( TraceStream stream ) { theStream = stream; }

std::vector< TraceLine > traceLines( size_t most, std::string_view unit ) {
   const auto & ring = blipline();
   std::vector< TraceLine > out;
   const auto kept = std::min( ring.written, blips );
   for ( size_t back = 1; back <= kept && out.size() < most; ++back ) {
      const auto & slot = ( *ring.slots )[ ( ring.written - back ) % blips ];
      if ( unit.empty() || unit == slot.handle()->unit() ) out.push_back( slot.line() );
   }
   std::ranges::reverse( out );
   return out;
}

namespace detail {

TraceSlot & traceSlot() {
   auto & ring = blipline();
   return ( *ring.slots )[ ring.written++ % blips ];
}

void traceStreamed( const TraceSlot & slot ) {
   if ( theStream == nullptr ) return;
   const auto line = slot.line();
   theStream( line.unit, line.level, line.text );
}

void TraceSlot::begin( const TraceHandle & handle, int level ) {
   time_ = activityManager()->now();
   handle_ = &handle;
   level_ = static_cast< U16 >( level );
   used_ = 0;
}

void TraceSlot::addBytes( TraceFormat format, const void * bytes, size_t size ) {
   if ( used_ + sizeof( format ) + size > sizeof( data_ ) ) return;
   std::memcpy( data_ + used_, &format, sizeof( format ) );
   std::memcpy( data_ + used_ + sizeof( format ), bytes, size );
   used_ = static_cast< U16 >( used_ + sizeof( format ) + size );
}

void TraceSlot::addText( std::string_view text ) {
   const auto overhead = sizeof( TraceFormat ) + sizeof( U16 );
   const auto room = sizeof( data_ ) - used_;
   if ( room <= overhead ) return;
   const auto size = static_cast< U16 >( std::min( text.size(), room - overhead ) );
   std::byte kept[ sizeof( data_ ) ];
   std::memcpy( kept, &size, sizeof( size ) );
   std::memcpy( kept + sizeof( size ), text.data(), size );
   addBytes( &formatText, kept, sizeof( size ) + size );
}

const std::byte * TraceSlot::formatLiteral( const std::byte * at, String & out ) {
   const char * literal;
   std::memcpy( &literal, at, sizeof( literal ) );
   out += literal;
   return at + sizeof( literal );
}

const std::byte * TraceSlot::formatText( const std::byte * at, String & out ) {
   U16 size;
   std::memcpy( &size, at, sizeof( size ) );
   out.append( reinterpret_cast< const char * >( at + sizeof( size ) ), size );
   return at + sizeof( size ) + size;
}

String TraceSlot::text() const {
   String out;
   for ( const std::byte * at = data_; at < data_ + used_; ) {
      TraceFormat format;
      std::memcpy( &format, at, sizeof( format ) );
      at = format( at + sizeof( format ), out );
   }
   return out;
}

TraceLine TraceSlot::line() const { return { time_, handle_->unit(), level_, text() }; }

} // namespace detail

} // namespace Gant
