#include "CtlView.h"

#include <algorithm>
#include <fmt/format.h>
#include <iostream>

namespace Ctl {

namespace {

std::string textOf( const Json & json, int indent = -1 ) {
   return json.dump( indent, ' ', false, Json::error_handler_t::replace );
}

} // namespace

void View::failed( const Error & error ) {
   out_.flush();
   std::cerr << "vexctl: " << error.message << '\n';
   exitCodeIs( error.exitCode() );
}

JsonView::JsonView( std::string command, bool record, std::ostream & out ) :
     View( out ), command_( std::move( command ) ), record_( record ) {}

void JsonView::open() {
   if ( std::exchange( open_, true ) ) return;
   out() << "{\n\"command\": " << textOf( command_ );
   out() << ( record_ ? ",\n\"result\": " : ",\n\"rows\": [" );
}

void JsonView::row( const Json & row ) {
   open();
   if ( !record_ ) out() << ( rows_ == 0 ? "\n" : ",\n" );
   out() << textOf( row );
   ++rows_;
}

void JsonView::end( const Json & end ) { close( end ); }

void JsonView::failed( const Error & error ) {
   close( { { "error", { { "code", error.code }, { "message", error.message } } } } );
   View::failed( error );
}

void JsonView::close( const Json & members ) {
   open();
   if ( record_ && rows_ == 0 ) out() << "null";
   if ( !record_ ) out() << ( rows_ == 0 ? "]" : "\n]" );
   for ( const auto & [ key, value ] : members.items() )
      if ( key != "rows" ) out() << ",\n" << textOf( key ) << ": " << textOf( value );
   out() << "\n}\n";
}

TableView::TableView( Columns columns, Footer footer, std::ostream & out, size_t width ) :
     View( out ), table_( std::move( columns ), out, width ), footer_( std::move( footer ) ) {}

void TableView::end( const Json & end ) {
   table_.end();
   if ( const auto line = footer_ ? footer_( end ) : std::string(); !line.empty() ) out() << line << '\n';
}

void TableView::failed( const Error & error ) {
   table_.end();
   View::failed( error );
}

RecordView::RecordView( Columns facts, std::ostream & out ) : View( out ), facts_( std::move( facts ) ) {}

void RecordView::row( const Json & row ) {
   size_t width = 0;
   for ( const auto & fact : facts_ ) width = std::max( width, fact.title.size() );
   for ( const auto & fact : facts_ )
      for ( const auto & line : fact.cell( row ) )
         if ( !line.empty() ) out() << fmt::format( "{:<{}}  {}\n", fact.title, width, line );
}

void QuietView::end( const Json & end ) {
   if ( const auto message = end.find( "message" ); message != end.end() ) std::cerr << inWords( *message ) << '\n';
}

} // namespace Ctl
