// Value types, described once.
//
//    class NhrEntryKey {
//       GANT_VALUE( "VexL3Unicast::NhrEntryKey", NhrEntryKey,
//                   ( FecKey, fecKey ),
//                   ( U32, nhPos ),
//                   ( Kynet::IntfId, intf ),
//                   ( VexVif::VifId, egressVif, U32( -1 ) ) )      // with a default of its own
//    };
//
// gives the fields with accessors and setters, construction from nothing and from all fields, equality, ordering and a
// hash over the fields in this order, the text form, and construction from that text (a ParseException when it is not).
// Where equality, ordering or the hash differ, a type uses GANT_VALUE_FIELDS with those of GANT_VALUE_COMPARE and
// GANT_VALUE_HASH that fit, and writes the rest out.
//
// GANT_SCALAR is a number with a type of its own, whose text is the number. GANT_RANGED has limits besides.
#pragma once

#include "GantHash.h"
#include "GantPreprocessor.h"
#include "GantStrep.h"

#include <compare>
#include <tuple>
#include <utility>

#define GANT_VALUE( typeName, Type, ... )                                                                              \
   GANT_VALUE_FIELDS( typeName, Type, __VA_ARGS__ )                                                                    \
   GANT_VALUE_COMPARE( Type )                                                                                          \
   GANT_VALUE_HASH()

#define GANT_VALUE_FIELDS( typeName, Type, ... )                                                                       \
 public:                                                                                                               \
   Type() = default;                                                                                                   \
   explicit Type( GANT_LIST( GANT_VALUE_PARAMETER, __VA_ARGS__ ) ) : GANT_LIST( GANT_VALUE_INIT, __VA_ARGS__ ) {}      \
   explicit Type( const Gant::String & strep ) : Type( Gant::valueFromStrep< Type >( strep ) ) {}                      \
   GANT_EACH( GANT_VALUE_ACCESS, __VA_ARGS__ )                                                                         \
   Gant::String strep() const {                                                                                        \
      Gant::String out = "Value('" typeName "', ** {";                                                                 \
      const char * comma = "";                                                                                         \
      GANT_EACH( GANT_VALUE_STREP, __VA_ARGS__ )                                                                       \
      return out += "})";                                                                                              \
   }                                                                                                                   \
   void strepIs( Gant::StrepReader & in ) {                                                                            \
      in.expect( "Value('" typeName "', ** {" );                                                                       \
      const char * comma = "";                                                                                         \
      GANT_EACH( GANT_VALUE_PARSE, __VA_ARGS__ )                                                                       \
      in.expect( "})" );                                                                                               \
   }                                                                                                                   \
   auto fields() const { return std::tie( GANT_LIST( GANT_VALUE_NAME, __VA_ARGS__ ) ); }                               \
                                                                                                                       \
 private:                                                                                                              \
   GANT_EACH( GANT_VALUE_MEMBER, __VA_ARGS__ )                                                                         \
                                                                                                                       \
 public:

#define GANT_VALUE_COMPARE( Type )                                                                                     \
   friend bool operator==( const Type & a, const Type & b ) { return a.fields() == b.fields(); }                       \
   friend auto operator<=>( const Type & a, const Type & b ) { return a.fields() <=> b.fields(); }

#define GANT_VALUE_HASH()                                                                                              \
   size_t hash() const {                                                                                               \
      return std::apply( []( const auto &... field ) { return ( Gant::Hash( 0 ) << ... << field ).value(); },          \
                         fields() );                                                                                   \
   }

#define GANT_VALUE_PARAMETER( tuple ) GANT_VALUE_PARAMETER_ tuple
#define GANT_VALUE_PARAMETER_( T, name, ... ) T name
#define GANT_VALUE_INIT( tuple ) GANT_VALUE_INIT_ tuple
#define GANT_VALUE_INIT_( T, name, ... ) name##_( std::move( name ) )
#define GANT_VALUE_ACCESS( tuple ) GANT_VALUE_ACCESS_ tuple
#define GANT_VALUE_ACCESS_( T, name, ... )                                                                             \
   const T & name() const { return name##_; }                                                                          \
   void name##Is( T name ) { name##_ = std::move( name ); }
#define GANT_VALUE_STREP( tuple ) GANT_VALUE_STREP_ tuple
#define GANT_VALUE_STREP_( T, name, ... )                                                                              \
   out.append( comma ).append( "'" #name "': " ).append( Gant::valueToStrep( name##_ ) );                              \
   comma = ", ";
#define GANT_VALUE_PARSE( tuple ) GANT_VALUE_PARSE_ tuple
#define GANT_VALUE_PARSE_( T, name, ... )                                                                              \
   in.expect( comma );                                                                                                 \
   in.expect( "'" #name "': " );                                                                                       \
   Gant::valueFromStrep( in, name##_ );                                                                                \
   comma = ", ";
#define GANT_VALUE_NAME( tuple ) GANT_VALUE_NAME_ tuple
#define GANT_VALUE_NAME_( T, name, ... ) name##_
#define GANT_VALUE_MEMBER( tuple ) GANT_VALUE_MEMBER_ tuple
#define GANT_VALUE_MEMBER_( T, name, ... ) T name##_{ __VA_ARGS__ };

// A number with a type of its own. It converts to the number; `nullValue`, also the default, makes operator! true.
#define GANT_SCALAR( Type, Rep, nullValue )                                                                            \
   GANT_SCALAR_VALUE( Type, Rep, nullValue )                                                                           \
   explicit constexpr Type( Rep value ) : value_( value ) {}                                                           \
   GANT_SCALAR_TEXT( Type, Rep )

// As GANT_SCALAR, with a range error outside `low` to `high`. `nullValue` may lie outside: no value is given.
#define GANT_RANGED( Type, Rep, nullValue, low, high, text )                                                           \
   GANT_SCALAR_VALUE( Type, Rep, nullValue )                                                                           \
   explicit Type( Rep value ) : value_( value ) {                                                                      \
      if ( S64( value ) < ( low ) || S64( value ) > ( high ) ) Gant::throwRangeException( text );                      \
   }                                                                                                                   \
   GANT_SCALAR_TEXT( Type, Rep )

// The two parts, for a number whose text is not the number.
#define GANT_SCALAR_VALUE( Type, Rep, nullValue )                                                                      \
 public:                                                                                                               \
   constexpr Type() = default;                                                                                         \
   constexpr Rep value() const { return value_; }                                                                      \
   constexpr operator Rep() const { return value_; }                                                                   \
   constexpr bool operator!() const { return value_ == static_cast< Rep >( nullValue ); }                              \
   friend constexpr bool operator==( Type a, Type b ) { return a.value_ == b.value_; }                                 \
   friend constexpr auto operator<=>( Type a, Type b ) { return a.value_ <=> b.value_; }                               \
   size_t hash() const { return Gant::hashOf( value_ ); }                                                              \
                                                                                                                       \
 private:                                                                                                              \
   Rep value_ = static_cast< Rep >( nullValue );                                                                       \
                                                                                                                       \
 public:
#define GANT_SCALAR_TEXT( Type, Rep )                                                                                  \
   Gant::String strep() const { return std::to_string( value_ ); }                                                     \
   void strepIs( Gant::StrepReader & in ) { *this = Type( in.number< Rep >() ); }
