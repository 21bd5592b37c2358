#include "DpModel.h"

#include <algorithm>
#include <sstream>

namespace Test {

namespace {

const Gant::String fib = "fibIpv4";

// The FECs of broadcast and multicast, which all VRFs share: they stay when the last VRF goes, and that of multicast
// leads to the VRF that came last.
bool sharedByVrfs( const Gant::String & fecId ) { return fecId == "0" || fecId == "1" || fecId == "2"; }
const Gant::String multicastFec = "2";

// The value of a field, empty when it is not there.
Gant::String field( const Gant::String & text, const char * name ) {
   std::istringstream in( text );
   for ( Gant::String word, value; in >> word; )
      if ( word == name && in >> value ) return value;
   return "";
}

// The texts in braces behind a name.
Lines groups( const Gant::String & text, const char * name ) {
   Lines out;
   const auto begin = Gant::String( name ) + " {";
   for ( auto at = text.find( begin ); at != text.npos; at = text.find( begin, at ) ) {
      at += begin.size();
      out.push_back( text.substr( at, text.find( '}', at ) - at ) );
   }
   return out;
}

// A text's first word is cut off.
Gant::String cutWord( Gant::String & text ) {
   const auto at = text.find( ' ' );
   const auto word = text.substr( 0, at );
   text.erase( 0, at == text.npos ? at : at + 1 );
   return word;
}

// What is left of a name behind its kind: "et1" of "IpOutput_et1".
Gant::String suffix( const Gant::String & module ) { return module.substr( module.find( '_' ) + 1 ); }

Gant::String withoutGate( const Gant::String & end ) { return end.substr( 0, end.find( ':' ) ); }
Gant::String gateOf( const Gant::String & end ) { return end.substr( end.find( ':' ) + 1 ); }

} // namespace

void DpModel::apply( const Lines & lines ) {
   for ( const auto & line : lines ) request( line );
}

void DpModel::request( const Gant::String & line ) {
   auto rest = line;
   const auto verb = cutWord( rest );
   const auto subject = cutWord( rest );
   const auto name = verb == "create" || verb == "destroy" ? subject : withoutGate( subject );
   bool fine = modules_.contains( name );
   if ( verb == "connect" ) {
      const auto target = rest.substr( 3 );
      fine = fine && modules_.contains( withoutGate( target ) ) &&
             modules_[ name ].gates.try_emplace( gateOf( subject ), target ).second;
   } else if ( verb == "disconnect" ) {
      fine = fine && modules_[ name ].gates.erase( gateOf( subject ) ) != 0;
   } else if ( verb == "create" ) {
      fine = !fine;
      if ( fine ) modules_[ name ].description = rest;
   } else if ( verb == "destroy" ) {
      modules_.erase( name );
      for ( auto & [ other, module ] : modules_ )
         std::erase_if( module.gates, [ & ]( const auto & gate ) { return withoutGate( gate.second ) == name; } );
   } else {
      fine = modules_.contains( verb );
      if ( fine ) command( modules_[ verb ], subject, rest );
   }
   if ( !fine ) refused_.push_back( line );
}

void DpModel::command( Module & module, const Gant::String & action, const Gant::String & argument ) {
   const auto what = action + " " + argument;
   if ( action == "writeNH" ) {
      for ( const auto & info : groups( argument, "nexthopinfo" ) )
         module.tables[ "next hops" ][ field( info, "nh_index" ) ] = info.substr( info.find( ' ', 9 ) + 1 );
   } else if ( action == "deleteNH" ) {
      // A next hop that was numbered before its interface's module was there is deleted from a module that never had
      // it.
      for ( const auto & info : groups( argument, "nexthopinfo" ) )
         module.tables[ "next hops" ].erase( field( info, "nh_index" ) );
   } else if ( action == "addNhResolveEntry" ) {
      module.tables[ "resolve entries" ][ field( argument, "nhr_index" ) ] = argument;
   } else if ( action == "deleteNhResolveEntry" ) {
      module.tables[ "resolve entries" ].erase( field( argument, "nhr_index" ) );
   } else if ( action == "addFec" ) {
      module.tables[ "FECs" ][ field( argument, "fec_id" ) ] = argument;
   } else if ( action == "delFec" ) {
      erase( module, "FECs", field( argument, "fec_id" ), what );
   } else if ( action == "addVrf" || action == "delVrf" ) {
      if ( action == "addVrf" )
         module.tables[ "VRFs" ][ argument ] = "";
      else
         deleteVrf( module, argument, what );
   } else if ( action == "addRoute" || action == "delRoute" ) {
      const auto key = "vrf " + field( argument, "vrf" ) + " " + field( argument, "prefix" ) + "/" +
                       field( argument, "prefix_len" );
      if ( action == "addRoute" )
         module.tables[ "routes" ][ key ] = field( argument, "fec_id" );
      else
         erase( module, "routes", key, what );
   } else if ( action == "setEtherTypeGate" ) {
      module.tables[ "ether types" ][ field( argument, "ether_type" ) ] = field( argument, "ogate" );
   } else if ( action == "clearEtherTypeGate" ) {
      erase( module, "ether types", field( argument, "ether_type" ), what );
   } else if ( what == "setVrf vrf 0" || what == "setEnabled enabled true" ) {
      // As it was made.
      module.settings.erase( action );
   } else if ( action != "setCounterIds" ) {
      module.settings[ action ] = argument;
   }
}

// The VRF's routes go along.
void DpModel::deleteVrf( Module & module, const Gant::String & vrf, const Gant::String & what ) {
   erase( module, "VRFs", vrf, what );
   std::erase_if( module.tables[ "routes" ],
                  [ & ]( const auto & route ) { return route.first.starts_with( vrf + " " ); } );
}

void DpModel::erase( Module & module, const char * table, const Gant::String & key, const Gant::String & what ) {
   if ( module.tables[ table ].erase( key ) == 0 ) refused_.push_back( module.description + ": " + what );
}

Gant::String DpModel::behind( const Gant::String & module, const Gant::String & gate ) const {
   const auto at = modules_.find( module );
   if ( at == modules_.end() || !at->second.gates.contains( gate ) ) return "";
   return withoutGate( at->second.gates.at( gate ) );
}

const Gant::String * DpModel::entry( const Gant::String & module, const char * table, const Gant::String & key ) const {
   const auto at = modules_.find( module );
   if ( at == modules_.end() || !at->second.tables.contains( table ) ) return nullptr;
   const auto & entries = at->second.tables.at( table );
   const auto found = entries.find( key );
   return found == entries.end() ? nullptr : &found->second;
}

// Behind an interface's output module, its next hop; behind that of a tunnel, the one of the underlay.
Gant::String DpModel::hopOf( const Gant::String & outputModule, const Gant::String & index ) const {
   const auto intf = suffix( outputModule );
   if ( const auto * const nextHop = entry( "NextHop_" + intf, "next hops", index ) ) return intf + " " + *nextHop;
   const auto resolve = "NhResolve_" + intf;
   const auto * const resolved = entry( resolve, "resolve entries", index );
   if ( resolved == nullptr ) return intf + " no entry " + index;
   const auto underlay = behind( resolve, field( *resolved, "ogate" ) );
   return intf + " over " + ( underlay.empty() ? "nothing" : hopOf( underlay, field( *resolved, "nhm_index" ) ) );
}

Gant::String DpModel::hop( const Gant::String & gate, const Gant::String & index ) const {
   const auto module = behind( fib, gate );
   if ( module.empty() ) return "nothing";
   return module.starts_with( "IpOutput_" ) ? hopOf( module, index ) : module;
}

Gant::String DpModel::ways( const Gant::String & fecId ) const {
   const auto * const fec = entry( fib, "FECs", fecId );
   if ( fec == nullptr ) return "no FEC";
   Lines hops;
   for ( const auto & info : groups( *fec, "nh_info" ) )
      hops.push_back( hop( field( info, "gate" ), field( info, "nh_index" ) ) );
   std::ranges::sort( hops );
   Gant::String out;
   for ( const auto & hop : hops ) out += "{" + hop + "}";
   return out.empty() ? "drop" : out;
}

Lines DpModel::forwarding() const {
   Lines out;
   for ( const auto & [ name, module ] : modules_ ) {
      out.push_back( name + " " + module.description );
      for ( const auto & [ action, argument ] : module.settings ) out.push_back( name + " " + action + " " + argument );
      // A multicast module keeps its way to a port whose interface has gone.
      for ( const auto & [ gate, end ] : module.gates )
         if ( !name.starts_with( "mfib6_" ) ) out.push_back( name + " -> " + end );
      if ( !module.tables.contains( "ether types" ) ) continue;
      for ( const auto & [ type, gate ] : module.tables.at( "ether types" ) )
         out.push_back( name + " type " + type + " to " + behind( name, gate ) );
   }
   const auto at = modules_.find( fib );
   if ( at != modules_.end() && at->second.tables.contains( "routes" ) )
      for ( const auto & [ route, fecId ] : at->second.tables.at( "routes" ) )
         out.push_back( route + " " + ( fecId == multicastFec ? "multicast" : ways( fecId ) ) );
   std::ranges::sort( out );
   return out;
}

Lines DpModel::sizes() const {
   Lines out;
   for ( const auto & [ name, module ] : modules_ )
      for ( const auto & [ table, entries ] : module.tables ) {
         const auto count = std::ranges::count_if( entries, [ isFecs = table == "FECs" ]( const auto & entry ) {
            return !isFecs || !sharedByVrfs( entry.first );
         } );
         if ( count != 0 ) out.push_back( Gant::textsOf( name, ": ", count, " ", table ) );
      }
   return out;
}

Lines DpModel::breaches() const {
   auto out = refused_;
   for ( const auto & line : forwarding() )
      if ( line.find( "no FEC" ) != line.npos || line.find( "no entry" ) != line.npos ) out.push_back( line );
   return out;
}

} // namespace Test
