#include "DpWalk.h"

#include "DpClock.h"
#include "DpEthernet.h"
#include "DpGraph.h"
#include "DpModuleClass.h"

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
   also_.push_back( { at_, std::move( packet ), ogate } );
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
   context_.trace_ = nullptr;
   auto group = newGroup();
   group->to = &source;
   group->igate = 0;
   group->hops = 0;
   for ( auto & packet : burst ) group->packets.push_back( &packet );
   waiting_.push_back( std::move( group ) );
   while ( !waiting_.empty() ) visit( takeGroup() );
   made_.clear();
}

Walk::GroupPtr Walk::takeGroup() {
   auto group = std::move( waiting_.front() );
   waiting_.erase( waiting_.begin() );
   return group;
}

Walk::GroupPtr Walk::newGroup() {
   if ( free_.empty() ) return std::make_unique< Group >();
   auto group = std::move( free_.back() );
   free_.pop_back();
   group->packets.clear();
   return group;
}

void Walk::visit( GroupPtr group ) {
   auto & module = *group->to;
   const auto count = group->packets.size();
   context_.module_ = &module;
   context_.igate_ = group->igate;
   watched_ = watcher_ != nullptr && watcher_->watches( module );
   if ( watched_ ) watcher_->enters( module, group->igate, group->packets, context_.now_ );
   if ( trace_ != nullptr ) {
      goOnTraced( *group );
   } else {
      if ( context_.fates_.size() < count ) context_.fates_.resize( count, Fate( Fate::Kind::dropped ) );
      module.processAll( group->packets, context_ );
      if ( shareFate( count ) ) return goOnTogether( std::move( group ) );
      goOnApart( *group );
   }
   countCrossed();
   free_.push_back( std::move( group ) );
}

bool Walk::shareFate( std::size_t count ) const {
   const auto & fates = context_.fates_;
   const auto first = fates.front().word();
   std::uint64_t unlike = 0;
   for ( std::size_t i = 1; i < count; ++i ) unlike |= fates[ i ].word() ^ first;
   return unlike == 0 && context_.also_.empty();
}

void Walk::goOnTogether( GroupPtr group ) {
   auto & module = *group->to;
   const auto fate = context_.fates_.front();
   const auto way = wayOf( *group, fate );
   if ( !fate.goesOn() || way.to == nullptr || group->hops + 1 >= kMaxHops ) {
      if ( fate.goesOn() ) goOnApart( *group );
      return free_.push_back( std::move( group ) );
   }
   if ( watched_ ) watcher_->leaves( module, fate.ogate_, group->packets, context_.now_ );
   countOn( way, group->packets );
   countCrossed();
   ++group->hops;
   if ( auto * const others = onWay( way, group->hops ) ) {
      others->packets.insert( others->packets.end(), group->packets.begin(), group->packets.end() );
      return free_.push_back( std::move( group ) );
   }
   group->to = way.to;
   group->igate = way.igate;
   waiting_.push_back( std::move( group ) );
}

void Walk::goOnApart( const Group & group ) {
   auto made = context_.also_.begin();
   for ( std::size_t i = 0; i < group.packets.size(); ++i ) {
      goOn( group, context_.fates_[ i ], *group.packets[ i ] );
      for ( ; made != context_.also_.end() && made->behind == i; ++made ) makeGoOn( group, *made );
   }
   context_.also_.clear();
}

void Walk::goOnTraced( const Group & group ) {
   context_.at_ = 0;
   for ( auto * const packet : group.packets ) {
      traceIs( *packet );
      goOn( group, processTraced( *group.to, *packet ), *packet );
      for ( auto & made : context_.also_ ) makeGoOn( group, made );
      context_.also_.clear();
   }
}

void Walk::traceIs( const Packet & packet ) { context_.trace_ = &packet == traced_ ? trace_ : nullptr; }

Fate Walk::processTraced( Module & module, Packet & packet ) {
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

void Walk::goOn( const Group & from, Fate fate, Packet & packet ) {
   auto & module = *from.to;
   if ( !fate.goesOn() ) return end( module, fate, packet );
   auto * const alone = &packet;
   if ( watched_ ) watcher_->leaves( module, fate.ogate_, { &alone, 1 }, context_.now_ );
   if ( from.hops + 1 >= kMaxHops ) return lose( module, packet, "loop" );
   const auto way = wayOf( from, fate );
   if ( way.to == nullptr ) return lose( module, packet, "gate {} is not connected", fate.ogate_ );
   countOn( way, { &alone, 1 } );
   auto * group = onWay( way, from.hops + 1 );
   if ( group == nullptr ) {
      waiting_.push_back( newGroup() );
      group = waiting_.back().get();
      group->to = way.to;
      group->igate = way.igate;
      group->hops = from.hops + 1;
   }
   group->packets.push_back( &packet );
}

void Walk::makeGoOn( const Group & from, Context::Made & made ) {
   context_.trace_ = nullptr;
   made_.push_back( std::move( made.packet ) );
   goOn( from, Fate( Fate::Kind::forwarded, made.ogate ), made_.back() );
}

Walk::Way Walk::wayOf( const Group & from, Fate fate ) const {
   auto & module = *from.to;
   if ( fate.ogate_ >= module.ogates_.size() || module.ogates_[ fate.ogate_ ].peer == nullptr )
      return { fate.kind_ == Fate::Kind::punted ? module.graph_.trap() : nullptr, from.igate };
   auto & gate = module.ogates_[ fate.ogate_ ];
   return { gate.peer, gate.igate, &gate, &module.tallies_[ context_.seat_.worker ].out[ fate.ogate_ ] };
}

Walk::Group * Walk::onWay( const Way & way, unsigned hops ) const {
   for ( const auto & group : waiting_ )
      if ( group->to == way.to && group->igate == way.igate && group->hops == hops ) return group.get();
   return nullptr;
}

// A punted packet keeps its reason beside why it was lost.
template < typename... Args >
void Walk::lose( Module & module, const Packet & packet, fmt::format_string< Args... > why, Args &&... args ) {
   const fmt::string_view format = why;
   if ( context_.counting() ) module.tallies_[ context_.seat_.worker ].countDrop( { format.data(), format.size() } );
   if ( context_.trace_ != nullptr ) {
      auto text = fmt::format( why, std::forward< Args >( args )... );
      auto & reason = *context_.trace_->mutable_reason();
      reason = reason.empty() ? std::move( text ) : fmt::format( "{} ({})", text, reason );
   }
   end( module, Fate( Fate::Kind::dropped ), packet );
}

void Walk::countOn( const Way & way, Packets packets ) {
   if ( way.gate == nullptr || !context_.counting() ) return;
   if ( gate_ != way.gate ) {
      countCrossed();
      gate_ = way.gate;
      gateOut_ = way.counters;
   }
   crossed_ += packets.size();
   for ( const auto * const packet : packets ) bytes_ += packet->size();
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
