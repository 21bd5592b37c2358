// Synchronous notification: a setter changes the value, then tells every watcher, in the order in which they came,
// before it returns: whoever has set a value leans on its consequences in the next line.
//
// A class that can be watched says what can be watched in its Notifiee, and a watcher overrides what it cares for:
//
//    class Config : public Gant::Entity {
//     public:
//       class Notifiee : public Gant::NotifieeOf< Config > {
//        public:
//          using NotifieeOf::NotifieeOf;
//          virtual void onBridgeMacAddr() {}
//          virtual void onVlanConfig( VlanId ) {}
//       };
//       GANT_NOTIFIER( Notifiee )
//       GANT_WATCHED( Kynet::EthAddr, bridgeMacAddr, onBridgeMacAddr )
//    };
//
//    class VexL3Sm::GantBridgingConfig : public Bridging::Config::Notifiee { ... };
//
// A notifiee belongs to the object that made it, its owner, and is silent while the owner's notification is not active
// and once the owner is a zombie. It holds a reference to what it watches. No old value is told: read the present one.
#pragma once

#include "GantPtr.h"

#include <vector>

namespace Gant {

class NotifieeBase;
class NotifieeList;

// Base of every object that watches others.
class StateMachine : public PtrInterface {
 public:
   // Once active again, each reactor that missed something is renotified.
   void hasNotificationActiveIs( bool active ) override;
   const char * fwkType() const override { return "Gant::StateMachine"; }

 private:
   friend class NotifieeBase;
   std::vector< NotifieeBase * > reactors_;
};

class NotifieeBase {
 public:
   explicit NotifieeBase( StateMachine * owner );
   NotifieeBase( const NotifieeBase & ) = delete;
   NotifieeBase & operator=( const NotifieeBase & ) = delete;
   virtual ~NotifieeBase();

   // Something was missed while the owner's notification was not active: bring everything in line.
   virtual void onRenotify() {}

 private:
   friend class NotifieeList;
   friend class StateMachine;
   // Whether to tell it now. When it is only silent for a while, the miss is kept.
   bool listening();

   StateMachine * owner_;
   bool missed_ = false;
};

// The watchers of one object. While a walk tells them, watchers may come (they are not told of this change), go (they
// are not told any more), and change the object (which is told in a walk of its own). Whoever changes an object holds a
// reference to it until the walk is over.
class NotifieeList {
 public:
   NotifieeList() = default;
   NotifieeList( const NotifieeList & ) = delete;
   NotifieeList & operator=( const NotifieeList & ) = delete;

   void add( NotifieeBase * notifiee ) { notifiees_.push_back( notifiee ); }
   void remove( NotifieeBase * notifiee );
   bool empty() const { return notifiees_.empty(); }

   template < typename N, typename... Params, typename... Args >
   void tell( void ( N::*on )( Params... ), const Args &... args ) {
      if ( notifiees_.empty() ) return;
      Walk walk( *this );
      for ( size_t i = 0, told = notifiees_.size(); i < told; ++i ) {
         auto * notifiee = notifiees_[ i ];
         if ( notifiee != nullptr && listening( *notifiee ) ) ( static_cast< N * >( notifiee )->*on )( args... );
      }
   }

 private:
   // Slots of watchers that went stay empty until the outermost walk is over.
   struct Walk {
      explicit Walk( NotifieeList & list ) : list( list ) { ++list.walks_; }
      ~Walk() {
         if ( --list.walks_ == 0 && list.gaps_ ) list.close();
      }
      NotifieeList & list;
   };
   static bool listening( NotifieeBase & notifiee ) { return notifiee.listening(); }
   void close();

   std::vector< NotifieeBase * > notifiees_;
   U32 walks_ = 0;
   bool gaps_ = false;
};

// A watcher of one T.
template < typename T >
class NotifieeOf : public NotifieeBase {
 public:
   // A null `notifier` is allowed: nothing is watched.
   NotifieeOf( StateMachine * owner, Ptr< const T > notifier ) : NotifieeBase( owner ) {
      notifierIs( std::move( notifier ) );
   }
   ~NotifieeOf() override { notifierIs( nullptr ); }

   const Ptr< const T > & notifier() const { return notifier_; }
   void notifierIs( Ptr< const T > notifier ) {
      if ( notifier_ ) T::notifieeList( *notifier_ ).remove( this );
      notifier_ = std::move( notifier );
      if ( notifier_ ) T::notifieeList( *notifier_ ).add( this );
   }

 private:
   Ptr< const T > notifier_;
};

} // namespace Gant

// In a class that can be watched. Watching is no change of the object, so the list is mutable.
#define GANT_NOTIFIER( NotifieeType )                                                                                  \
 public:                                                                                                               \
   template < typename Self >                                                                                          \
   static Gant::NotifieeList & notifieeList( const Self & self ) {                                                     \
      return self.notifiees_;                                                                                          \
   }                                                                                                                   \
                                                                                                                       \
 private:                                                                                                              \
   mutable Gant::NotifieeList notifiees_;                                                                              \
                                                                                                                       \
 public:
