// The sources as users see them, and the sweeping of what they tell no more.
#pragma once

#include "GantActivity.h"
#include "HostRouteBook.h"

#include <map>
#include <optional>

namespace Host {

// What a source that stays connected knows of itself.
struct SourceFacts {
   bool connected = false;
   double since = 0;   // seconds of the system clock, of `connected`
   std::string peer{}; // who is connected
   U64 messages = 0;   // since the daemon's start
   U64 bytes = 0;
   U64 nextHops = 0;         // objects that it has told
   U64 answered = 0;         // routes of which it was told what became of them
   double pausedSeconds = 0; // for how long its messages wait for the data plane at present; 0: they do not
   unsigned losses = 0;
   std::string lastLoss{};
   std::string error{}; // why it cannot be had at all; empty: it can
};

// What a source has told and the router cannot have, at present.
struct SourceRefusal {
   std::string reason;
   U64 count = 0;
   std::string example{}; // one of them
};

class Source {
 public:
   virtual ~Source() = default;
   virtual SourceFacts facts() const = 0;
   virtual std::vector< SourceRefusal > refusals() const = 0;
   // Up to so many of them, one after the other.
   using EachRefused = std::function< void( const std::string & route, const char * reason ) >;
   virtual void eachRefused( size_t most, const EachRefused & each ) const = 0;
   // Has everything told anew. Gives why not, empty when it was begun.
   virtual std::string resync() = 0;
};

//   owns     the marks of the books: who else marks sweeps by itself, in steps of its own
//   watches  a clock, while something is stale
//
// A source that lost touch keeps its routes, which are stale. They are swept when it says that it has told everything,
// or when it is there and for `quiet` seconds nothing came and nothing stale was told again. Whatever else it says does
// not count: a full table is never silent. A user can hold the sweep, and ask for it.
//
// Of a source: settled (nothing is stale), lost (it is not there), waiting (for quiet), held, sweeping.
class SourceTable : public Gant::StateMachine {
 public:
   enum class State { settled, lost, waiting, held, sweeping };
   static constexpr double quietByDefault = 60;

   SourceTable( RouteBook< Kynet::Prefix > & routes4, RouteBook< Kynet::Ip6Prefix > & routes6 );
   ~SourceTable() override;

   // Null: it ends. It outlives its place here.
   void sourceIs( Teller teller, Source * source );
   const Source * source( Teller teller ) const { return places_[ teller.value() ].source; }
   // Seconds.
   void quietIs( double seconds ) { quiet_ = seconds; }

   // Said by the source. Everything that it told is stale.
   void lost( Teller teller );
   // It begins to tell everything anew.
   void begun( Teller teller );
   // It has told everything.
   void complete( Teller teller );
   // Called when a sweep has come to its end.
   void sweptIs( Teller teller, std::function< void() > swept ) {
      places_[ teller.value() ].swept = std::move( swept );
   }

   // By a user. Each gives why not, empty when it is done. A hold ends with the sweep that is asked for.
   std::string resync( Teller teller );
   std::string sweep( Teller teller );
   std::string hold( Teller teller );

   State state( Teller teller ) const;
   // Until the sweep, if nothing else comes; 0: none is due.
   double sweepsIn( Teller teller ) const;
   size_t routes( Teller teller ) const { return routes4_.routes( teller ) + routes6_.routes( teller ); }
   size_t stale( Teller teller ) const { return routes4_.staleRoutes( teller ) + routes6_.staleRoutes( teller ); }

 private:
   struct Place {
      Source * source = nullptr;
      std::function< void() > swept{};
      bool there = true; // the source is not lost
      bool held = false;
      bool due = false; // a sweep is to come
      bool sweeping = false;
      U32 at4 = 0, at6 = 0;
      U64 met = 0;        // when it was looked at last
      double quietAt = 0; // since then nothing has changed
   };
   struct GantClock;

   void handleClock();
   void look( Teller teller );
   void startSweep( Teller teller );
   void step( Teller teller );
   U64 met( Teller teller ) const { return routes4_.met( teller ) + routes6_.met( teller ); }

   RouteBook< Kynet::Prefix > & routes4_;
   RouteBook< Kynet::Ip6Prefix > & routes6_;
   std::array< Place, tellers > places_{};
   double quiet_ = quietByDefault;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

// "waiting"
const char * nameOf( SourceTable::State state );
// `none` for a name that is no source's.
Teller tellerNamed( const std::string & name );

} // namespace Host
