// How far the data plane has come with what it was told, and what it refused.
#pragma once

#include "GantNotify.h"
#include "GantTypes.h"

#include <algorithm>
#include <deque>
#include <string_view>

namespace Hul {

// A command that the data plane refused.
struct RefusedCommand {
   U64 number = 0;
   S32 code = 0; // a positive errno
   Gant::String text;
};

// The commands of one session, numbered from 1 in the order in which they are queued. The data plane answers them in
// that order. Written by the channel; the layer asks for the number of what it has just told, and hears of the answer.
//
// Without a channel nothing is ever under way.
class Progress : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< Progress > {
    public:
      using NotifieeOf::NotifieeOf;
      // In ascending order: the commands before this one, and after the refused one before it, were taken.
      virtual void onRefused( const RefusedCommand & ) {}
      // Commands up to acknowledged() were taken or refused.
      virtual void onAcknowledged() {}
   };
   GANT_NOTIFIER( Notifiee )

   U64 told() const { return told_; }
   U64 acknowledged() const { return acknowledged_; }
   // So many are under way that what can wait does: what was told would only wait in memory.
   bool congested() const { return told_ - acknowledged_ > underWayMost_; }
   // Even whoever cannot wait at its source is told later.
   bool full() const { return told_ - acknowledged_ > 2 * underWayMost_; }
   void underWayMostIs( U64 most ) { underWayMost_ = most; }
   // The newest refusals, in ascending order.
   static constexpr size_t refusedKept = 4096;
   const std::deque< RefusedCommand > & refused() const { return refused_; }
   // What the data plane said of the refused command with these lower bits; the system's words for the code when that
   // is too long ago.
   Gant::String reason( U32 number, S32 code ) const;

   void toldInc() { ++told_; }
   // REQUIRES: above acknowledged() and all that was refused before.
   void refusedIs( U64 number, S32 code, std::string_view text );
   void acknowledgedIs( U64 number );

 private:
   U64 told_ = 0;
   U64 acknowledged_ = 0;
   U64 underWayMost_ = 65536;
   std::deque< RefusedCommand > refused_;
};

// Objects that have been told, and that the data plane has not answered yet, in the order of telling. An object may
// stand here several times.
template < typename Object >
class UnderWay {
 public:
   struct Entry {
      U32 first; // the lower bits of its commands' numbers
      U32 last;
      U32 refused; // the first of them that was refused
      S32 code;    // with what; 0: none was
      Object object;
   };

   // The commands after number `before`, up to `last`. False: there are none, and nothing to wait for.
   bool add( U64 before, U64 last, const Object & object ) {
      if ( last <= before ) return false;
      entries_.push_back( { static_cast< U32 >( before + 1 ), static_cast< U32 >( last ), 0, 0, object } );
      return true;
   }
   bool empty() const { return entries_.empty(); }
   size_t size() const { return entries_.size(); }

   // Calls `done` with each entry that is answered, oldest first. It may add entries.
   template < typename Done >
   void acknowledged( U64 number, const Done & done ) {
      while ( !entries_.empty() && !after( entries_.front().last, number ) ) {
         const auto entry = entries_.front();
         entries_.pop_front();
         done( entry );
      }
   }
   // The same for those before the refused command, which marks its own.
   template < typename Done >
   void refused( const RefusedCommand & command, const Done & done ) {
      acknowledged( command.number - 1, done );
      // Windows may lie in one another, the outer one behind the inner.
      for ( auto & entry : entries_ ) {
         if ( after( entry.first, command.number ) ) break;
         if ( entry.code != 0 ) continue;
         entry.refused = static_cast< U32 >( command.number );
         entry.code = command.code;
      }
   }

 private:
   // Whether the number with these lower bits comes after the other one.
   static bool after( U32 a, U64 b ) { return static_cast< S32 >( a - static_cast< U32 >( b ) ) > 0; }

   std::deque< Entry > entries_;
};

} // namespace Hul
