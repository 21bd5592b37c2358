// Text forms of values, and their way back: numbers in decimal, True and False, strings in single quotes, enumerators
// by their bare name, a value type as Value('Type', ** {'field': text, ...}).
#pragma once

#include "GantException.h"
#include "GantTypes.h"

#include <charconv>
#include <string_view>
#include <type_traits>

namespace Gant {

// Reads a text form from the front. Every failure is a ParseException that names what was expected and where.
class StrepReader {
 public:
   explicit StrepReader( std::string_view text ) : all_( text ), rest_( text ) {}

   void expect( std::string_view literal );
   bool accept( std::string_view literal );
   // What comes before the first of the characters that end a bare text: a comma, a closing brace or bracket.
   std::string_view bare();
   String quoted();
   template < typename T >
   T number() {
      const auto text = bare();
      T value{};
      const auto [ end, error ] = std::from_chars( text.data(), text.data() + text.size(), value );
      if ( error != std::errc() || end != text.data() + text.size() ) fail( "a number", text );
      return value;
   }
   void end();
   [[noreturn]] void fail( std::string_view expected, std::string_view found ) const;

 private:
   std::string_view all_;
   std::string_view rest_;
};

String strepQuoted( std::string_view text );

template < typename T >
String valueToStrep( const T & value ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      return value ? "True" : "False";
   } else if constexpr ( std::is_integral_v< T > || std::is_floating_point_v< T > ) {
      return std::to_string( value );
   } else if constexpr ( std::is_convertible_v< const T &, std::string_view > ) {
      return strepQuoted( value );
   } else if constexpr ( requires { value.get()->references(); } ) {
      // A pointer is told by what it points at, and there is no way back.
      return value ? String( "<" ) + value->fwkType() + ">" : String( "None" );
   } else {
      return value.strep();
   }
}

template < typename T >
void valueFromStrep( StrepReader & in, T & value ) {
   if constexpr ( std::is_same_v< T, bool > ) {
      value = in.accept( "True" );
      if ( !value ) in.expect( "False" );
   } else if constexpr ( std::is_integral_v< T > ) {
      value = in.template number< T >();
   } else if constexpr ( std::is_same_v< T, String > ) {
      value = in.quoted();
   } else if constexpr ( requires { value.get()->references(); } ) {
      in.expect( "None" );
      value = nullptr;
   } else {
      value.strepIs( in );
   }
}

// The whole text is one value.
template < typename T >
T valueFromStrep( std::string_view text ) {
   StrepReader in( text );
   T value{};
   valueFromStrep( in, value );
   in.end();
   return value;
}

// How a value reads in a trace, a table or a message: its str(), its stringValue(), or its text form; strings as they
// are.
template < typename T >
String textOf( const T & value ) {
   if constexpr ( std::is_convertible_v< const T &, std::string_view > ) {
      return String( std::string_view( value ) );
   } else if constexpr ( std::is_same_v< T, bool > ) {
      return value ? "true" : "false";
   } else if constexpr ( requires { value.get()->references(); } ) {
      return value ? textOf( *value ) : "none";
   } else if constexpr ( requires { value.str(); } ) {
      return value.str();
   } else if constexpr ( requires { value.stringValue(); } ) {
      return String( value.stringValue() );
   } else {
      return valueToStrep( value );
   }
}

// Their texts, one after the other.
template < typename... Args >
String textsOf( const Args &... args ) {
   String out;
   ( out.append( textOf( args ) ), ... );
   return out;
}

} // namespace Gant
