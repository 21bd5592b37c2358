// Traces. A statement names a level from 0 (somebody should look) to 9 (every detail) and the things to say:
//
//    static Gant::TraceHandle traceHandle( "VexL3Sm" );
//    GANT_TRACE( 2, "VexL3Sm:: Create", " intf: ", intfId );
//
// While the handle's level is lower, it costs a compare. Otherwise it goes to the Blipline, a ring that keeps the
// arguments and formats them when somebody reads, and, up to the stream level, to the stream as text at once.
//
// Levels in use: 0 trouble, 1 start and stop, 2 VRFs and interfaces, 3 placeholders, 4 adjacencies and FECs, 6 next
// hops, 8 routes.
#pragma once

#include "GantStrep.h"
#include "GantTypes.h"

#include <cstddef>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Gant {

class TraceHandle;

// One line of the ring, formatted.
struct TraceLine {
   double time; // seconds of the activity clock
   const char * unit;
   int level;
   String text;
};

using TraceStream = void ( * )( const char * unit, int level, const String & text );

inline constexpr int traceLevelMax = 9;
inline constexpr int traceLevelDefault = 3;
inline constexpr int traceStreamLevelDefault = 0;

// Where the streaming trace goes. Nothing: nowhere.
void traceStreamIs( TraceStream stream );

// The newest lines of the ring, oldest first. `unit` empty: of all units.
std::vector< TraceLine > traceLines( size_t most, std::string_view unit = {} );

// One source unit's switch. Handles are static objects; several handles of one unit are set together.
class TraceHandle {
 public:
   explicit TraceHandle( const char * unit );
   TraceHandle( const TraceHandle & ) = delete;
   TraceHandle & operator=( const TraceHandle & ) = delete;

   const char * unit() const { return unit_; }
   int level() const { return level_; }
   int streamLevel() const { return streamLevel_; }
   bool on( int level ) const { return level <= level_; }

   template < typename... Args >
   void write( int level, const Args &... args );

   // Sets every handle of the unit, "*" for all; false when there is none. Levels are cut to 0 to 9; a stream level
   // above the level has no effect beyond it.
   static bool levelIs( std::string_view unit, int level, int streamLevel );
   static std::vector< const TraceHandle * > all();

 private:
   const char * unit_;
   int level_ = traceLevelDefault;
   int streamLevel_ = traceStreamLevelDefault;
   TraceHandle * next_;
};

namespace detail {

// Formats one kept argument, and says where the next one begins.
using TraceFormat = const std::byte * (*)( const std::byte * at, String & out );

// A slot of the ring: what to call for each argument, and its bytes. What does not fit is left out.
class TraceSlot {
 public:
   void begin( const TraceHandle & handle, int level );
   template < typename T >
   void add( const T & value );
   TraceLine line() const;

   const TraceHandle * handle() const { return handle_; }
   String text() const;

 private:
   template < typename T >
   static const std::byte * formatBytes( const std::byte * at, String & out ) {
      T value;
      std::memcpy( static_cast< void * >( &value ), at, sizeof( T ) );
      out += textOf( value );
      return at + sizeof( T );
   }
   static const std::byte * formatLiteral( const std::byte * at, String & out );
   static const std::byte * formatText( const std::byte * at, String & out );
   void addBytes( TraceFormat format, const void * bytes, size_t size );
   void addText( std::string_view text );

   double time_ = 0;
   const TraceHandle * handle_ = nullptr;
   U16 level_ = 0;
   U16 used_ = 0;
   std::byte data_[ 232 ];
};

TraceSlot & traceSlot();
void traceStreamed( const TraceSlot & slot );

template < typename T >
void TraceSlot::add( const T & value ) {
   if constexpr ( std::is_array_v< T > ) {
      // A literal: its address is enough.
      const char * literal = value;
      addBytes( &formatLiteral, &literal, sizeof( literal ) );
   } else if constexpr ( std::is_convertible_v< const T &, std::string_view > ) {
      addText( value );
   } else if constexpr ( std::is_trivially_copyable_v< T > && std::is_default_constructible_v< T > &&
                         sizeof( T ) <= 64 ) {
      addBytes( &formatBytes< T >, &value, sizeof( T ) );
   } else {
      addText( textOf( value ) );
   }
}

} // namespace detail

template < typename... Args >
void TraceHandle::write( int level, const Args &... args ) {
   auto & slot = detail::traceSlot();
   slot.begin( *this, level );
   ( slot.add( args ), ... );
   if ( level <= streamLevel_ ) detail::traceStreamed( slot );
}

} // namespace Gant

#define GANT_TRACE( level, ... )                                                                                       \
   do {                                                                                                                \
      if ( traceHandle.on( level ) ) [[unlikely]]                                                                      \
         traceHandle.write( level, __VA_ARGS__ );                                                                      \
   } while ( false )
