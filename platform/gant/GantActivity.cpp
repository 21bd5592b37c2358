#include "GantActivity.h"

#include "GantAsio.h"

#include <algorithm>
#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <ctime>
#include <optional>
#include <thread>
#include <vector>

namespace Gant {

struct ActivityManager::Impl {
   asio::io_context io{ 1 };
   std::thread::id thread = std::this_thread::get_id();
   std::optional< double > manualTime;
   std::vector< Clock * > armed; // while the time is manual
   TurnWatcher turnWatcher;
   void runWatched();
};

// The wait's completion may already be queued when the clock is set anew or goes: it then finds the alarm off.
struct Clock::Alarm {
   asio::steady_timer timer;
   bool off = false;
};

namespace {

double steadySeconds() {
   return std::chrono::duration< double >( std::chrono::steady_clock::now().time_since_epoch() ).count();
}

// Of this thread, on the processor.
double threadSeconds() {
   timespec time{};
   clock_gettime( CLOCK_THREAD_CPUTIME_ID, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

} // namespace

// Nobody says when asio's wait ends, and it is no part of the turn that it ends with.
void ActivityManager::Impl::runWatched() {
   double began = steadySeconds();
   while ( !io.stopped() ) {
      if ( io.poll_one() == 0 ) {
         const double before = threadSeconds();
         if ( io.run_one() == 0 ) return;
         began = steadySeconds() - ( threadSeconds() - before );
      }
      const double ended = steadySeconds();
      turnWatcher( began, ended );
      began = ended;
   }
}

ActivityManager * activityManager() {
   // Never destroyed: objects with static lifetime may still hold clocks.
   static auto * const manager = new ActivityManager;
   return manager;
}

asio::io_context & ioContext() { return activityManager()->impl().io; }

ActivityManager::ActivityManager() : impl_( std::make_unique< Impl >() ) {
   config_ = std::make_unique< ActivityManagerConfig >( newClock() );
}

ActivityManager::~ActivityManager() = default;

Ptr< Clock > ActivityManager::newClock() { return Ptr< Clock >( new Clock( *this ) ); }

double ActivityManager::now() const { return impl_->manualTime ? *impl_->manualTime : steadySeconds(); }

void ActivityManager::post( std::function< void() > work ) { asio::post( impl_->io, std::move( work ) ); }

void ActivityManager::run() {
   impl_->thread = std::this_thread::get_id();
   impl_->io.restart();
   const auto guard = asio::make_work_guard( impl_->io );
   if ( impl_->turnWatcher )
      impl_->runWatched();
   else
      impl_->io.run();
}

void ActivityManager::turnWatcherIs( TurnWatcher watcher ) { impl_->turnWatcher = std::move( watcher ); }

void ActivityManager::stop() { impl_->io.stop(); }

size_t ActivityManager::poll() {
   impl_->thread = std::this_thread::get_id();
   impl_->io.restart();
   return impl_->io.poll();
}

bool ActivityManager::onLoop() const { return impl_->thread == std::this_thread::get_id(); }

void ActivityManager::manualTimeIs( double time ) {
   if ( !impl_->manualTime ) impl_->manualTime = now();
   for ( ;; ) {
      const auto next = std::ranges::min_element(
           impl_->armed, []( const Clock * a, const Clock * b ) { return a->timeMin() < b->timeMin(); } );
      if ( next == impl_->armed.end() || ( *next )->timeMin() > time ) break;
      impl_->manualTime = std::max( *impl_->manualTime, ( *next )->timeMin() );
      ( *next )->ring();
   }
   impl_->manualTime = std::max( *impl_->manualTime, time );
}

Clock::~Clock() { timeMinIs( never ); }

double Clock::now() const { return manager_.now(); }

void Clock::timeMinIs( double time ) {
   auto & impl = *manager_.impl_;
   std::erase( impl.armed, this );
   if ( alarm_ ) {
      alarm_->off = true;
      alarm_->timer.cancel(); // or the wait would keep the alarm until its time
   }
   alarm_.reset();
   timeMin_ = time;
   if ( time == never ) return;
   if ( impl.manualTime ) {
      impl.armed.push_back( this );
      return;
   }
   const auto wait = std::chrono::duration< double >( std::max( 0.0, time - now() ) );
   alarm_ = std::make_shared< Alarm >( Alarm{ asio::steady_timer( impl.io ) } );
   alarm_->timer.expires_after( std::chrono::duration_cast< std::chrono::steady_clock::duration >( wait ) );
   alarm_->timer.async_wait( [ this, alarm = alarm_ ]( const std::error_code & error ) {
      if ( !error && !alarm->off ) ring();
   } );
}

void Clock::ring() {
   const Ptr< Clock > alive( this );
   timeMinIs( never );
   notifiees_.tell( &Notifiee::onTime );
}

} // namespace Gant
