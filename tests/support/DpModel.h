// A data plane in small: it takes the lines of a recording channel, keeps the module graph and the tables, and says
// what is forwarded where, without the numbers that only tell in which order things came.
#pragma once

#include "RecordingChannel.h"

#include <map>

namespace Test {

class DpModel {
 public:
   void apply( const Lines & lines );

   // What the data plane does, sorted: modules with their settings, edges without gate numbers, and routes with the
   // next hops that they lead to.
   Lines forwarding() const;
   // How many entries each table has, also those that no route uses.
   Lines sizes() const;
   // Requests that a data plane refuses, and references into nothing.
   Lines breaches() const;

 private:
   using Entries = std::map< Gant::String, Gant::String >;
   struct Module {
      Gant::String description;
      std::map< Gant::String, Gant::String > gates;    // to "module:gate"
      std::map< Gant::String, Gant::String > settings; // by action
      std::map< Gant::String, Entries > tables;        // by name, then by key
   };

   void request( const Gant::String & line );
   void command( Module & module, const Gant::String & action, const Gant::String & argument );
   void erase( Module & module, const char * table, const Gant::String & key, const Gant::String & what );
   void deleteVrf( Module & module, const Gant::String & vrf, const Gant::String & what );
   // The name of the module behind a gate; empty: none.
   Gant::String behind( const Gant::String & module, const Gant::String & gate ) const;
   const Gant::String * entry( const Gant::String & module, const char * table, const Gant::String & key ) const;
   Gant::String hop( const Gant::String & gate, const Gant::String & index ) const;
   Gant::String hopOf( const Gant::String & outputModule, const Gant::String & index ) const;
   Gant::String ways( const Gant::String & fecId ) const;

   std::map< Gant::String, Module > modules_;
   Lines refused_;
};

} // namespace Test
