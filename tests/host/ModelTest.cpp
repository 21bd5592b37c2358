// Random routers, told in small steps to a real data plane: every packet goes where a model of the description says.
//
// VEXL3_MODEL_ROUTERS is the number of routers. By default there are fewer than a release is tried with, which is 200.
#include "RouterModel.h"
#include "SessionRouter.h"
#include "vex/engine.pb.h"
#include "VexEngineQuery.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

using namespace Test;
using vex::pb::TracePacketReply;

constexpr int changes = 20, packetsAtOnce = 24; // 24 packets after each change, and before the first: 504 a router

unsigned routers() {
   const char * const given = std::getenv( "VEXL3_MODEL_ROUTERS" );
   return given == nullptr ? 10 : static_cast< unsigned >( std::atoi( given ) );
}

std::string tell( SessionRouter & router, const ModelEntry & entry ) {
   if ( entry.text.empty() ) return {};
   const auto result =
        router.change( entry.del ? Host::ChangeOp::del : Host::ChangeOp::replace, entry.kind, entry.text );
   return result.code == Host::ChangeResult::Code::done ? "" : entry.text + ": " + result.message + "\n";
}

std::string tellAll( SessionRouter & router, const RouterModel & model ) {
   std::string refusals;
   for ( const auto & entry : model.description() ) refusals += tell( router, entry );
   return refusals;
}

bool isSo( const TracePacketReply & reply, const ModelEnd & end ) {
   switch ( end.kind ) {
   case ModelEnd::Kind::dropped: return reply.end() == TracePacketReply::END_DROPPED;
   case ModelEnd::Kind::local: return reply.end() == TracePacketReply::END_LOCAL;
   case ModelEnd::Kind::sent: break;
   }
   Kynet::EthAddr::Bytes bytes{};
   std::copy_n( reply.mac().begin(), std::min( bytes.size(), reply.mac().size() ), bytes.begin() );
   return reply.end() == TracePacketReply::END_SENT &&
          reply.intfname() == "Ethernet" + std::to_string( end.ethernet ) &&
          Kynet::EthAddr( bytes ).stringValue() == macText( end.addr );
}

std::string textOf( const TracePacketReply & reply ) {
   std::string text = reply.reason() + " " + reply.intfname();
   for ( const auto & step : reply.step() ) text += "\n      " + step.module() + ": " + step.action();
   return text + "\n";
}

// Sends packets by the interfaces, and gives those that go elsewhere than the model says.
std::string strays( SessionRouter & router, Vex::EngineQuery & query, const RouterModel & model,
                    std::minstd_rand & random ) {
   std::string found;
   std::vector< std::unique_ptr< Vex::EngineCall > > calls;
   int answered = 0;
   for ( int n = 0; n < packetsAtOnce; ++n ) {
      const auto [ ethernet, packet ] = model.packet( random );
      if ( ethernet == 0 ) break;
      vex::pb::TracePacketRequest request;
      request.set_intfname( "Ethernet" + std::to_string( ethernet ) );
      request.set_src( packet.src );
      request.set_dst( packet.dst );
      request.set_proto( packet.proto );
      request.set_sport( 1024 + static_cast< unsigned >( n ) );
      request.set_dport( packet.dport );
      request.set_dscp( packet.dscp );
      calls.push_back( query.tracePacket( request, [ &, ethernet = ethernet, packet = packet ]( const auto & error,
                                                                                                const auto & reply ) {
         ++answered;
         const auto ends = model.ends( ethernet, packet );
         if ( error.empty() && std::ranges::any_of( ends, [ & ]( const auto & end ) { return isSo( reply, end ); } ) )
            return;
         found += "by Ethernet" + std::to_string( ethernet ) + " " + text( packet ) + ": ";
         for ( const auto & end : ends ) found += text( end ) + ", ";
         found += "and not: " + error + textOf( reply );
      } ) );
   }
   router.settle();
   runUntil( [ & ] { return answered == static_cast< int >( calls.size() ); } );
   return found;
}

class HostModel : public testing::TestWithParam< unsigned > {};

TEST_P( HostModel, everyPacketGoesWhereTheDescriptionSaysAfterEveryChange ) {
   std::minstd_rand random( GetParam() );
   for ( int burnIn = 0; burnIn < 10; ++burnIn ) random();
   RouterModel model( random );
   SessionRouter router( [ & ]( SessionRouter & told ) { EXPECT_EQ( tellAll( told, model ), "" ); } );
   Vex::EngineQuery query( router.channel()->peer() );
   router.settle();
   ASSERT_EQ( strays( router, query, model, random ), "" );
   std::string told;
   for ( int n = 0; n < changes; ++n ) {
      const auto change = model.change( random );
      told += ( change.del ? "del " : "replace " ) + change.kind + " " + change.text + "\n";
      ASSERT_EQ( tell( router, change ), "" ) << told;
      router.settle();
      ASSERT_EQ( strays( router, query, model, random ), "" ) << told;
      if ( n % 5 != 4 ) continue;
      ASSERT_EQ( differences( "the data plane's packets", router.wrong( true ), {} ), "" ) << told;
   }
   EXPECT_EQ( differences( "the data plane", router.wrong(), {} ), "" );
   SessionRouter restarted( [ & ]( SessionRouter & fresh ) { EXPECT_EQ( tellAll( fresh, model ), "" ); } );
   restarted.settle();
   EXPECT_EQ( differences( "in small steps, a user", router.seen(), restarted.seen() ), "" ) << told;
}

INSTANTIATE_TEST_SUITE_P( Routers, HostModel, testing::Range( 1u, routers() + 1 ) );

} // namespace
