#include "HostMetrics.h"

#include "GantActivity.h"
#include "HostCollection.h"
#include "HostDropsWatch.h"

#include <arpa/inet.h>
#include <charconv>
#include <mutex>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>

namespace Host {

static constexpr double publishEvery = 1; // seconds

// What both threads have.
class Published : public prometheus::Collectable {
 public:
   void familiesAre( std::shared_ptr< const Families > families ) {
      const std::lock_guard lock( mutex_ );
      families_.swap( families ); // the former ones go, if at all, after the lock
   }
   // On the server's thread. The copy is that of the library's interface.
   std::vector< prometheus::MetricFamily > Collect() const override {
      const auto families = held();
      return families ? *families : Families();
   }

 private:
   std::shared_ptr< const Families > held() const {
      const std::lock_guard lock( mutex_ );
      return families_;
   }
   mutable std::mutex mutex_;
   std::shared_ptr< const Families > families_;
};

struct Metrics::Impl : Gant::StateMachine {
   explicit Impl( DaemonControl & daemon ) :
        daemon( daemon ), drops( daemon ), clock( Gant::activityManager()->newClock() ), reactor( this ) {}
   ~Impl() override { *alive = false; }

   struct GantClock : Gant::Clock::Notifiee {
      explicit GantClock( Impl * owner ) : Notifiee( owner, owner->clock ), owner( owner ) {}
      void onTime() override { owner->begin(); }
      Impl * owner;
   };

   void begin() {
      drops.look();
      collection.emplace( daemon, drops.newest() );
      step();
   }
   void step() {
      if ( collection->step() ) {
         Gant::activityManager()->post( [ this, alive = alive ] {
            if ( *alive ) step();
         } );
         return;
      }
      published->familiesAre( std::make_shared< const Families >( collection->take() ) );
      collection.reset();
      clock->timeMinIs( clock->now() + publishEvery );
   }

   DaemonControl & daemon;
   DropsWatch drops;
   const std::shared_ptr< Published > published = std::make_shared< Published >();
   std::optional< Collection > collection; // in the making
   Gant::Ptr< Gant::Clock > clock;
   GantClock reactor;
   std::shared_ptr< bool > alive = std::make_shared< bool >( true );
   std::unique_ptr< prometheus::Exposer > exposer; // gone first: its thread reads what is above
};

Metrics::Metrics( DaemonControl & daemon ) : impl_( std::make_unique< Impl >( daemon ) ) {}

Metrics::~Metrics() = default;

std::string Metrics::open( const std::string & address ) {
   try {
      impl_->exposer = std::make_unique< prometheus::Exposer >( address, 1 );
   } catch ( const std::exception & error ) {
      return "--metrics " + address + ": cannot be listened at: " + error.what();
   }
   impl_->exposer->RegisterCollectable( impl_->published );
   impl_->begin();
   return {};
}

std::string wrongMetricsAddress( const std::string & text ) {
   const auto colon = text.rfind( ':' );
   auto wrong = "\"" + text + "\" is not ADDRESS:PORT, such as 127.0.0.1:9410 or [::1]:9410";
   if ( colon == std::string::npos ) return wrong;
   auto address = text.substr( 0, colon );
   const bool v6 = address.size() > 2 && address.front() == '[' && address.back() == ']';
   if ( v6 ) address = address.substr( 1, address.size() - 2 );
   in6_addr parsed{};
   if ( inet_pton( v6 ? AF_INET6 : AF_INET, address.c_str(), &parsed ) != 1 ) return wrong;
   unsigned port = 0;
   const char * const end = text.data() + text.size();
   const auto [ at, error ] = std::from_chars( text.data() + colon + 1, end, port );
   return error == std::errc() && at == end && port >= 1 && port <= 65535 ? "" : wrong;
}

} // namespace Host
