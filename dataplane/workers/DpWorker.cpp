#include "DpWorker.h"

#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>

namespace Vexdp {

namespace {

// Turns without a packet before it sleeps.
constexpr unsigned kPatience = 64;
// Where a device can't wake it: the longest that a packet waits.
constexpr auto kNap = std::chrono::microseconds( 150 );
constexpr int kLongestSleep = 100; // ms

void relax() { __builtin_ia32_pause(); }

} // namespace

Worker::Worker( PortTable & ports, const Way & way, bool busy ) :
     ports_( ports ), busy_( busy ), side_( way.side ), walk_( *way.counters, Purpose::live ),
     wake_( eventfd( 0, EFD_NONBLOCK | EFD_CLOEXEC ) ) {
   burst_.reserve( 2 * Device::kBurst );
   thread_ = std::thread( [ this ] { run(); } );
}

Worker::~Worker() {
   ending_ = true;
   const std::uint64_t one = 1;
   if ( write( wake_, &one, sizeof one ) < 0 ) {
   } // It wakes by itself, only later.
   thread_.join();
   close( wake_ );
}

// Both sides write their own flag before they read the other's, so that at least one of them sees the other.
void Worker::begin() {
   while ( true ) {
      working_ = true;
      if ( !held_ ) break;
      waiting_ = true;
      working_ = false;
      held_.wait( true );
   }
   waiting_ = false;
}

void Worker::end() { working_ = false; }

void Worker::hold() {
   held_ = true;
   while ( working_ ) relax();
}

void Worker::letGo() {
   held_ = false;
   held_.notify_all();
}

void Worker::breathe() {
   const bool waited = waiting_;
   letGo();
   while ( waited && waiting_ ) std::this_thread::yield();
   hold();
}

void Worker::portsChanged() {
   lanes_.clear();
   sleepless_ = false;
   for ( const auto & [ name, port ] : ports_.ports() ) {
      lanes_.push_back( { port.device.get(), port.wire.get(), port.kernel } );
      sleepless_ |= port.device->descriptor() < 0;
   }
   ports_.carry();
   wake();
}

void Worker::pausedIs( bool paused ) {
   paused_ = paused;
   wake();
}

void Worker::wake() const {
   const std::uint64_t one = 1;
   if ( write( wake_, &one, sizeof one ) < 0 ) {
   } // It is awake.
}

void Worker::wayIs( const Way & way ) {
   side_ = way.side;
   walk_.countersAre( *way.counters );
}

void Worker::run() {
   pthread_setname_np( pthread_self(), "worker" );
   prctl( PR_SET_TIMERSLACK, 1 );
   unsigned idle = 0;
   auto carried = std::chrono::steady_clock::now();
   while ( !ending_ ) {
      begin();
      const auto count = turn();
      const auto now = std::chrono::steady_clock::now();
      if ( now - carried > std::chrono::milliseconds( kLongestSleep ) ) {
         carried = now;
         ports_.carry();
      }
      idle = count == 0 ? idle + 1 : 0;
      if ( idle > kPatience && !busy_ )
         sleep();
      else
         end();
   }
}

std::size_t Worker::turn() {
   if ( paused_ ) return 0;
   std::size_t count = 0;
   for ( auto & lane : lanes_ ) count += carry( lane );
   for ( auto & lane : lanes_ ) lane.device->flush();
   return count;
}

std::size_t Worker::carry( Lane & lane ) {
   const auto began = __builtin_ia32_rdtsc();
   lane.device->receive( burst_ );
   const auto count = burst_.size();
   if ( count == 0 ) return 0;
   const auto & ends = lane.wire->ends[ side_ ];
   if ( lane.kernel && !lane.device->bare() ) {
      handOut( lane );
   } else if ( auto * const source = lane.kernel ? ends.ownSource : ends.source ) {
      for ( auto & packet : burst_ ) packet.meta.ethernet = !lane.device->bare();
      walk_.run( *source, burst_ );
   }
   burst_.clear();
   ++lane.device->carried.bursts;
   lane.device->carried.cycles += __builtin_ia32_rdtsc() - began;
   return count;
}

// What the kernel sends on an Ethernet interface is finished.
void Worker::handOut( Lane & lane ) {
   if ( lane.wire->device == nullptr ) return;
   for ( auto & packet : burst_ ) lane.wire->device->send( std::move( packet ) );
}

// Whoever wants to hold it need not wait until it wakes. The list is made before: the lanes may change meanwhile.
void Worker::sleep() {
   if ( sleepless_ && !paused_ ) {
      end();
      std::this_thread::sleep_for( kNap );
      return;
   }
   descriptors_.assign( 1, { wake_, POLLIN, 0 } );
   for ( const auto & lane : lanes_ )
      if ( !paused_ ) descriptors_.push_back( { lane.device->descriptor(), POLLIN, 0 } );
   end();
   poll( descriptors_.data(), descriptors_.size(), kLongestSleep );
   std::uint64_t count = 0;
   if ( read( wake_, &count, sizeof count ) < 0 ) {
   } // Nobody woke it.
}

} // namespace Vexdp
