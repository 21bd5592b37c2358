#include "HostPacketCheck.h"

#include "HulVrfRootSm.h"

#include <algorithm>

namespace Host {

namespace {

using vex::pb::TracePacketReply;

void describe( const PacketProbe & probe, vex::pb::TracePacketRequest & request ) {
   const auto & packet = probe.packet;
   request.set_intfname( probe.in.stringValue() );
   request.set_src( packet.src );
   request.set_dst( packet.dst );
   request.set_proto( packet.proto );
   request.set_sport( packet.sport );
   request.set_dport( packet.dport );
   request.set_ttl( packet.ttl );
   request.set_dscp( packet.dscp );
   request.set_length( packet.length );
   request.set_tcp_flags( packet.tcpFlags );
   request.set_icmp_type( packet.icmpType );
   request.set_icmp_code( packet.icmpCode );
   request.set_payload( probe.payload );
}

Kynet::EthAddr macIn( const TracePacketReply & found ) {
   Kynet::EthAddr::Bytes bytes{};
   std::copy_n( found.mac().begin(), std::min( bytes.size(), found.mac().size() ), bytes.begin() );
   return Kynet::EthAddr( bytes );
}

bool isSo( const PacketFate & fate, const TracePacketReply & found ) {
   using enum PacketFate::Kind;
   const bool byList = found.mclass() == "KyAcl";
   switch ( fate.kind ) {
   case dropped: return found.end() == TracePacketReply::END_DROPPED && !byList;
   case denied: return found.end() == TracePacketReply::END_DROPPED && byList;
   case local: return found.end() == TracePacketReply::END_LOCAL;
   case sent: break;
   }
   return found.end() == TracePacketReply::END_SENT && found.intfname() == fate.intfId.stringValue() &&
          macIn( found ) == fate.mac && ( !fate.dscp || ( found.has_dscp() && found.dscp() == *fate.dscp ) ) &&
          ( !fate.trafficClass || found.traffic_class() == *fate.trafficClass );
}

std::string inWords( const TracePacketReply & found ) {
   if ( found.error().code() != 0 ) return found.error().errmsg();
   const auto reason = found.reason().empty() ? std::string() : ": " + found.reason();
   if ( found.end() == TracePacketReply::END_DROPPED ) return "dropped by " + found.module() + reason;
   if ( found.end() == TracePacketReply::END_LOCAL ) return "to the router" + reason;
   auto text = "out of " + found.intfname() + " to " + macIn( found ).stringValue();
   if ( found.dscp() != 0 ) text += ", dscp " + std::to_string( found.dscp() );
   if ( found.traffic_class() != 0 ) text += ", traffic class " + std::to_string( found.traffic_class() );
   return text;
}

std::string inWords( const std::vector< PacketFate > & fates ) {
   std::string text;
   for ( const auto & fate : fates ) text += ( text.empty() ? "" : ", or " ) + inWords( fate );
   return text;
}

} // namespace

PacketCheck::PacketCheck( const AgentView & session, const RouterState & state, size_t most,
                          std::function< void() > wake, std::function< void() > later ) :
     session_( session ),
     wake_( std::move( wake ) ), later_( std::move( later ) ), scope_( state, most ),
     query_( session_.channel()->peer() ) {
   for ( auto * const source : { routeProbes, ruleProbes, classProbes, tunnelProbes, associationProbes } )
      sources_.push_back( source( scope_ ) );
   batch_.reserve( batchMost );
}

Answer::Step PacketCheck::step( Findings & findings ) {
   if ( call_ && !answered_ ) return Answer::Step::wait;
   if ( answered_ ) {
      if ( !error_.empty() ) throw CommandError( ErrorCode::refused, "the data plane: " + error_ );
      if ( !compare( findings ) ) return Answer::Step::more;
      call_ = nullptr;
      answered_ = false;
      batch_.clear();
   }
   // Each kind of objects by itself: what one has found the next one may use.
   if ( !sources_.empty() && !fill() ) return Answer::Step::more;
   if ( batch_.empty() && sources_.empty() ) {
      if ( doubts_.empty() ) return Answer::Step::done;
      askDoubts();
   }
   if ( !batch_.empty() )
      send();
   else if ( sources_.empty() )
      later_();
   else
      return Answer::Step::more;
   return Answer::Step::wait;
}

bool PacketCheck::fill() {
   const auto began = Clock::now();
   PacketProbe probe;
   while ( batch_.size() < batchMost ) {
      auto & source = *sources_.front();
      const auto got = source.next( probe );
      if ( got == ProbeSource::Got::probe ) batch_.push_back( { std::move( probe ), source.what() } );
      if ( got == ProbeSource::Got::end ) {
         sources_.pop_front();
         return true;
      }
      if ( over( began ) ) return batch_.size() == batchMost;
   }
   return true;
}

bool PacketCheck::quiet() const {
   const auto channel = session_.channel();
   return channel->requestsQueued() == channel->requestsAcknowledged() && !session_.agent()->hulVrfRootSm()->busy();
}

void PacketCheck::send() {
   wasQuiet_ = quiet();
   generation_ = session_.channel()->forwardingGeneration();
   vex::pb::ProbeRequest request;
   for ( const auto & asked : batch_ ) describe( asked.probe, *request.add_packet() );
   next_ = 0;
   call_ = query_.probe( request, [ this ]( const auto & error, const auto & reply ) {
      error_ = error.empty() ? reply.error().errmsg() : error;
      if ( error_.empty() && size_t( reply.fate_size() ) != batch_.size() ) error_ = "it answers other packets";
      reply_ = reply;
      answered_ = true;
      wake_();
   } );
}

bool PacketCheck::compare( Findings & findings ) {
   wasQuiet_ = wasQuiet_ && quiet() && session_.channel()->forwardingGeneration() == generation_;
   const auto began = Clock::now();
   for ( ; next_ < batch_.size(); ++next_ ) {
      if ( over( began ) ) return false;
      compare( batch_[ next_ ], reply_.fate( int( next_ ) ), findings );
   }
   return true;
}

void PacketCheck::compare( Asked & asked, const TracePacketReply & found, Findings & findings ) {
   const auto & probe = asked.probe;
   if ( !asked.again ) findings.compared( asked.what );
   if ( !isThere( scope_.model, probe ) ) return;
   met_.clear();
   const auto fates = fatesOf( scope_.model, probe, &met_ );
   if ( found.error().code() == 0 &&
        std::ranges::any_of( fates, [ & ]( const auto & fate ) { return isSo( fate, found ); } ) ) {
      scope_.destinations.note( scope_.model.vrfOf( *scope_.model.intf( probe.in ) ), probe.packet.dst, fates, met_ );
      return;
   }
   if ( wasQuiet_ && ( asked.again || doubts_.size() >= doubtsMost ) )
      findings.different( probe.object, "packet in by " + probe.in.stringValue() + ", " + inWords( probe.packet ),
                          inWords( fates ), inWords( found ) );
   else
      doubts_.push_back( { std::move( asked.probe ), asked.what, true } );
}

void PacketCheck::askDoubts() {
   if ( ++rounds_ > roundsMost )
      throw CommandError( ErrorCode::refused, "the routes change faster than their packets can be compared" );
   if ( !quiet() ) return;
   while ( !doubts_.empty() && batch_.size() < batchMost ) {
      batch_.push_back( std::move( doubts_.front() ) );
      doubts_.pop_front();
   }
}

void PacketCheck::write( Output & out ) const {
   auto notMet = Json::array();
   for ( const auto & [ object, why ] : scope_.notMet.kept() )
      notMet.push_back( { { "object", object }, { "reason", why } } );
   out.endMember( "notMet", std::move( notMet ) );
   out.endMember( "notMetCount", scope_.notMet.count() );
}

} // namespace Host
