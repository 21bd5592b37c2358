// What the data plane said of objects that are told in several commands. For objects that are few. Not for public
// headers.
#pragma once

#include "GantFlat.h"
#include "HulProgress.h"
#include "HulRouteState.h"

namespace Hul {

// By a key that can be ordered. The owner's reactor: it hears of nothing while the owner is silent, and makes up for
// it.
template < typename Key >
class Answers {
 public:
   Answers( Gant::StateMachine * owner, const Gant::Ptr< const Progress > & progress ) :
        progress_( progress ), reactor_( owner, *this ) {}

   // Notes the commands that the call queues as the object's.
   template < typename Call >
   decltype( auto ) asked( const Key & key, const Call & call ) {
      const Window window( *this, key );
      return call();
   }
   // The same of those after number `before`, where one call is of several objects.
   void note( const Key & key, U64 before ) {
      auto & said = said_[ key ];
      if ( underWay_.add( before, progress_->told(), { key, said.generation } ) ) ++said.waiting;
   }
   // The object is told anew: what was said of it before concerns it no more.
   void begin( const Key & key ) { said_[ key ] = { ++generations_ }; }
   void forget( const Key & key ) { said_.erase( key ); }

   // Programmed, when nothing of it was told.
   RouteState state( const Key & key ) const {
      const auto at = said_.find( key );
      if ( at == said_.end() ) return { RouteProgress::programmed(), {} };
      const auto & said = at->second;
      if ( said.code != 0 )
         return { RouteProgress::refused(),
                  "the data plane refused it: " + progress_->reason( said.refused, said.code ) };
      if ( said.waiting != 0 ) return { RouteProgress::pending(), "the data plane has not answered" };
      return { RouteProgress::programmed(), {} };
   }

 private:
   struct Said {
      U32 generation = 0;
      U32 waiting = 0; // windows that are not answered
      U32 refused = 0; // the lower bits of the number of the first refused command
      S32 code = 0;
   };
   struct Told {
      Key key;
      U32 generation;
   };
   struct Window {
      Window( Answers & answers, const Key & key ) :
           answers( answers ), key( key ), before( answers.progress_->told() ) {}
      ~Window() { answers.note( key, before ); }
      Answers & answers;
      const Key key;
      const U64 before;
   };
   struct Reactor : Progress::Notifiee {
      Reactor( Gant::StateMachine * owner, Answers & answers ) :
           Notifiee( owner, answers.progress_ ), answers( answers ) {}
      void onRefused( const RefusedCommand & command ) override {
         answers.underWay_.refused( command, [ this ]( const auto & entry ) { answers.settled( entry ); } );
      }
      void onAcknowledged() override {
         answers.underWay_.acknowledged( notifier()->acknowledged(),
                                         [ this ]( const auto & entry ) { answers.settled( entry ); } );
      }
      void onRenotify() override {
         for ( const auto & command : notifier()->refused() ) onRefused( command );
         onAcknowledged();
      }
      Answers & answers;
   };

   void settled( const typename UnderWay< Told >::Entry & entry ) {
      const auto at = said_.find( entry.object.key );
      if ( at == said_.end() || at->second.generation != entry.object.generation ) return;
      auto & said = at->second;
      --said.waiting;
      if ( entry.code == 0 || said.code != 0 ) return;
      said.code = entry.code;
      said.refused = entry.refused;
   }

   const Gant::Ptr< const Progress > progress_;
   Gant::OrderedMap< Key, Said > said_;
   UnderWay< Told > underWay_;
   U32 generations_ = 0;
   Reactor reactor_;
};

} // namespace Hul
