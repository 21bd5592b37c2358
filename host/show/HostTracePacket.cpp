// trace packet: a described packet's way through the data plane's graph.

#include "HostRuleTables.h"
#include "HostShows.h"
#include "vex/engine.pb.h"
#include "VexEngineQuery.h"

#include <cerrno>
#include <cstdio>

namespace Host {

namespace {

using vex::pb::TracePacketReply;
using vex::pb::TracePacketRequest;

const char * textOf( TracePacketReply::End end ) {
   switch ( end ) {
   case TracePacketReply::END_SENT: return "sent";
   case TracePacketReply::END_LOCAL: return "local";
   case TracePacketReply::END_DROPPED: return "dropped";
   default: return "unknown";
   }
}

Kynet::IpAddr v4Of( const Question & question, const char * member ) {
   const auto text = question.text( member );
   const auto address = Kynet::IpAddr::fromString( text );
   if ( !address ) throw CommandError( ErrorCode::usage, "\"" + text + "\" is no IPv4 address" );
   return *address;
}

TracePacketRequest requestOf( const Question & question ) {
   TracePacketRequest request;
   request.set_intfname( intfOf( question.text( "interface" ) ).stringValue() );
   request.set_src( v4Of( question, "source" ).value() );
   request.set_dst( v4Of( question, "destination" ).value() );
   const auto number = [ & ]( const char * member ) {
      return static_cast< U32 >( std::min< U64 >( question.number( member, 0 ), ~U32( 0 ) ) );
   };
   request.set_proto( number( "protocol" ) );
   request.set_sport( number( "sourcePort" ) );
   request.set_dport( number( "destinationPort" ) );
   request.set_ttl( number( "ttl" ) );
   request.set_dscp( number( "dscp" ) );
   request.set_length( number( "length" ) );
   request.set_tcp_flags( number( "tcpFlags" ) );
   request.set_icmp_type( number( "icmpType" ) );
   request.set_icmp_code( number( "icmpCode" ) );
   request.set_count( question.flag( "count" ) );
   return request;
}

// The data plane names a rule by its table's id and its own place; a person wrote a list and a sequence number.
class RuleNames {
 public:
   explicit RuleNames( const AgentView & view ) : view_( view ) {}

   std::string inWords( const std::string & action ) {
      static constexpr std::pair< std::string_view, Vex::AclTarget > kinds[] = {
           { "access list ", Vex::AclTarget::security },
           { "QoS policy ", Vex::AclTarget::qos },
           { "control-plane policy ", Vex::AclTarget::cpu } };
      for ( const auto & [ kind, target ] : kinds ) {
         const auto begin = action.find( kind );
         U32 id = 0, rule = 0, rules = 0;
         int length = 0;
         if ( begin == std::string::npos || std::sscanf( action.c_str() + begin + kind.size(), "%u, rule %u of %u%n",
                                                         &id, &rule, &rules, &length ) != 3 )
            continue;
         const auto * const table = tableOf( target, id );
         // The table has changed meanwhile.
         if ( table == nullptr || table->rules.size() != rules || rule == 0 || rule > rules ) continue;
         return action.substr( 0, begin ) + table->object + ", " + table->rules[ rule - 1 ].place +
                Gant::format( " (rule %u of %u)", rule, rules ) +
                action.substr( begin + kind.size() + static_cast< size_t >( length ) );
      }
      return action;
   }

 private:
   const MeantTable * tableOf( Vex::AclTarget target, U32 id ) {
      const auto [ at, isNew ] = tables_.try_emplace( { target, id } );
      if ( isNew ) at->second = meantTable( view_, target, id );
      return at->second ? &*at->second : nullptr;
   }

   const AgentView view_;
   std::map< std::pair< Vex::AclTarget, U32 >, std::optional< MeantTable > > tables_;
};

class TracedPacket : public Answer {
 public:
   explicit TracedPacket( const Asked & asked ) :
        view_( asked.daemon ), intfname_( requestOf( asked.question ).intfname() ),
        query_( view_.channel()->peer() ),
        call_( query_.tracePacket( requestOf( asked.question ),
                                   [ this, wake = asked.wake ]( const auto & error, const auto & reply ) {
                                      error_ = error;
                                      reply_ = reply;
                                      done_ = true;
                                      wake();
                                   } ) ) {}

   Step step( Output & out ) override {
      if ( !done_ ) return Step::wait;
      if ( !error_.empty() ) throw CommandError( ErrorCode::refused, "no trace: " + error_ );
      if ( reply_.error().code() == ENOENT )
         throw CommandError( ErrorCode::notFound, "there is no interface " + intfname_ + " in the data plane" );
      if ( reply_.error().code() != 0 ) throw CommandError( ErrorCode::refused, reply_.error().errmsg() );
      RuleNames rules( view_ );
      for ( const auto & step : reply_.step() ) {
         Json row{
              { "module", step.module() }, { "class", step.mclass() }, { "action", rules.inWords( step.action() ) } };
         if ( step.has_ogate() ) row[ "gate" ] = step.ogate();
         out.row( row );
      }
      end( out );
      return Step::done;
   }

 private:
   void end( Output & out ) const {
      out.endMember( "end", textOf( reply_.end() ) );
      out.endMember( "module", reply_.module() );
      if ( !reply_.reason().empty() ) out.endMember( "reason", reply_.reason() );
      if ( !reply_.intfname().empty() ) out.endMember( "interface", reply_.intfname() );
      if ( Kynet::EthAddr::Bytes bytes; reply_.mac().size() == bytes.size() ) {
         std::copy( reply_.mac().begin(), reply_.mac().end(), bytes.begin() );
         out.endMember( "mac", Kynet::EthAddr( bytes ).stringValue() );
      }
      out.endMember( "length", reply_.length() );
   }

   const AgentView view_;
   const std::string intfname_;
   Vex::EngineQuery query_;
   TracePacketReply reply_;
   std::string error_;
   bool done_ = false;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

} // namespace

Commands packetCommands() {
   constexpr auto number = Parameter::Kind::number;
   return { { "trace packet",
              { { "interface", Parameter::Kind::text, true },
                { "source", Parameter::Kind::text, true },
                { "destination", Parameter::Kind::text, true },
                { "protocol", number },
                { "sourcePort", number },
                { "destinationPort", number },
                { "ttl", number },
                { "dscp", number },
                { "length", number },
                { "tcpFlags", number },
                { "icmpType", number },
                { "icmpCode", number },
                { "count", Parameter::Kind::flag } },
              []( const Asked & asked ) { return std::make_unique< TracedPacket >( asked ); } } };
}

} // namespace Host
