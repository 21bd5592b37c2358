// The activity loop: the one thread on which everything of the object model runs, and its clocks.
#pragma once

#include "GantNotify.h"
#include "GantPtr.h"

#include <cassert>
#include <functional>
#include <memory>

namespace Gant {

class ActivityManager;

// A clock that can wake its watchers once it has reached a time. The clock of the activity manager tells the time to
// everybody; who wants to be woken makes a clock of its own with ActivityManager::newClock.
class Clock : public PtrInterface {
 public:
   class Notifiee : public NotifieeOf< Clock > {
    public:
      using NotifieeOf::NotifieeOf;
      // timeMin has come. It is disarmed before the call.
      virtual void onTime() {}
   };
   GANT_NOTIFIER( Notifiee )

   static constexpr double never = -1;

   ~Clock() override;
   // Seconds since an arbitrary start, never going back.
   double now() const;
   // The time to wake at; `never` disarms. A time that has passed wakes in the next turn of the loop.
   double timeMin() const { return timeMin_; }
   void timeMinIs( double time );

 private:
   friend class ActivityManager;
   struct Alarm;
   explicit Clock( ActivityManager & manager ) : manager_( manager ) {}
   void ring();

   ActivityManager & manager_;
   double timeMin_ = never;
   std::shared_ptr< Alarm > alarm_;
};

class ActivityManagerConfig {
 public:
   explicit ActivityManagerConfig( Ptr< Clock > clock ) : clock_( std::move( clock ) ) {}
   const Ptr< Clock > & clock() const { return clock_; }

 private:
   Ptr< Clock > clock_;
};

class ActivityManager {
 public:
   ActivityManager();
   ActivityManager( const ActivityManager & ) = delete;
   ActivityManager & operator=( const ActivityManager & ) = delete;
   ~ActivityManager();

   const ActivityManagerConfig & config() const { return *config_; }
   const Ptr< Clock > & clock() const { return config_->clock(); }
   Ptr< Clock > newClock();
   double now() const;

   // Runs it in a later turn of the loop, in the order of posting. The one operation that any thread may call.
   void post( std::function< void() > work );
   // Runs the loop on this thread until stop().
   void run();
   void stop();
   // Called after each turn of run(), on its thread, with the seconds of the clock at which the turn began and ended.
   // Of the first turn after a rest the begin is worked out from the processor's time that it took. Given before run().
   using TurnWatcher = std::function< void( double began, double ended ) >;
   void turnWatcherIs( TurnWatcher watcher );
   // Runs what is ready and what that makes ready, without waiting, and says how many pieces it ran.
   size_t poll();

   // From now on the time stands still, and only this moves it on: clocks whose time has come wake on the way, in
   // order.
   void manualTimeIs( double time );

   // Whether the caller is the loop's thread: the one that made it, then the one that ran it last.
   bool onLoop() const;

   // The loop's asio::io_context (GantAsio.h).
   struct Impl;
   Impl & impl() { return *impl_; }

 private:
   friend class Clock;
   std::unique_ptr< Impl > impl_;
   std::unique_ptr< ActivityManagerConfig > config_;
};

// The process's one loop.
ActivityManager * activityManager();

} // namespace Gant

#ifdef NDEBUG
#define GANT_ON_LOOP() ( (void)0 )
#else
#define GANT_ON_LOOP() assert( Gant::activityManager()->onLoop() )
#endif
