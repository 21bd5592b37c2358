#include "GantStrep.h"

namespace Gant {

void StrepReader::fail( std::string_view expected, std::string_view found ) const {
   throw ParseException( "expected " + String( expected ) + " at \"" + String( found.substr( 0, 40 ) ) + "\" of \"" +
                         String( all_ ) + "\"" );
}

void StrepReader::expect( std::string_view literal ) {
   if ( !accept( literal ) ) fail( literal, rest_ );
}

bool StrepReader::accept( std::string_view literal ) {
   if ( !rest_.starts_with( literal ) ) return false;
   rest_.remove_prefix( literal.size() );
   return true;
}

std::string_view StrepReader::bare() {
   const auto text = rest_.substr( 0, rest_.find_first_of( ",}]" ) );
   rest_.remove_prefix( text.size() );
   return text;
}

String StrepReader::quoted() {
   expect( "'" );
   String out;
   for ( size_t i = 0; i < rest_.size(); ++i ) {
      if ( rest_[ i ] == '\'' ) {
         rest_.remove_prefix( i + 1 );
         return out;
      }
      if ( rest_[ i ] == '\\' && i + 1 < rest_.size() ) ++i;
      out += rest_[ i ];
   }
   fail( "a closing quote", rest_ );
}

void StrepReader::end() {
   if ( !rest_.empty() ) fail( "the end", rest_ );
}

String strepQuoted( std::string_view text ) {
   String out = "'";
   for ( const char c : text ) {
      if ( c == '\'' || c == '\\' ) out += '\\';
      out += c;
   }
   return out += '\'';
}

} // namespace Gant
