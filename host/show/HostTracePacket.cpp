// trace packet: a described packet's way through the data plane's graph.

#include "HostRuleTables.h"
#include "HostRuleText.h"
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

// A number, or a name as the rules of access lists have it.
U32 named( const Question & question, const char * member, std::optional< U8 > ( *valueOf )( std::string_view ),
           const char * most ) {
   if ( !question.has( member ) ) return 0;
   const auto word = question.word( member );
   const auto value = valueOf( word );
   if ( !value )
      throw CommandError( ErrorCode::usage, std::string( member ) + " \"" + word +
                                                 "\" is neither a name nor a number from 0 to " + most );
   return *value;
}

TracePacketRequest requestOf( const Question & question ) {
   TracePacketRequest request;
   request.set_intfname( intfOf( question.text( "interface" ) ).stringValue() );
   request.set_src( v4Of( question, "source" ).value() );
   request.set_dst( v4Of( question, "destination" ).value() );
   const auto number = [ & ]( const char * member, U32 most ) {
      const auto value = question.number( member, 0 );
      if ( value > most )
         throw CommandError( ErrorCode::usage, std::string( member ) + " " + std::to_string( value ) + " is over " +
                                                    std::to_string( most ) );
      return static_cast< U32 >( value );
   };
   request.set_proto( named( question, "protocol", protocolOf, "255" ) );
   request.set_sport( number( "sourcePort", 65535 ) );
   request.set_dport( number( "destinationPort", 65535 ) );
   request.set_ttl( number( "ttl", 255 ) );
   request.set_dscp( named( question, "dscp", dscpOf, "63" ) );
   request.set_length( number( "length", 65535 ) );
   request.set_tcp_flags( number( "tcpFlags", 255 ) );
   request.set_icmp_type( number( "icmpType", 255 ) );
   request.set_icmp_code( number( "icmpCode", 255 ) );
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

// The data plane says which entry a packet came to; the agent knows what the entry is for.
class EntryNames {
 public:
   explicit EntryNames( const AgentView & view ) : view_( view ) {}

   // `module` is the one whose words these are.
   std::string inWords( const std::string & module, const std::string & text ) const {
      U32 number = 0;
      int length = 0;
      if ( std::sscanf( text.c_str(), "FEC %u has no members%n", &number, &length ) == 1 && length != 0 )
         return isBlackhole( number ) ? "a blackhole: " + text : text;
      if ( std::sscanf( text.c_str(), "next hop %u is to be punted%n", &number, &length ) != 1 || length == 0 )
         return text;
      const auto why = whyPunted( module, number );
      return why.empty() ? text : why + ": " + text;
   }

 private:
   bool isBlackhole( U32 fecId ) const {
      const auto & fec = view_.routeDb()->fec( VexL3Unicast::FecKey( fecId ) );
      return fec && fec->info().numberOfUniqueNextHops() != 0 &&
             fec->info().nextHop( 0 ).pktCmd() == VexL3Unicast::NextHopPktCmd::pktCmdDrop_;
   }
   std::string whyPunted( const std::string & module, U32 index ) const {
      const auto modules = view_.l3Modules();
      for ( const auto & [ intfId, nextHops ] : modules->nextHopModIterator() )
         if ( nextHops->name() == module ) return whyPunted( intfId, index );
      return {};
   }
   std::string whyPunted( Kynet::IntfId intfId, U32 index ) const {
      const auto & fecs = view_.routeDb()->intfToFecSet( intfId );
      if ( !fecs ) return {};
      for ( const auto & fec : fecs->fecIterator() )
         for ( U32 slot = 0; slot < fec->info().numberOfUniqueNextHops(); ++slot )
            if ( const auto & key = fec->info().nextHop( slot ); key.intf() == intfId && key.nhLocalIndex() == index )
               return commandName( key.pktCmd() ) + ", " + inWords( key.pktCmd() );
      return {};
   }
   static const char * inWords( VexL3Unicast::NextHopPktCmd command ) {
      using VexL3Unicast::NextHopPktCmd;
      switch ( command ) {
      case NextHopPktCmd::pktCmdArpTrap_: return "the neighbour is unknown";
      case NextHopPktCmd::pktCmdReceive_: return "the router's own address";
      case NextHopPktCmd::pktCmdSlowReceive_: return "the router's own, by the slow path";
      default: return "for the router";
      }
   }

   const AgentView view_;
};

class TracedPacket : public Answer {
 public:
   explicit TracedPacket( const Asked & asked ) :
        view_( asked.daemon ), intfname_( requestOf( asked.question ).intfname() ), query_( view_.channel()->peer() ),
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
      const EntryNames entries( view_ );
      for ( const auto & step : reply_.step() ) {
         Json row{ { "module", step.module() },
                   { "class", step.mclass() },
                   { "action", entries.inWords( step.module(), rules.inWords( step.action() ) ) } };
         if ( step.has_ogate() ) row[ "gate" ] = step.ogate();
         out.row( row );
      }
      end( out );
      return Step::done;
   }

 private:
   // A reason to punt is that of the module before the trap.
   std::string reasonInWords() const {
      const EntryNames entries( view_ );
      for ( const auto & step : reply_.step() )
         if ( auto words = entries.inWords( step.module(), reply_.reason() ); words != reply_.reason() ) return words;
      return reply_.reason();
   }
   void end( Output & out ) const {
      out.endMember( "end", textOf( reply_.end() ) );
      out.endMember( "module", reply_.module() );
      if ( !reply_.reason().empty() ) out.endMember( "reason", reasonInWords() );
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
                { "protocol", Parameter::Kind::named },
                { "sourcePort", number },
                { "destinationPort", number },
                { "ttl", number },
                { "dscp", Parameter::Kind::named },
                { "length", number },
                { "tcpFlags", number },
                { "icmpType", number },
                { "icmpCode", number },
                { "count", Parameter::Kind::flag } },
              []( const Asked & asked ) { return std::make_unique< TracedPacket >( asked ); } } };
}

} // namespace Host
