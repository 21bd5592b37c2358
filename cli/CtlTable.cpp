#include "CtlTable.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>

namespace Ctl {

namespace {

// What somebody wrote into a remark is no command to the terminal.
std::string plain( std::string text ) {
   for ( auto & c : text )
      if ( c != '\n' && std::iscntrl( static_cast< unsigned char >( c ) ) ) c = '.';
   return text;
}

} // namespace

std::string inWords( const Json & value ) {
   if ( value.is_null() ) return {};
   if ( value.is_boolean() ) return value.get< bool >() ? "yes" : "no";
   if ( value.is_string() ) return plain( value.get< std::string >() );
   return value.dump( -1, ' ', false, Json::error_handler_t::replace );
}

std::string member( const Json & object, const char * name ) {
   const auto at = object.find( name );
   return at == object.end() ? std::string() : inWords( *at );
}

namespace {

const Json & memberOf( const Json & row, const std::string & member ) {
   static const Json none;
   const auto at = row.find( member );
   return at == row.end() ? none : *at;
}

Column column( std::string title, std::string member, Column::Align align ) {
   return { std::move( title ),
            [ member = std::move( member ) ]( const Json & row ) {
               const auto & value = memberOf( row, member );
               if ( !value.is_array() ) return Cell{ inWords( value ) };
               Cell cell;
               for ( const auto & entry : value ) cell.push_back( inWords( entry ) );
               return cell;
            },
            align };
}

} // namespace

Column text( std::string title, std::string member ) {
   return column( std::move( title ), std::move( member ), Column::Align::left );
}

Column number( std::string title, std::string member ) {
   return column( std::move( title ), std::move( member ), Column::Align::right );
}

Column count( std::string title, std::string member ) {
   return shown( std::move( title ), std::move( member ), groupedInWords, Column::Align::right );
}

Column shown( std::string title, std::string member, std::function< std::string( const Json & ) > words,
              Column::Align align ) {
   return { std::move( title ),
            [ member = std::move( member ), words = std::move( words ) ]( const Json & row ) {
               const auto & value = memberOf( row, member );
               return Cell{ value.is_null() ? std::string() : words( value ) };
            },
            align };
}

Column list( std::string title, std::string member, std::function< std::string( const Json & ) > words ) {
   return { std::move( title ), [ member = std::move( member ), words = std::move( words ) ]( const Json & row ) {
              Cell cell;
              for ( const auto & entry : memberOf( row, member ) ) cell.push_back( words( entry ) );
              return cell;
           } };
}

std::string seconds( double seconds ) {
   if ( seconds < 1 ) return fmt::format( "{:.0f} ms", seconds * 1000 );
   if ( seconds < 60 ) return fmt::format( "{:.1f} s", seconds );
   const auto whole = static_cast< std::uint64_t >( seconds );
   if ( whole < 3600 ) return fmt::format( "{} min {} s", whole / 60, whole % 60 );
   if ( whole < 86400 ) return fmt::format( "{} h {} min", whole / 3600, whole % 3600 / 60 );
   return fmt::format( "{} d {} h", whole / 86400, whole % 86400 / 3600 );
}

std::string grouped( std::uint64_t number ) {
   auto digits = std::to_string( number );
   for ( auto at = static_cast< int >( digits.size() ) - 3; at > 0; at -= 3 )
      digits.insert( static_cast< size_t >( at ), 1, ',' );
   return digits;
}

std::string groupedInWords( const Json & value ) { return grouped( value.get< std::uint64_t >() ); }

namespace {

constexpr size_t gap = 2; // blanks between columns

} // namespace

void Table::row( const Json & row ) {
   Cells cells;
   for ( const auto & column : columns_ ) cells.push_back( column.cell( row ) );
   if ( begun_ ) return write( cells );
   held_.push_back( std::move( cells ) );
   if ( held_.size() < heldMax ) return;
   // What comes later may fill a column that is empty so far.
   widths_.assign( columns_.size(), 1 );
   begin();
}

void Table::end() {
   if ( begun_ || held_.empty() ) return;
   widths_.assign( columns_.size(), 0 );
   begin();
}

namespace {

// In lines of at most `width`, broken at blanks where there are some.
Cell wrapped( std::string_view text, size_t width ) {
   Cell lines;
   while ( text.size() > width ) {
      const auto blank = text.rfind( ' ', width );
      const bool breaks = blank != std::string_view::npos && blank != 0;
      lines.emplace_back( text.substr( 0, breaks ? blank : width ) );
      text.remove_prefix( breaks ? blank + 1 : width );
   }
   lines.emplace_back( text );
   return lines;
}

size_t longestWord( std::string_view text ) {
   size_t longest = 0;
   for ( size_t end = 0; end != std::string_view::npos; text.remove_prefix( std::min( end + 1, text.size() ) ) ) {
      end = text.find( ' ' );
      longest = std::max( longest, std::min( end, text.size() ) );
   }
   return longest;
}

} // namespace

size_t Table::total() const {
   size_t total = 0;
   for ( const auto width : widths_ ) total += width == 0 ? 0 : width + ( total == 0 ? 0 : gap );
   return total;
}

void Table::begin() {
   begun_ = true;
   for ( size_t at = 0; at < columns_.size(); ++at )
      for ( const auto & cells : held_ )
         for ( const auto & line : cells[ at ] ) widths_[ at ] = std::max( widths_[ at ], line.size() );
   const auto ofCells = widths_;
   for ( size_t at = 0; at < columns_.size(); ++at )
      if ( widths_[ at ] != 0 ) widths_[ at ] = std::max( widths_[ at ], columns_[ at ].title.size() );
   if ( width_ != 0 && total() > width_ ) {
      for ( size_t at = 0; at < columns_.size(); ++at )
         if ( ofCells[ at ] != 0 ) widths_[ at ] = std::max( ofCells[ at ], longestWord( columns_[ at ].title ) );
      narrow();
   }
   if ( !records_ ) {
      Cells titles;
      for ( const auto & column : columns_ ) titles.push_back( { column.title } );
      write( titles );
   }
   for ( const auto & cells : held_ ) write( cells );
   held_ = {};
}

// The widest text columns give way, down to a width at which words are still read.
void Table::narrow() {
   constexpr size_t least = 12;
   for ( auto excess = total(); excess > width_; --excess ) {
      size_t widest = widths_.size();
      for ( size_t at = 0; at < widths_.size(); ++at )
         if ( columns_[ at ].align == Column::Align::left && widths_[ at ] > least &&
              ( widest == widths_.size() || widths_[ at ] > widths_[ widest ] ) )
            widest = at;
      records_ = widest == widths_.size();
      if ( records_ ) return;
      --widths_[ widest ];
   }
}

void Table::writeRecord( const Cells & cells ) {
   size_t longest = 0;
   for ( const auto & column : columns_ ) longest = std::max( longest, column.title.size() );
   for ( size_t at = 0; at < cells.size(); ++at )
      for ( const auto & text : cells[ at ] )
         if ( !text.empty() ) out_ << fmt::format( "{:<{}}  {}\n", columns_[ at ].title, longest, text );
   out_ << '\n';
}

void Table::write( const Cells & given ) {
   if ( records_ ) return writeRecord( given );
   Cells cells( given.size() );
   for ( size_t at = 0; at < given.size(); ++at )
      for ( const auto & text : given[ at ] )
         for ( auto & line : width_ == 0 || widths_[ at ] == 0 ? Cell{ text } : wrapped( text, widths_[ at ] ) )
            cells[ at ].push_back( std::move( line ) );
   size_t lines = 1;
   for ( const auto & cell : cells ) lines = std::max( lines, cell.size() );
   for ( size_t line = 0; line < lines; ++line ) {
      std::vector< std::string > texts;
      for ( const auto & cell : cells ) texts.push_back( line < cell.size() ? cell[ line ] : std::string() );
      writeLine( texts );
   }
}

void Table::writeLine( const std::vector< std::string > & texts ) {
   std::string line;
   for ( size_t at = 0; at < texts.size(); ++at ) {
      if ( widths_[ at ] == 0 ) continue;
      if ( !line.empty() ) line.append( gap, ' ' );
      line += columns_[ at ].align == Column::Align::right ? fmt::format( "{:>{}}", texts[ at ], widths_[ at ] )
                                                           : fmt::format( "{:<{}}", texts[ at ], widths_[ at ] );
   }
   line.erase( line.find_last_not_of( ' ' ) + 1 );
   out_ << line << '\n';
}

} // namespace Ctl
