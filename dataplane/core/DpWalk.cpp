#include "DpWalk.h"

#include "DpClock.h"
#include "DpEthernet.h"
#include "DpGraph.h"
#include "DpModuleClass.h"

#include <algorithm>
#include <iterator>

namespace Vexdp {

using Reply = vex::pb::TracePacketReply;

namespace {

void countBatch( GateCounters & gate, std::uint64_t packets, std::uint64_t bytes, double now ) {
   ++gate.batches;
   gate.packets += packets;
   gate.bytes += bytes;
   gate.timestamp = now;
}

// Nothing: it is no IPv4 packet.
std::optional< std::uint32_t > dscpOf( const Packet & packet ) {
   const auto bytes = packet.span();
   const std::size_t at = packet.meta.ethernet ? kEthernetLen : 0;
   if ( bytes.size() < at + 2 || bytes[ at ] >> 4 != 4 ) return std::nullopt;
   return bytes[ at + 1 ] >> 2;
}

} // namespace

Context::Context( CounterTable & counters, Purpose purpose, const Seat & seat ) :
     counters_( &counters.writer( seat.worker ) ), purpose_( purpose ), seat_( seat ) {
   readClock();
}

void Context::readClock() { now_ = secondsNow(); }

Fate Context::send( std::string_view intfname, const MacAddr & mac ) {
   if ( trace_ != nullptr ) {
      trace_->clear_reason();
      trace_->set_intfname( std::string( intfname ) );
      if ( mac != MacAddr() ) trace_->set_mac( bytesOf( mac ) );
   }
   return Fate( Fate::Kind::sent );
}

// A packet that isn't counted is of no consequence once it is out of sight.
void Context::also( Packet && packet, GateId ogate ) {
   if ( !counting() || room_ == 0 ) return;
   --room_;
   also_.emplace_back( std::move( packet ), ogate );
}

void Context::reasonIs( std::string reason ) {
   if ( step_ != nullptr ) noteIs( reason );
   trace_->set_reason( std::move( reason ) );
}

void Context::noteIs( std::string_view text ) {
   auto & action = *step_->mutable_action();
   if ( !action.empty() ) action += ", ";
   action += text;
}

Walk::Walk( CounterTable & counters, Purpose purpose, const Seat & seat ) : context_( counters, purpose, seat ) {}

void Walk::run( Module & source, Packet packet, Reply * trace ) {
   trace_ = trace;
   traced_ = &packet;
   context_.readClock();
   walk( source, { &packet, 1 } );
   trace_ = nullptr;
   context_.trace_ = nullptr;
}

void Walk::run( Module & source, std::span< Packet > burst ) {
   context_.readClock();
   if ( watcher_ == nullptr || !watcher_->tracing( context_.now_ ) ) return walk( source, burst );
   runWatched( source, burst );
}

// One by one: each may have a trace of its own.
void Walk::runWatched( Module & source, std::span< Packet > burst ) {
   for ( auto & packet : burst ) {
      trace_ = watcher_->trace( source, packet, context_.now_ );
      traced_ = &packet;
      walk( source, { &packet, 1 } );
      if ( trace_ != nullptr ) watcher_->traced( context_.now_ );
   }
   trace_ = nullptr;
   context_.trace_ = nullptr;
}

void Walk::walk( Module & source, std::span< Packet > burst ) {
   context_.room_ = burst.size() * kMaxMade;
   for ( auto & packet : burst ) waiting_.push_back( { &packet, &source, 0, 0 } );
   while ( !waiting_.empty() ) {
      takeGroup();
      visit( *group_.front().to );
   }
   made_.clear();
}

// Those who are on their way to where the first of them goes.
void Walk::takeGroup() {
   const auto & first = waiting_.front();
   const auto together = [ to = first.to, igate = first.igate ]( const Traveller & traveller ) {
      return traveller.to == to && traveller.igate == igate;
   };
   group_.clear();
   if ( std::ranges::all_of( waiting_, together ) ) return group_.swap( waiting_ );
   std::ranges::copy_if( waiting_, std::back_inserter( group_ ), together );
   std::erase_if( waiting_, together );
}

void Walk::visit( Module & module ) {
   watched_ = watcher_ != nullptr && watcher_->watches( module );
   if ( group_.size() > 1 ) {
      packets_.clear();
      for ( const auto & traveller : group_ ) packets_.push_back( traveller.packet );
      module.fetch( packets_ );
   }
   for ( const auto & traveller : group_ ) {
      const auto fate = process( module, traveller );
      goOn( module, fate, traveller );
      if ( !context_.also_.empty() ) makeGoOn( module, traveller );
   }
   countCrossed();
}

void Walk::traceIs( const Packet & packet ) { context_.trace_ = &packet == traced_ ? trace_ : nullptr; }

Fate Walk::process( Module & module, const Traveller & traveller ) {
   auto & packet = *traveller.packet;
   context_.igate_ = traveller.igate;
   if ( watched_ ) watcher_->enters( module, traveller.igate, packet, context_.now_ );
   if ( trace_ != nullptr ) traceIs( packet );
   if ( context_.trace_ == nullptr || !steps_ ) {
      context_.step_ = nullptr;
      return module.process( packet, context_ );
   }
   context_.step_ = context_.trace_->add_step();
   context_.step_->set_module( module.name() );
   context_.step_->set_mclass( module.mclass().name );
   const auto fate = module.process( packet, context_ );
   if ( fate.goesOn() && fate.ogate_ != kNoGate ) context_.step_->set_ogate( fate.ogate_ );
   return fate;
}

void Walk::goOn( Module & module, Fate fate, const Traveller & traveller ) {
   const auto & packet = *traveller.packet;
   if ( !fate.goesOn() ) return end( module, fate, packet );
   if ( watched_ ) watcher_->leaves( module, fate.ogate_, packet, context_.now_ );
   if ( traveller.hops + 1 >= kMaxHops ) return lose( module, packet, "loop" );
   auto * const next = cross( module, fate, packet );
   if ( next == nullptr ) return lose( module, packet, "gate {} is not connected", fate.ogate_ );
   waiting_.push_back( { traveller.packet, next, context_.igate_, traveller.hops + 1 } );
}

void Walk::makeGoOn( Module & module, const Traveller & traveller ) {
   context_.trace_ = nullptr;
   for ( auto & [ packet, ogate ] : context_.also_ ) {
      made_.push_back( std::move( packet ) );
      goOn( module, Fate( Fate::Kind::forwarded, ogate ), { &made_.back(), nullptr, 0, traveller.hops } );
   }
   context_.also_.clear();
}

// A punted packet keeps its reason beside why it was lost.
template < typename... Args >
void Walk::lose( Module & module, const Packet & packet, fmt::format_string< Args... > why, Args &&... args ) {
   const fmt::string_view format = why;
   context_.why_ = { format.data(), format.size() };
   if ( context_.trace_ != nullptr ) {
      auto text = fmt::format( why, std::forward< Args >( args )... );
      auto & reason = *context_.trace_->mutable_reason();
      reason = reason.empty() ? std::move( text ) : fmt::format( "{} ({})", text, reason );
   }
   end( module, Fate( Fate::Kind::dropped ), packet );
}

Module * Walk::cross( Module & from, Fate fate, const Packet & packet ) {
   if ( fate.ogate_ >= from.ogates_.size() || from.ogates_[ fate.ogate_ ].peer == nullptr )
      return fate.kind_ == Fate::Kind::punted ? from.graph_.trap() : nullptr;
   auto & gate = from.ogates_[ fate.ogate_ ];
   context_.igate_ = gate.igate;
   if ( context_.counting() ) {
      if ( gate_ != &gate ) {
         countCrossed();
         gate_ = &gate;
         gateOut_ = &from.tallies_[ context_.seat_.worker ].out[ fate.ogate_ ];
      }
      ++crossed_;
      bytes_ += packet.size();
   }
   return gate.peer;
}

void Walk::countCrossed() {
   if ( gate_ == nullptr ) return;
   countBatch( *gateOut_, crossed_, bytes_, context_.now_ );
   auto & gateIn = gate_->peer->tallies_[ context_.seat_.worker ].in[ gate_->igate ];
   countBatch( gateIn, crossed_, bytes_, context_.now_ );
   gate_ = nullptr;
   crossed_ = bytes_ = 0;
}

void Walk::end( Module & module, Fate fate, const Packet & packet ) {
   if ( fate.kind_ == Fate::Kind::dropped && context_.counting() )
      module.tallies_[ context_.seat_.worker ].countDrop( context_.why_ );
   if ( context_.trace_ == nullptr ) return;
   using enum Fate::Kind;
   context_.trace_->set_end( fate.kind_ == sent    ? Reply::END_SENT
                             : fate.kind_ == local ? Reply::END_LOCAL
                                                   : Reply::END_DROPPED );
   auto & trace = *context_.trace_;
   trace.set_module( module.name() );
   trace.set_mclass( module.mclass().name );
   trace.set_length( std::uint32_t( packet.size() ) );
   if ( fate.kind_ != sent ) return;
   trace.set_traffic_class( packet.meta.trafficClass );
   if ( const auto dscp = dscpOf( packet ) ) trace.set_dscp( *dscp );
}

} // namespace Vexdp
