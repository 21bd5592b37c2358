#include "DpNhResolve.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

const ModuleClass & NhResolve::moduleClass() {
   static const ModuleClass self = describe< NhResolve, NhResolveArg >(
        "NhResolve", "from a tunnel to the interface under it: maps an index to an output gate and a next hop",
        { .igates = 1, .ogates = kMaxGates },
        { command< &NhResolve::addEntry >( "addNhResolveEntry" ),
          command< &NhResolve::deleteEntry >( "deleteNhResolveEntry" ) } );
   return self;
}

Outcome NhResolve::check( const NhResolveArg & init ) {
   return requireAtMost( "max_entries", init.max_entries(), kMaxEntries );
}

NhResolve::NhResolve( Identity identity, const NhResolveArg & init ) :
     Module( std::move( identity ) ), maxEntries_( init.max_entries() != 0 ? init.max_entries() : kDefaultEntries ) {}

const NhResolve::Entry * NhResolve::entry( std::uint32_t index ) const {
   return index < entries_.size() && entries_[ index ] ? &*entries_[ index ] : nullptr;
}

Outcome NhResolve::addEntry( const NhResolveEntryInfoArg & arg ) {
   if ( auto out = requireFields( { { arg.has_nhr_index(), "nhr_index" },
                                    { arg.has_ogate(), "ogate" },
                                    { arg.has_nhm_index(), "nhm_index" } } );
        !out.ok() )
      return out;
   if ( arg.nhr_index() == 0 ) return refuse( EINVAL, "nhr_index 0 is reserved" );
   if ( auto out = requireAtMost( "nhr_index", arg.nhr_index(), maxEntries_ - 1 ); !out.ok() ) return out;
   if ( auto out = requireGate( "ogate", arg.ogate(), mclass().gates.ogates ); !out.ok() ) return out;
   if ( arg.nhr_index() >= entries_.size() ) entries_.resize( arg.nhr_index() + 1 );
   auto & slot = entries_[ arg.nhr_index() ];
   if ( !slot ) ++used_;
   slot = Entry{ arg.ogate(), arg.nhm_index() };
   return {};
}

Outcome NhResolve::deleteEntry( const NhResolveEntryInfoArg & arg ) {
   if ( auto out = requireFields( { { arg.has_nhr_index(), "nhr_index" } } ); !out.ok() ) return out;
   if ( auto out = requireAtMost( "nhr_index", arg.nhr_index(), maxEntries_ - 1 ); !out.ok() ) return out;
   if ( entry( arg.nhr_index() ) == nullptr ) return {};
   entries_[ arg.nhr_index() ].reset();
   --used_;
   return {};
}

Fate NhResolve::process( Packet & packet, Context & context ) {
   const auto index = packet.meta.nhIndex;
   const auto * found = entry( index );
   if ( found == nullptr ) return context.drop( kNoCounter, "there is no resolve entry {}", index );
   if ( found->ogate == kNoGate ) return context.drop( kNoCounter, "resolve entry {} has no gate", index );
   packet.meta.nhIndex = found->nhIndex;
   context.note( "resolve entry {} -> gate {}, next hop {}", index, found->ogate, found->nhIndex );
   return context.forward( found->ogate );
}

void NhResolve::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

CommandSource NhResolve::commands() const {
   return [ entries = entries_ ]( CommandSink & sink ) {
      for ( std::uint32_t index = 0; index < entries.size(); ++index ) {
         if ( !entries[ index ] ) continue;
         NhResolveEntryInfoArg arg;
         arg.set_nhr_index( index );
         arg.set_ogate( entries[ index ]->ogate );
         arg.set_nhm_index( entries[ index ]->nhIndex );
         sink.command( "addNhResolveEntry", arg );
      }
   };
}

std::string NhResolve::desc() const { return fmt::format( "{} of {} entries", used_, maxEntries_ ); }

} // namespace Vexdp
