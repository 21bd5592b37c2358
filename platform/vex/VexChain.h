// A chain of modules in order of priority, lowest first.
#pragma once

#include "VexModule.h"

namespace Vex {

// Packets come in from the sources, pass every module and leave by the exit, where there is one. Each module leads on
// by a gate of its own, which it takes when it needs one. A change keeps the rest connected: a module is first
// connected to what follows it, then what comes before is pointed at it; one that goes is passed by first.
class ModuleChain {
 public:
   ModuleChain() = default;
   ModuleChain( const ModuleChain & ) = delete;
   ModuleChain & operator=( const ModuleChain & ) = delete;
   ~ModuleChain() { takeDown(); }

   // Nothing changes for a module that stands at its place already; at another place, it moves.
   void place( const Gant::Ptr< Module > & module, U32 priority );
   // Nothing for a module that does not stand here.
   void remove( const Module * module );
   // `gate` is a taken gate of the source. A source has one gate in a chain: another one replaces it.
   void sourceIs( const Gant::Ptr< Module > & source, GateId gate );
   // Gives the gate back to the source.
   void sourceDel( const Module * source );
   // Null: the last module leads nowhere.
   void exitIs( Gant::Ptr< Module > exit );
   // Disconnects and lets go of everything.
   void takeDown();

   struct Link {
      U32 priority;
      Gant::Ptr< Module > module;
      GateId onward; // none while the module leads nowhere
   };
   struct Source {
      Gant::Ptr< Module > module;
      GateId gate;
   };
   const std::vector< Link > & links() const { return links_; }
   const std::vector< Source > & sources() const { return sources_; }

 private:
   Module * after( size_t position ) const;
   void pointAt( size_t position, Module * target );
   void lead( size_t position );

   std::vector< Link > links_; // by priority
   std::vector< Source > sources_;
   Gant::Ptr< Module > exit_;
};

} // namespace Vex
