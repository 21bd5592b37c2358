// Tables for people.
#pragma once

#include "CtlClient.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace Ctl {

// A cell may have several lines.
using Cell = std::vector< std::string >;

struct Column {
   enum class Align { left, right };
   std::string title;
   std::function< Cell( const Json & row ) > cell;
   Align align = Align::left;
};
using Columns = std::vector< Column >;

// The member of a row as it stands: numbers and texts, "yes" and "no", lists one to a line; nothing when it is missing.
std::string inWords( const Json & value );

// The member `name` of an object in words; empty where it has none.
std::string member( const Json & object, const char * name );
Column text( std::string title, std::string member );
Column number( std::string title, std::string member );
// `inWords` of the member, by a function of its own.
Column shown( std::string title, std::string member, std::function< std::string( const Json & ) > words,
              Column::Align align = Column::Align::left );
// A number of things: "12,345,678".
Column count( std::string title, std::string member );
// A list of objects, one to a line.
Column list( std::string title, std::string member, std::function< std::string( const Json & ) > words );

// Seconds as people say them: "45 ms", "12.3 s", "4 min 10 s", "2 h 5 min".
std::string seconds( double seconds );
// "12,345,678"
std::string grouped( std::uint64_t number );
std::string groupedInWords( const Json & value );

// Rows with aligned columns. The first rows are held to find the widths; a table longer than that goes on with the
// widths it has then, so that a million rows are not held. Columns that stay empty are left out of a short table. Where
// the whole would be wider than `width` characters, texts go on in further lines of their cells, and where there are
// too many columns for that, each row is written as lines of title and value; 0: as wide as it gets.
class Table {
 public:
   static constexpr size_t heldMax = 5000; // rows

   Table( Columns columns, std::ostream & out, size_t width = 0 ) :
        columns_( std::move( columns ) ), out_( out ), width_( width ) {}
   void row( const Json & row );
   // Writes what is held. Nothing at all for a table with no rows.
   void end();

 private:
   using Cells = std::vector< Cell >;
   void begin();
   void narrow();
   size_t total() const;
   void writeRecord( const Cells & cells );
   void write( const Cells & cells );
   void writeLine( const std::vector< std::string > & texts );

   Columns columns_;
   std::ostream & out_;
   const size_t width_;
   std::vector< Cells > held_;
   std::vector< size_t > widths_; // 0: left out
   bool begun_ = false;
   bool records_ = false; // too many columns: a line for each cell
};

} // namespace Ctl
