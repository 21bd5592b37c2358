// The forms of attributes. A class reads as a table of them. For an attribute `xxx`:
//
//   GANT_CONST( T, xxx )                 set by the constructor: xxx()
//   GANT_ATTR( T, xxx, default... )      xxx(), xxxIs( v ), xxxDel(), which goes back to the default
//   GANT_COUNTER( T, xxx )               xxx(), xxxIs( v ), xxxInc( n ), xxxDec( n ), which return the new value
//   GANT_PER_FAMILY( T, xxx )            the same with a first argument, an address family: a fixed array of 3 slots
//   GANT_MAP( M, xxx )                   xxx( key ): the value, or its type's default; xxxIs( key, v ), xxxDel( key ),
//                                        which returns the value that was held, xxxDelAll(), xxxHas( key ), xxxs(): the
//                                        number of entries, xxxIterator(): the entries, xxxKeys(): a copy of the keys
//   GANT_KEYED( M, xxx )                 the same but for xxxIs, which the class writes out since it makes the entries
//   GANT_INSTANTIATING( M, xxx )         the same, with xxxIs( key ), which makes an entry from a key that has none
//   GANT_SET( S, xxx )                   xxxIs( key, bool ), xxxDel( key ), xxxDelAll(), xxxHas( key ), xxxs(),
//                                        xxxIterator(), xxxKeys()
//   GANT_STACK( T, xxx )                 xxxPush( v ), xxxPop(), xxxs(), xxxFill( first, last )
//   GANT_OWNED( T, xxx, Xxx, params )    an object that this one makes: xxx(), newXxx( ... ), xxxIs( ... ), which keeps
//                                        what newXxx returns, xxxDel(); the three are written out in the source
//
// M and S are containers of GantCollection.h. Setters return what is stored.
//
// GANT_WATCHED, GANT_WATCHED_MAP and GANT_WATCHED_SET take one more argument, the member of the class's Notifiee that
// is called after a change, with the key for a collection (see GantNotify.h). Setting the present value again changes
// nothing and tells nobody.
//
// GANT_WATCHED_LIMITED takes one more again, a function of the value that raises the range error of a value outside the
// limits. The value is stored first: one that is refused stays, and nobody is told. The constructor calls the function
// itself.
#pragma once

#include "GantActivity.h"
#include "GantCollection.h"
#include "GantNotify.h"
#include "GantPtr.h"

#include <array>

#define GANT_CONST( T, name )                                                                                          \
 public:                                                                                                               \
   T const & name() const { return name##_; }                                                                          \
                                                                                                                       \
 private:                                                                                                              \
   T const name##_;                                                                                                    \
                                                                                                                       \
 public:

#define GANT_ATTR( T, name, ... )                                                                                      \
 public:                                                                                                               \
   T const & name() const { return name##_; }                                                                          \
   T const & name##Is( T value ) { return name##_ = std::move( value ); }                                              \
   void name##Del() { name##_ = T{ __VA_ARGS__ }; }                                                                    \
                                                                                                                       \
 private:                                                                                                              \
   T name##_{ __VA_ARGS__ };                                                                                           \
                                                                                                                       \
 public:

#define GANT_WATCHED( T, name, on, ... ) GANT_WATCHED_LIMITED( T, name, on, GANT_NO_LIMITS, __VA_ARGS__ )
#define GANT_NO_LIMITS( value )

#define GANT_WATCHED_LIMITED( T, name, on, limits, ... )                                                               \
 public:                                                                                                               \
   T const & name() const { return name##_; }                                                                          \
   T const & name##Is( T value ) {                                                                                     \
      GANT_ON_LOOP();                                                                                                  \
      if ( name##_ == value ) return name##_;                                                                          \
      name##_ = std::move( value );                                                                                    \
      limits( name##_ );                                                                                               \
      notifiees_.tell( &Notifiee::on );                                                                                \
      return name##_;                                                                                                  \
   }                                                                                                                   \
   void name##Del() { name##Is( T{ __VA_ARGS__ } ); }                                                                  \
                                                                                                                       \
 private:                                                                                                              \
   T name##_{ __VA_ARGS__ };                                                                                           \
                                                                                                                       \
 public:

#define GANT_COUNTER( T, name )                                                                                        \
 public:                                                                                                               \
   T name() const { return name##_; }                                                                                  \
   T name##Is( T value ) { return name##_ = value; }                                                                   \
   T name##Inc( T n = 1 ) { return name##_ += n; }                                                                     \
   T name##Dec( T n = 1 ) { return name##_ -= n; }                                                                     \
                                                                                                                       \
 private:                                                                                                              \
   T name##_{};                                                                                                        \
                                                                                                                       \
 public:

#define GANT_PER_FAMILY( T, name )                                                                                     \
 public:                                                                                                               \
   T name( U32 af ) const { return name##_[ af ]; }                                                                    \
   T name##Is( U32 af, T value ) { return name##_[ af ] = value; }                                                     \
   T name##Inc( U32 af, T n = 1 ) { return name##_[ af ] += n; }                                                       \
   T name##Dec( U32 af, T n = 1 ) { return name##_[ af ] -= n; }                                                       \
                                                                                                                       \
 private:                                                                                                              \
   std::array< T, 3 > name##_{};                                                                                       \
                                                                                                                       \
 public:

// The part that a watched map or set shares with one that is not.
#define GANT_COLLECTION( Collection, name )                                                                            \
 public:                                                                                                               \
   bool name##Has( const Collection::key_type & key ) const { return name##_.find( key ) != name##_.end(); }           \
   size_t name##s() const { return name##_.size(); }                                                                   \
   const Collection & name##Iterator() const { return name##_; }                                                       \
   std::vector< Collection::key_type > name##Keys() const { return Gant::keysOf( name##_ ); }                          \
                                                                                                                       \
 private:                                                                                                              \
   Collection name##_;                                                                                                 \
                                                                                                                       \
 public:

#define GANT_KEYED( Map, name )                                                                                        \
   GANT_COLLECTION( Map, name )                                                                                        \
   const Map::mapped_type & name( const Map::key_type & key ) const { return Gant::valueOf( name##_, key ); }          \
   Map::mapped_type name##Del( const Map::key_type & key ) {                                                           \
      const auto at = name##_.find( key );                                                                             \
      if ( at == name##_.end() ) return Map::mapped_type{};                                                            \
      auto old = std::move( at->second );                                                                              \
      name##_.erase( at );                                                                                             \
      return old;                                                                                                      \
   }                                                                                                                   \
   void name##DelAll() { name##_.clear(); }

#define GANT_INSTANTIATING( Map, name )                                                                                \
   GANT_KEYED( Map, name )                                                                                             \
   const Map::mapped_type & name##Is( const Map::key_type & key ) {                                                    \
      auto & entry = name##_[ key ];                                                                                   \
      if ( !entry ) entry = Gant::make< Map::mapped_type::element_type >( key );                                       \
      return entry;                                                                                                    \
   }

#define GANT_MAP( Map, name )                                                                                          \
   GANT_KEYED( Map, name )                                                                                             \
   const Map::mapped_type & name##Is( const Map::key_type & key, Map::mapped_type value ) {                            \
      return name##_.insert_or_assign( key, std::move( value ) ).first->second;                                        \
   }

#define GANT_WATCHED_MAP( Map, name, on )                                                                              \
   GANT_COLLECTION( Map, name )                                                                                        \
   const Map::mapped_type & name( const Map::key_type & key ) const { return Gant::valueOf( name##_, key ); }          \
   Map::mapped_type name##Is( const Map::key_type & key, Map::mapped_type value ) {                                    \
      GANT_ON_LOOP();                                                                                                  \
      const auto [ at, added ] = name##_.try_emplace( key, value );                                                    \
      if ( !added ) {                                                                                                  \
         if ( at->second == value ) return value;                                                                      \
         at->second = value;                                                                                           \
      }                                                                                                                \
      notifiees_.tell( &Notifiee::on, key );                                                                           \
      return value;                                                                                                    \
   }                                                                                                                   \
   Map::mapped_type name##Del( const Map::key_type & key ) {                                                           \
      GANT_ON_LOOP();                                                                                                  \
      const auto at = name##_.find( key );                                                                             \
      if ( at == name##_.end() ) return Map::mapped_type{};                                                            \
      /* The key may be a reference into the entry that goes. */                                                       \
      const auto gone = key;                                                                                           \
      auto old = std::move( at->second );                                                                              \
      name##_.erase( at );                                                                                             \
      notifiees_.tell( &Notifiee::on, gone );                                                                          \
      return old;                                                                                                      \
   }                                                                                                                   \
   void name##DelAll() {                                                                                               \
      for ( const auto & key : name##Keys() ) name##Del( key );                                                        \
   }

#define GANT_SET( Set, name )                                                                                          \
   GANT_COLLECTION( Set, name )                                                                                        \
   void name##Is( const Set::key_type & key, bool present ) {                                                          \
      if ( present )                                                                                                   \
         name##_.insert( key );                                                                                        \
      else                                                                                                             \
         name##_.erase( key );                                                                                         \
   }                                                                                                                   \
   void name##Del( const Set::key_type & key ) { name##_.erase( key ); }                                               \
   void name##DelAll() { name##_.clear(); }

#define GANT_WATCHED_SET( Set, name, on )                                                                              \
   GANT_COLLECTION( Set, name )                                                                                        \
   void name##Is( const Set::key_type & key, bool present ) {                                                          \
      GANT_ON_LOOP();                                                                                                  \
      const auto changing = key;                                                                                       \
      if ( present ? name##_.insert( key ).second : name##_.erase( key ) != 0 )                                        \
         notifiees_.tell( &Notifiee::on, changing );                                                                   \
   }                                                                                                                   \
   void name##Del( const Set::key_type & key ) { name##Is( key, false ); }                                             \
   void name##DelAll() {                                                                                               \
      for ( const auto & key : name##Keys() ) name##Del( key );                                                        \
   }

#define GANT_STACK( T, name )                                                                                          \
 public:                                                                                                               \
   void name##Fill( T first, T last ) { name##_.fill( first, last ); }                                                 \
   void name##Push( T value ) { name##_.push( value ); }                                                               \
   T name##Pop() { return name##_.pop(); }                                                                             \
   size_t name##s() const { return name##_.size(); }                                                                   \
                                                                                                                       \
 private:                                                                                                              \
   Gant::Stack< T > name##_;                                                                                           \
                                                                                                                       \
 public:

// `params` is a parenthesised parameter list.
#define GANT_OWNED( T, name, Name, params )                                                                            \
 public:                                                                                                               \
   const Gant::Ptr< T > & name() const { return name##_; }                                                             \
   Gant::Ptr< T > new##Name params;                                                                                    \
   const Gant::Ptr< T > & name##Is params;                                                                             \
   void name##Del();                                                                                                   \
                                                                                                                       \
 private:                                                                                                              \
   Gant::Ptr< T > name##_;                                                                                             \
                                                                                                                       \
 public:
