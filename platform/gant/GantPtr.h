// Reference-counted objects. Counts are plain: every object belongs to the thread of the activity loop.
#pragma once

#include "GantTypes.h"

#include <cassert>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace Gant {

// Base of everything that is shared by Ptr. It must be the first base of a class, so that a Ptr to a class that is only
// declared can count references; Ptr checks this where it is given a raw pointer.
//
// An object that is being taken down is a zombie: it is still referenced, and no reactor of its runs any more.
class PtrInterface {
 public:
   PtrInterface() = default;
   PtrInterface( const PtrInterface & ) = delete;
   PtrInterface & operator=( const PtrInterface & ) = delete;

   // While false, the reactors of this object are silent. What they missed is renotified as a whole once it is true
   // again. An override passes the value on to the objects that it owns.
   virtual void hasNotificationActiveIs( bool active ) { hasNotificationActive_ = active; }
   virtual const char * fwkType() const { return "Gant::PtrInterface"; }
   virtual ~PtrInterface() = default;
   // Marks the object and its reactors for deletion, for good.
   virtual void gantDoZombieReactors( bool zombie ) { zombie_ = zombie; }

   bool hasNotificationActive() const { return hasNotificationActive_; }
   bool zombie() const { return zombie_; }
   U32 references() const { return references_; }

   static void reference( const PtrInterface * p ) { ++p->references_; }
   static void release( const PtrInterface * p ) {
      if ( --p->references_ == 0 ) const_cast< PtrInterface * >( p )->zeroReferencesIs( true );
   }

 protected:
   // The last reference is gone.
   virtual void zeroReferencesIs( bool zero ) {
      if ( zero ) delete this;
   }

 private:
   mutable U32 references_ = 0;
   bool hasNotificationActive_ = true;
   bool zombie_ = false;
};

// Shared ownership of a PtrInterface. T may be incomplete, except where a raw pointer comes in.
template < typename T >
class Ptr {
 public:
   using element_type = T;

   Ptr() = default;
   Ptr( std::nullptr_t ) {}
   Ptr( T * p ) : p_( p ) {
      if ( p_ == nullptr ) return;
      assert( static_cast< const void * >( static_cast< const PtrInterface * >( p ) ) ==
              static_cast< const void * >( p ) );
      PtrInterface::reference( base() );
   }
   Ptr( const Ptr & other ) : p_( other.p_ ) { take(); }
   Ptr( Ptr && other ) noexcept : p_( std::exchange( other.p_, nullptr ) ) {}
   template < typename U >
   requires std::is_convertible_v< U *, T * > Ptr( const Ptr< U > & other ) : p_( other.get() ) { take(); }
   ~Ptr() { drop(); }

   Ptr & operator=( const Ptr & other ) { return *this = Ptr( other ); }
   Ptr & operator=( Ptr && other ) noexcept {
      Ptr taken( std::move( other ) );
      std::swap( p_, taken.p_ );
      return *this;
   }

   T * get() const { return p_; }
   T & operator*() const { return *p_; }
   T * operator->() const { return p_; }
   explicit operator bool() const { return p_ != nullptr; }
   friend bool operator==( const Ptr & a, const Ptr & b ) { return a.p_ == b.p_; }
   friend bool operator==( const Ptr & a, std::nullptr_t ) { return a.p_ == nullptr; }
   friend bool operator<( const Ptr & a, const Ptr & b ) { return std::less< T * >()( a.p_, b.p_ ); }

 private:
   // PtrInterface is the first base, so the addresses agree, also while T is only declared.
   const PtrInterface * base() const { return reinterpret_cast< const PtrInterface * >( p_ ); }
   void take() const {
      if ( p_ != nullptr ) PtrInterface::reference( base() );
   }
   void drop() const {
      if ( p_ != nullptr ) PtrInterface::release( base() );
   }

   T * p_ = nullptr;
};

template < typename T, typename... Args >
Ptr< T > make( Args &&... args ) {
   return Ptr< T >( new T( std::forward< Args >( args )... ) );
}

template < typename T >
struct IsPtr : std::false_type {};
template < typename T >
struct IsPtr< Ptr< T > > : std::true_type {};

} // namespace Gant

template < typename T >
struct std::hash< Gant::Ptr< T > > {
   size_t operator()( const Gant::Ptr< T > & p ) const noexcept { return std::hash< T * >()( p.get() ); }
};
