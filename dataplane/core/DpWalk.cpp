#include "DpWalk.h"

#include "DpGraph.h"
#include "DpModuleClass.h"

#include <chrono>

namespace Vexdp {

using Reply = vex::pb::TracePacketReply;

namespace {

void countPacket( GateCounters & gate, const Packet & packet, double now ) {
   ++gate.batches;
   ++gate.packets;
   gate.bytes += packet.size();
   gate.timestamp = now;
}

} // namespace

Context::Context( CounterTable & counters, Purpose purpose ) : counters_( counters ), purpose_( purpose ) {
   readClock();
}

void Context::readClock() {
   now_ = std::chrono::duration< double >( std::chrono::system_clock::now().time_since_epoch() ).count();
}

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
   if ( !counting() || made_ >= Walk::kMaxMade ) return;
   ++made_;
   parked_.push_back( { std::move( packet ), at_, ogate, hops_ } );
}

void Context::reasonIs( std::string reason ) {
   noteIs( reason );
   trace_->set_reason( std::move( reason ) );
}

void Context::noteIs( std::string_view text ) {
   auto & action = *step_->mutable_action();
   if ( !action.empty() ) action += ", ";
   action += text;
}

Walk::Walk( CounterTable & counters, Purpose purpose ) : context_( counters, purpose ) {}

void Walk::run( Module & source, Packet packet, Reply * trace ) {
   context_.trace_ = trace;
   context_.hops_ = 0;
   context_.made_ = 0;
   follow( source, packet );
   context_.trace_ = nullptr;
   while ( !context_.parked_.empty() ) {
      auto parked = std::move( context_.parked_.front() );
      context_.parked_.pop_front();
      context_.hops_ = parked.hops;
      follow( *parked.from, Fate( Fate::Kind::forwarded, parked.ogate ), parked.packet );
   }
}

// A punted packet keeps its reason beside why it was lost.
template < typename... Args >
void Walk::lose( Module & module, const Packet & packet, fmt::format_string< Args... > why, Args &&... args ) {
   if ( context_.trace_ != nullptr ) {
      auto text = fmt::format( why, std::forward< Args >( args )... );
      auto & reason = *context_.trace_->mutable_reason();
      reason = reason.empty() ? std::move( text ) : fmt::format( "{} ({})", text, reason );
   }
   end( module, Fate( Fate::Kind::dropped ), packet );
}

void Walk::follow( Module & source, Packet & packet ) {
   context_.igate_ = 0;
   const auto fate = visit( source, packet );
   if ( fate.goesOn() )
      follow( source, fate, packet );
   else
      end( source, fate, packet );
}

void Walk::follow( Module & from, Fate fate, Packet & packet ) {
   Module * at = &from;
   while ( true ) {
      if ( context_.hops_ >= kMaxHops ) return lose( *at, packet, "loop" );
      Module * next = cross( *at, fate, packet );
      if ( next == nullptr ) return lose( *at, packet, "gate {} is not connected", fate.ogate_ );
      at = next;
      fate = visit( *at, packet );
      if ( !fate.goesOn() ) return end( *at, fate, packet );
   }
}

Module * Walk::cross( Module & from, Fate fate, const Packet & packet ) {
   if ( fate.ogate_ >= from.ogates_.size() || from.ogates_[ fate.ogate_ ].peer == nullptr )
      return fate.kind_ == Fate::Kind::punted ? from.graph_.trap() : nullptr;
   auto & gate = from.ogates_[ fate.ogate_ ];
   context_.igate_ = gate.igate;
   if ( context_.counting() ) {
      countPacket( gate.counters, packet, context_.now_ );
      countPacket( gate.peer->igates_[ gate.igate ], packet, context_.now_ );
   }
   return gate.peer;
}

Fate Walk::visit( Module & module, Packet & packet ) {
   context_.at_ = &module;
   ++context_.hops_;
   if ( context_.trace_ == nullptr ) return module.process( packet, context_ );
   context_.step_ = context_.trace_->add_step();
   context_.step_->set_module( module.name() );
   context_.step_->set_mclass( module.mclass().name );
   const auto fate = module.process( packet, context_ );
   if ( fate.goesOn() && fate.ogate_ != kNoGate ) context_.step_->set_ogate( fate.ogate_ );
   return fate;
}

void Walk::end( Module & module, Fate fate, const Packet & packet ) {
   if ( fate.kind_ == Fate::Kind::dropped && context_.counting() ) ++module.deadEnds_;
   if ( context_.trace_ == nullptr ) return;
   using enum Fate::Kind;
   context_.trace_->set_end( fate.kind_ == sent    ? Reply::END_SENT
                             : fate.kind_ == local ? Reply::END_LOCAL
                                                   : Reply::END_DROPPED );
   context_.trace_->set_module( module.name() );
   context_.trace_->set_length( std::uint32_t( packet.size() ) );
}

} // namespace Vexdp
