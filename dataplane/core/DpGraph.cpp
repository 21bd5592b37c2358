#include "DpGraph.h"

#include "DpModuleClass.h"

#include <cerrno>

namespace Vexdp {

namespace {

Outcome requireGateOf( const Module & module, const char * side, std::uint64_t gate, GateId limit ) {
   if ( gate < limit ) return {};
   return refuse( ERANGE, "{} gate {} is out of range, {} of class {} has {}", side, gate, module.name(),
                  module.mclass().name, limit );
}

} // namespace

Module * Graph::find( std::string_view name ) const {
   const auto at = modules_.find( name );
   return at == modules_.end() ? nullptr : at->second.get();
}

Outcome Graph::add( std::unique_ptr< Module > module ) {
   const auto & mclass = module->mclass();
   if ( const auto * present = find( module->name() ) )
      return refuse( EEXIST, "the name is in use by a module of class {}", present->mclass().name );
   if ( mclass.shared ) {
      const auto [ at, added ] = shared_.try_emplace( &mclass, module.get() );
      if ( !added ) return refuse( EEXIST, "class {} has its one module, {}", mclass.name, at->second->name() );
   }
   if ( mclass.trap && trap_ == nullptr ) trap_ = module.get();
   modules_.emplace( module->name(), std::move( module ) );
   return {};
}

Outcome Graph::remove( std::string_view name ) {
   const auto at = modules_.find( name );
   if ( at == modules_.end() ) return refuse( ENOENT, "no such module" );
   auto & module = *at->second;
   for ( GateId ogate = 0; ogate < module.ogates_.size(); ++ogate )
      if ( module.ogates_[ ogate ].peer != nullptr ) cut( module, ogate );
   const auto upstream = module.upstream_;
   for ( const auto & [ from, ogate ] : upstream ) cut( *from, ogate );
   if ( module.mclass().shared ) shared_.erase( &module.mclass() );
   if ( trap_ == &module ) trap_ = nullptr;
   modules_.erase( at );
   return {};
}

void Graph::clear() {
   trap_ = nullptr;
   shared_.clear();
   modules_.clear();
}

Outcome Graph::connect( std::string_view from, std::uint64_t ogate, std::string_view to, std::uint64_t igate ) {
   auto * source = find( from );
   if ( source == nullptr ) return refuse( ENOENT, "no such module" );
   auto * target = find( to );
   if ( target == nullptr ) return refuse( ENOENT, "there is no module {} to connect to", to );
   if ( auto out = requireGateOf( *source, "output", ogate, source->mclass().gates.ogates ); !out.ok() ) return out;
   if ( auto out = requireGateOf( *target, "input", igate, target->mclass().gates.igates ); !out.ok() ) return out;

   const auto out = GateId( ogate );
   if ( out < source->ogates_.size() && source->ogates_[ out ].peer != nullptr )
      return refuse( EBUSY, "output gate {} is in use, it leads to {}:{}", out, source->ogates_[ out ].peer->name(),
                     source->ogates_[ out ].igate );
   source->growTo( true, out );
   target->growTo( false, GateId( igate ) );
   source->ogates_[ out ] = { target, GateId( igate ) };
   target->upstream_.emplace( source, out );
   return {};
}

Outcome Graph::disconnect( std::string_view from, std::uint64_t ogate ) {
   auto * source = find( from );
   if ( source == nullptr ) return refuse( ENOENT, "no such module" );
   if ( ogate >= source->ogates_.size() || source->ogates_[ ogate ].peer == nullptr )
      return refuse( ENOTCONN, "output gate {} is not connected", ogate );
   cut( *source, GateId( ogate ) );
   return {};
}

void Graph::cut( Module & from, GateId ogate ) {
   auto & gate = from.ogates_[ ogate ];
   gate.peer->upstream_.erase( { &from, ogate } );
   gate = {};
   from.resetCounters( true, ogate );
}

} // namespace Vexdp
