#include "DpWorker.h"

#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace Vexdp {

namespace {

// Turns without a packet before it sleeps.
constexpr unsigned kPatience = 64;
// Where a device can't wake it: the longest that a packet waits.
constexpr auto kNap = std::chrono::microseconds( 150 );
constexpr int kLongestSleep = 100; // ms

} // namespace

Worker::Worker( const Common & common, const Seat & seat, const Way & way ) :
     common_( common ), number_( seat.worker ), side_( way.side ), walk_( *way.counters, Purpose::live, seat ),
     wake_( eventfd( 0, EFD_NONBLOCK | EFD_CLOEXEC ) ) {
   burst_.reserve( 2 * Device::kBurst );
   thread_ = std::thread( [ this ] { run(); } );
}

Worker::~Worker() {
   ending_ = true;
   wake();
   thread_.join();
   close( wake_ );
}

// Both sides write their own flag before they read the other's, so that at least one of them sees the other.
void Worker::begin() {
   while ( true ) {
      working_ = true;
      if ( !common_.held ) break;
      waiting_ = true;
      working_ = false;
      common_.held.wait( true );
   }
   waiting_ = false;
}

void Worker::end() { working_ = false; }

void Worker::lanesAre( std::vector< Lane > lanes, std::vector< Device * > devices, bool keepsCarriers ) {
   lanes_ = std::move( lanes );
   devices_ = std::move( devices );
   keepsCarriers_ = keepsCarriers;
   sleepless_ =
        std::ranges::any_of( lanes_, []( const Lane & lane ) { return lane.device->descriptor( lane.queue ) < 0; } );
   napThen_ = naps_;
   wake();
}

void Worker::pausedIs( bool paused ) {
   paused_ = paused;
   wake();
}

void Worker::wake() const {
   const std::uint64_t one = 1;
   if ( write( wake_, &one, sizeof one ) < 0 ) {
   } // It is awake, or wakes by itself, only later.
}

void Worker::wayIs( const Way & way ) {
   side_ = way.side;
   walk_.countersAre( *way.counters );
}

// Its packet buffers come from a store of its own then.
void Worker::joinEal() {
   triedEal_ = true;
   inEal_ = Eal::join();
}

void Worker::run() {
   pthread_setname_np( pthread_self(), fmt::format( "worker {}", number_ ).c_str() );
   prctl( PR_SET_TIMERSLACK, 1 );
   unsigned idle = 0;
   auto carried = std::chrono::steady_clock::now();
   while ( !ending_ ) {
      begin();
      if ( !triedEal_ && common_.eal.started() ) joinEal();
      const auto count = turn();
      const auto now = std::chrono::steady_clock::now();
      if ( now - carried > std::chrono::milliseconds( kLongestSleep ) ) {
         carried = now;
         if ( keepsCarriers_ ) common_.ports.carry();
      }
      idle = count == 0 ? idle + 1 : 0;
      if ( idle > kPatience && ( !common_.busy || lanes_.empty() ) )
         sleep();
      else
         end();
   }
   if ( inEal_ ) Eal::leave();
}

std::size_t Worker::turn() {
   if ( paused_ ) return 0;
   std::size_t count = 0;
   for ( const auto & lane : lanes_ ) count += carry( lane );
   if ( count > 0 )
      for ( auto * const device : devices_ ) device->flush( number_ );
   return count;
}

std::size_t Worker::carry( const Lane & lane ) {
   const auto began = __builtin_ia32_rdtsc();
   lane.device->receive( lane.queue, burst_ );
   const auto count = burst_.size();
   if ( count == 0 ) return 0;
   auto & carried = lane.device->carried( lane.queue );
   if ( lane.device->queues() > 1 ) {
      carried.packets += count;
      for ( const auto & packet : burst_ ) carried.bytes += packet.size();
   }
   const auto & ends = lane.wire->ends[ side_ ];
   if ( lane.kernel && !lane.device->bare() ) {
      handOut( lane );
   } else if ( auto * const source = lane.kernel ? ends.ownSource : ends.source ) {
      for ( auto & packet : burst_ ) packet.meta.ethernet = !lane.device->bare();
      walk_.run( *source, burst_ );
   }
   burst_.clear();
   ++carried.bursts;
   carried.cycles += __builtin_ia32_rdtsc() - began;
   return count;
}

void Worker::handOut( const Lane & lane ) {
   if ( lane.wire->device == nullptr ) return;
   for ( auto & packet : burst_ ) lane.wire->device->send( std::move( packet ), number_ );
}

// The socket of a device that went down says so until it is asked, a TAP that is gone for ever. Neither keeps it awake.
void Worker::leaveOutWrong() {
   wrong_ = false;
   for ( auto & descriptor : descriptors_ ) {
      int error = 0;
      socklen_t length = sizeof error;
      getsockopt( descriptor.fd, SOL_SOCKET, SO_ERROR, &error, &length );
      pollfd still{ descriptor.fd, 0, 0 };
      if ( poll( &still, 1, 0 ) <= 0 ) continue;
      descriptor.fd = -1;
      wrong_ = true;
   }
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
      if ( !paused_ ) descriptors_.push_back( { lane.device->descriptor( lane.queue ), POLLIN, 0 } );
   if ( wrong_ ) leaveOutWrong();
   ++naps_;
   end();
   poll( descriptors_.data(), descriptors_.size(), kLongestSleep );
   ++naps_;
   for ( const auto & descriptor : descriptors_ ) wrong_ = wrong_ || ( descriptor.revents & POLLERR ) != 0;
   std::uint64_t count = 0;
   if ( read( wake_, &count, sizeof count ) < 0 ) {
   } // Nobody woke it.
}

} // namespace Vexdp
