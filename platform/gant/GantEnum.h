// Enumerations: Type::name_ is the constant for a comparison or a case, Type::name() the value, and the text form is
// the bare name.
//
//    GANT_ENUM( RouteTableType, U8, ( noneTableType, 0 ), ( lpmTableType, 1 ) )
#pragma once

#include "GantHash.h"
#include "GantPreprocessor.h"
#include "GantStrep.h"

#define GANT_ENUM( Type, Rep, ... )                                                                                    \
   class Type {                                                                                                        \
    public:                                                                                                            \
      enum Value : Rep { GANT_EACH( GANT_ENUM_CONSTANT, __VA_ARGS__ ) };                                               \
      constexpr Type() = default;                                                                                      \
      constexpr Type( Value value ) : value_( value ) {}                                                               \
      explicit constexpr Type( Rep number ) : value_( static_cast< Value >( number ) ) {}                              \
      constexpr operator Value() const { return value_; }                                                              \
      constexpr Value value() const { return value_; }                                                                 \
      GANT_EACH( GANT_ENUM_VALUE, __VA_ARGS__ )                                                                        \
      Gant::String stringValue() const {                                                                               \
         switch ( value_ ) { GANT_EACH( GANT_ENUM_NAME, __VA_ARGS__ ) }                                                \
         return std::to_string( static_cast< U32 >( value_ ) );                                                        \
      }                                                                                                                \
      Gant::String strep() const { return stringValue(); }                                                             \
      void strepIs( Gant::StrepReader & in ) {                                                                         \
         const auto found = in.bare();                                                                                 \
         GANT_EACH( GANT_ENUM_PARSE, __VA_ARGS__ )                                                                     \
         in.fail( #Type, found );                                                                                      \
      }                                                                                                                \
      size_t hash() const { return Gant::hashOf( static_cast< Rep >( value_ ) ); }                                     \
                                                                                                                       \
    private:                                                                                                           \
      Value value_ = static_cast< Value >( 0 );                                                                        \
   };

#define GANT_ENUM_CONSTANT( tuple ) GANT_ENUM_CONSTANT_ tuple
#define GANT_ENUM_CONSTANT_( name, number ) name##_ = number,
#define GANT_ENUM_VALUE( tuple ) GANT_ENUM_VALUE_ tuple
#define GANT_ENUM_VALUE_( name, number )                                                                               \
   static constexpr Value name() { return name##_; }
#define GANT_ENUM_NAME( tuple ) GANT_ENUM_NAME_ tuple
#define GANT_ENUM_NAME_( name, number )                                                                                \
   case name##_:                                                                                                       \
      return #name;
#define GANT_ENUM_PARSE( tuple ) GANT_ENUM_PARSE_ tuple
#define GANT_ENUM_PARSE_( name, number )                                                                               \
   if ( found == #name ) {                                                                                             \
      value_ = name##_;                                                                                                \
      return;                                                                                                          \
   }
