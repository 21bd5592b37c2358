#include "HostLookup.h"

#include "HostAgentView.h"
#include "vex/engine.pb.h"
#include "VexEngineQuery.h"

namespace Host {

namespace {

// One question for each VRF, all at once.
class Lookups : public Answer {
 public:
   Lookups( const Asked & asked, const std::string & vrf, const std::string & text ) :
        session_( asked.daemon ), text_( text ), query_( session_.channel()->peer() ), wake_( asked.wake ) {
      const auto target = targetOf( text );
      if ( target.address.af() != Kynet::AddressFamily::ipv4_ )
         throw CommandError( ErrorCode::notFound, "the data plane holds no IPv6 routes, so none to " + text );
      for ( const auto & [ vrfId, name ] : vrfsOf( session_, vrf ) ) ask( vrfId, name, target );
   }

   Step step( Output & out ) override {
      if ( due_ > 0 ) return Step::wait;
      bool found = false;
      for ( const auto & [ name, answer ] : answers_ ) {
         if ( !answer.error.empty() ) throw CommandError( ErrorCode::refused, answer.error );
         if ( !answer.reply.found() ) continue;
         out.row( rowOf( name, answer.reply ) );
         found = true;
      }
      if ( !found ) throw CommandError( ErrorCode::notFound, "the data plane has no route to " + text_ );
      return Step::done;
   }

 private:
   struct Reply {
      std::string error;
      vex::pb::LookupReply reply;
   };

   void ask( U32 vrfId, const std::string & name, const Target & target ) {
      vex::pb::LookupRequest request;
      request.set_module( session_.l3Modules()->fibIpv4()->name() );
      request.set_vrf( vrfId );
      request.set_address( target.address.v4Addr().value() );
      if ( target.len ) request.set_prefix_len( *target.len );
      ++due_;
      calls_.push_back( query_.lookup( request, [ this, name ]( const auto & error, const auto & reply ) {
         answers_[ name ] = { error.empty() ? reply.error().errmsg() : error, reply };
         if ( --due_ == 0 ) wake_();
      } ) );
   }

   static Json rowOf( const std::string & vrf, const vex::pb::LookupReply & reply ) {
      const Kynet::Prefix prefix( Kynet::IpAddr( reply.prefix() ), static_cast< U8 >( reply.prefix_len() ) );
      Json row{ { "vrf", vrf }, { "prefix", prefix.stringValue() }, { "fec", reply.fec_id() } };
      row[ "nexthops" ] = Json::array();
      for ( const auto & hop : reply.nh_info() ) row[ "nexthops" ].push_back( placeOf( hop.gate(), hop.nh_index() ) );
      if ( !reply.fec_found() ) row[ "fecMissing" ] = true;
      return row;
   }

   const AgentView session_;
   const std::string text_;
   Vex::EngineQuery query_;
   std::function< void() > wake_;
   size_t due_ = 0;
   std::map< std::string, Reply > answers_;
   std::vector< std::unique_ptr< Vex::EngineCall > > calls_; // gone first: they call back
};

} // namespace

std::unique_ptr< Answer > dataPlaneLookup( const Asked & asked, const std::string & vrf, const std::string & text ) {
   return std::make_unique< Lookups >( asked, vrf, text );
}

} // namespace Host
