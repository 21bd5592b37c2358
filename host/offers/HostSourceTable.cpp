#include "HostSourceTable.h"

namespace Host {

namespace {

constexpr size_t slotsPerTurn = 16384;
constexpr double lookEverySeconds = 0.25;

} // namespace

const char * nameOf( SourceTable::State state ) {
   switch ( state ) {
   case SourceTable::State::settled: return "settled";
   case SourceTable::State::lost: return "lost";
   case SourceTable::State::waiting: return "waiting";
   case SourceTable::State::held: return "held";
   case SourceTable::State::sweeping: return "sweeping";
   }
   return "";
}

Teller tellerNamed( const std::string & name ) {
   for ( U8 number = 1; number < tellers; ++number )
      if ( name == nameOfTeller( Teller( number ) ) ) return Teller( number );
   return {};
}

struct SourceTable::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( SourceTable * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   SourceTable * owner;
};

SourceTable::SourceTable( RouteBook< Kynet::Prefix > & routes4, RouteBook< Kynet::Ip6Prefix > & routes6 ) :
     routes4_( routes4 ), routes6_( routes6 ), clock_( Gant::activityManager()->newClock() ),
     clockReactor_( std::make_unique< GantClock >( this ) ) {}

SourceTable::~SourceTable() { *alive_ = false; }

void SourceTable::sourceIs( Teller teller, Source * source ) {
   auto & place = places_[ teller.value() ];
   place.source = source;
   if ( source == nullptr ) place.swept = nullptr;
}

void SourceTable::lost( Teller teller ) {
   auto & place = places_[ teller.value() ];
   place.there = false;
   place.sweeping = false;
   place.due = true;
   routes4_.mark( teller );
   routes6_.mark( teller );
}

void SourceTable::begun( Teller teller ) {
   auto & place = places_[ teller.value() ];
   if ( place.there ) lost( teller );
   place.there = true;
   place.met = met( teller );
   place.quietAt = clock_->now();
   if ( clock_->timeMin() == Gant::Clock::never ) clock_->timeMinIs( clock_->now() + lookEverySeconds );
}

void SourceTable::complete( Teller teller ) {
   auto & place = places_[ teller.value() ];
   if ( place.due && !place.held ) startSweep( teller );
}

// -- Users

std::string SourceTable::resync( Teller teller ) {
   auto * const source = places_[ teller.value() ].source;
   if ( source == nullptr ) return "it is no source that can be asked to tell everything again";
   return source->resync();
}

std::string SourceTable::sweep( Teller teller ) {
   const bool held = std::exchange( places_[ teller.value() ].held, false );
   if ( stale( teller ) == 0 ) return held ? "" : "nothing of it is stale";
   startSweep( teller );
   return {};
}

std::string SourceTable::hold( Teller teller ) {
   auto & place = places_[ teller.value() ];
   if ( place.source == nullptr ) return "it is no source that is swept";
   place.held = true;
   place.sweeping = false;
   if ( stale( teller ) != 0 ) place.due = true;
   return {};
}

SourceTable::State SourceTable::state( Teller teller ) const {
   const auto & place = places_[ teller.value() ];
   if ( place.sweeping ) return State::sweeping;
   if ( place.held ) return State::held;
   if ( place.source != nullptr && !place.there ) return State::lost;
   return place.due ? State::waiting : State::settled;
}

double SourceTable::sweepsIn( Teller teller ) const {
   const auto & place = places_[ teller.value() ];
   if ( state( teller ) != State::waiting ) return 0;
   return std::max( 0.0, place.quietAt + quiet_ - clock_->now() );
}

// -- Sweeping

void SourceTable::handleClock() {
   bool more = false;
   for ( U8 number = 1; number < tellers; ++number ) {
      look( Teller( number ) );
      more |= places_[ number ].due && places_[ number ].there;
   }
   if ( more ) clock_->timeMinIs( clock_->now() + lookEverySeconds );
}

void SourceTable::look( Teller teller ) {
   auto & place = places_[ teller.value() ];
   if ( !place.due || !place.there || place.held || place.sweeping ) return;
   if ( std::exchange( place.met, met( teller ) ) != place.met ) place.quietAt = clock_->now();
   if ( place.quietAt + quiet_ <= clock_->now() ) startSweep( teller );
}

void SourceTable::startSweep( Teller teller ) {
   auto & place = places_[ teller.value() ];
   place.at4 = place.at6 = 0;
   if ( !std::exchange( place.sweeping, true ) ) step( teller );
}

// In turns of its own.
void SourceTable::step( Teller teller ) {
   auto & place = places_[ teller.value() ];
   if ( !place.sweeping ) return;
   if ( routes4_.sweep( teller, place.at4, slotsPerTurn ) || routes6_.sweep( teller, place.at6, slotsPerTurn ) ) {
      Gant::activityManager()->post( [ this, alive = alive_, teller ] {
         if ( *alive ) step( teller );
      } );
      return;
   }
   place.sweeping = place.due = false;
   if ( place.swept ) place.swept();
}

} // namespace Host
