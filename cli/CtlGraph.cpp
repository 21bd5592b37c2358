#include "CtlGraph.h"

#include <fmt/format.h>

namespace Ctl {

namespace {

// A text of Graphviz.
std::string quoted( const std::string & text ) {
   return Json( text ).dump( -1, ' ', true, Json::error_handler_t::replace );
}

} // namespace

void GraphView::row( const Json & row ) {
   out() << member( row, "module" ) << " (" << member( row, "class" ) << ")\n";
   for ( const auto & to : row.value( "to", Json::array() ) ) {
      const auto input = member( to, "inputGate" );
      out() << fmt::format( "   {:>5} -> {}{}\n", member( to, "gate" ), member( to, "module" ),
                            input == "0" ? "" : ":" + input );
   }
}

void DotView::open() {
   if ( std::exchange( open_, true ) ) return;
   out() << "digraph modules {\n   rankdir=LR;\n   node [shape=box];\n";
}

void DotView::row( const Json & row ) {
   open();
   const auto name = member( row, "module" );
   out() << fmt::format( "   {} [label={}];\n", quoted( name ), quoted( name + "\n" + member( row, "class" ) ) );
   for ( const auto & to : row.value( "to", Json::array() ) )
      out() << fmt::format( "   {} -> {} [label={}];\n", quoted( name ), quoted( member( to, "module" ) ),
                            quoted( member( to, "gate" ) ) );
}

void DotView::end( const Json & ) {
   open();
   out() << "}\n";
}

void DotView::failed( const Error & error ) {
   if ( open_ ) out() << "}\n";
   View::failed( error );
}

void PacketView::row( const Json & row ) {
   const auto gate = member( row, "gate" );
   out() << fmt::format( "{:>3}  {}{}\n", ++steps_, member( row, "module" ), gate.empty() ? "" : "  -> gate " + gate );
   if ( const auto action = member( row, "action" ); !action.empty() ) out() << "        " << action << '\n';
}

void PacketView::end( const Json & end ) {
   const auto how = member( end, "end" ), reason = member( end, "reason" );
   if ( how == "sent" ) {
      const auto mac = member( end, "mac" );
      out() << "Sent out of " << member( end, "interface" ) << ( mac.empty() ? "" : " to " + mac ) << ", "
            << member( end, "length" ) << " bytes\n";
      return;
   }
   out() << ( how == "local"     ? "To the router itself"
              : how == "dropped" ? "Dropped"
                                 : "Ended" )
         << " at " << member( end, "module" ) << ( reason.empty() ? "" : ": " + reason ) << '\n';
}

} // namespace Ctl
