#include "VexChain.h"

#include <algorithm>

namespace Vex {

// What stands at the position, or the exit behind the last one.
Module * ModuleChain::after( size_t position ) const {
   return position < links_.size() ? links_[ position ].module.get() : exit_.get();
}

// Makes the module at the position lead to the target.
void ModuleChain::pointAt( size_t position, Module * target ) {
   auto & link = links_[ position ];
   if ( target != nullptr && !link.onward ) link.onward = link.module->getOutGate();
   link.module->outGateIs( link.onward, target );
   if ( target != nullptr ) return;
   link.module->releaseOutGate( link.onward );
   link.onward = GateId();
}

// Makes what comes before the position lead to what stands there.
void ModuleChain::lead( size_t position ) {
   if ( position > 0 ) {
      pointAt( position - 1, after( position ) );
   } else {
      for ( const auto & source : sources_ )
         source.module->outGateIs( source.gate, links_.empty() ? nullptr : links_.front().module.get() );
   }
}

void ModuleChain::place( const Gant::Ptr< Module > & module, U32 priority ) {
   const auto standing = std::ranges::find( links_, module, &Link::module );
   if ( standing != links_.end() ) {
      if ( standing->priority == priority ) return;
      remove( module.get() );
   }
   const auto at = std::ranges::upper_bound( links_, priority, {}, &Link::priority );
   const auto position = static_cast< size_t >( at - links_.begin() );
   links_.insert( at, { priority, module, GateId() } );
   pointAt( position, after( position + 1 ) );
   lead( position );
}

void ModuleChain::remove( const Module * module ) {
   const auto at =
        std::ranges::find_if( links_, [ module ]( const Link & link ) { return link.module.get() == module; } );
   if ( at == links_.end() ) return;
   const auto position = static_cast< size_t >( at - links_.begin() );
   const auto gone = *at;
   links_.erase( at );
   lead( position );
   gone.module->outGateIs( gone.onward, nullptr );
   gone.module->releaseOutGate( gone.onward );
}

void ModuleChain::sourceIs( const Gant::Ptr< Module > & source, GateId gate ) {
   const auto at = std::ranges::find( sources_, source, &Source::module );
   if ( at != sources_.end() ) {
      if ( at->gate == gate ) return;
      sourceDel( source.get() );
   }
   sources_.push_back( { source, gate } );
   source->outGateIs( gate, links_.empty() ? nullptr : links_.front().module.get() );
}

void ModuleChain::sourceDel( const Module * source ) {
   const auto at =
        std::ranges::find_if( sources_, [ source ]( const Source & s ) { return s.module.get() == source; } );
   if ( at == sources_.end() ) return;
   const auto gone = *at;
   sources_.erase( at );
   gone.module->outGateIs( gone.gate, nullptr );
   gone.module->releaseOutGate( gone.gate );
}

void ModuleChain::exitIs( Gant::Ptr< Module > exit ) {
   exit_ = std::move( exit );
   if ( !links_.empty() ) pointAt( links_.size() - 1, exit_.get() );
}

void ModuleChain::takeDown() {
   while ( !sources_.empty() ) sourceDel( sources_.back().module.get() );
   exit_ = nullptr;
   while ( !links_.empty() ) remove( links_.front().module.get() );
}

} // namespace Vex
