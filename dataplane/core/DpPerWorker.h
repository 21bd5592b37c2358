// What each worker has for itself, and what several share.
//
// A worker is known by its number. There are as many numbers as the data plane may have workers; whoever walks packets
// with all workers held, such as a trace, goes by 0.
#pragma once

#include <sched.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

namespace Vexdp {

inline constexpr std::size_t kCacheLine = 64;
// Each has counters of its own: the number is bounded, so that their memory is.
inline constexpr unsigned kMostWorkers = 64;

// Which of how many workers.
struct Seat {
   unsigned worker = 0;
   unsigned workers = 1;

   // Somebody else may be at the same module.
   bool shared() const { return workers > 1; }
};

// A T for each worker, on cache lines of its own.
template < class T >
class PerWorker {
 public:
   explicit PerWorker( unsigned workers ) : size_( workers ), own_( std::make_unique< Own[] >( workers ) ) {}
   T & operator[]( unsigned worker ) { return own_[ worker ].value; }
   const T & operator[]( unsigned worker ) const { return own_[ worker ].value; }
   unsigned size() const { return size_; }

 private:
   struct alignas( kCacheLine ) Own {
      T value{};
   };
   const unsigned size_;
   const std::unique_ptr< Own[] > own_;
};

// For memory that grows: whole cache lines.
template < class T >
struct CacheLines {
   using value_type = T;
   CacheLines() = default;
   template < class U >
   explicit CacheLines( const CacheLines< U > & ) {}
   T * allocate( std::size_t n ) {
      const auto lines = ( n * sizeof( T ) + kCacheLine - 1 ) / kCacheLine;
      return static_cast< T * >( ::operator new( lines * kCacheLine, std::align_val_t( kCacheLine ) ) );
   }
   void deallocate( T * at, std::size_t ) { ::operator delete( at, std::align_val_t( kCacheLine ) ); }
   friend bool operator==( const CacheLines &, const CacheLines & ) { return true; }
};
template < class T >
using OwnVector = std::vector< T, CacheLines< T > >;

// For the few truths that workers share, for some instructions each.
class SpinLock {
 public:
   void lock() {
      for ( unsigned tries = 0; taken_.exchange( true, std::memory_order_acquire ); ++tries )
         if ( tries % kTries == kTries - 1 )
            sched_yield(); // who has it may wait for this processor
         else
            __builtin_ia32_pause();
   }
   void unlock() { taken_.store( false, std::memory_order_release ); }

 private:
   static constexpr unsigned kTries = 64;
   std::atomic< bool > taken_ = false;
};

// Holds a lock for its life where there are others, and costs nothing where there are none.
template < class Lock >
class OneAtATime {
 public:
   OneAtATime( Lock & lock, bool shared ) : lock_( shared ? &lock : nullptr ) {
      if ( lock_ != nullptr ) lock_->lock();
   }
   ~OneAtATime() {
      if ( lock_ != nullptr ) lock_->unlock();
   }
   OneAtATime( const OneAtATime & ) = delete;
   OneAtATime & operator=( const OneAtATime & ) = delete;

 private:
   Lock * const lock_;
};

// The number's value, which is one higher for the next who asks.
template < class T >
T countUp( std::atomic< T > & number, bool shared ) {
   if ( shared ) return number.fetch_add( 1, std::memory_order_relaxed );
   const T value = number.load( std::memory_order_relaxed );
   number.store( T( value + 1 ), std::memory_order_relaxed );
   return value;
}

} // namespace Vexdp
