// Keys are nowhere to be read.
#include "AgentRouter.h"
#include "GantCleanse.h"
#include "GantTrace.h"
#include "IpsecRouter.h"
#include "vex/engine.pb.h"
#include "vex/ipsec.pb.h"
#include "VexCleanse.h"
#include "VexDescribe.h"
#include "VexIpsecHelper.h"

namespace Test {
namespace {

Lines streamed;

bool holdsSecret( const Gant::String & text ) {
   return text.find( "SECRET" ) != text.npos || text.find( "5345435245" ) != text.npos;
}

class IpsecSecret : public testing::Test {
 protected:
   IpsecSecret() {
      // Everything that can be said is said.
      Gant::TraceHandle::levelIs( "*", Gant::traceLevelMax, Gant::traceLevelMax );
      Gant::traceStreamIs( []( const char *, int, const Gant::String & text ) { streamed.push_back( text ); } );
   }
   ~IpsecSecret() override {
      Gant::traceStreamIs( nullptr );
      Gant::TraceHandle::levelIs( "*", Gant::traceLevelDefault, Gant::traceStreamLevelDefault );
   }
};

TEST_F( IpsecSecret, noTraceTextOrRefusalHoldsAKey ) {
   RouterState state;
   const auto key = connectionKey( 5 );
   state.connections->connectionIs( key, connection( { "Tunnel1" }, { 4096 }, 8192 ) );
   RouterAgent router( state );
   router.start();
   auto all = router.drained();
   ASSERT_THAT( all, testing::Contains( testing::HasSubstr( "crypto_info <16 bytes> auth_info <20 bytes>" ) ) );
   // A rekey whose names nobody knows, which is traced, and which the data plane refuses.
   auto changed = connection( { "Tunnel1" }, { 4096, 4097 }, std::nullopt );
   auto sa = aesSha1( 8193 );
   sa.cryptoAlgoIs( "what" );
   sa.authAlgoIs( "ever" );
   changed.outSaIs( sa );
   state.connections->connectionIs( key, changed );
   vex::pb::IpsecUpdateSAArg arg;
   router.agent->ipsecHelper()->addSaToUpdateSaArg( arg, key.encapId(), sa );
   Vex::Refusal refusal;
   refusal.argument = Vex::describe( arg );
   refusal.text = "sa_spi 8193: cipher_algorithm 0";
   router.channel->refusalIs( router.agent->ipsecHelper()->ipsecModuleConfigStatusPair()->moduleConfig()->origin(),
                              refusal );
   state.connections->connectionDel( key );

   for ( const auto & more : { router.drained(), traced(), streamed } )
      all.insert( all.end(), more.begin(), more.end() );
   for ( const auto & kept : router.channel->refusals() ) all.push_back( kept.argument + kept.text );
   all.push_back( sa.strep() + Gant::textOf( sa ) );
   ASSERT_THAT( all, testing::Contains( testing::HasSubstr( "Failed to set the auth algorithm for ever" ) ) );
   for ( const auto & line : all ) EXPECT_FALSE( holdsSecret( line ) ) << line;
}

TEST( IpsecCleanse, aMessageKeepsTheLengthsOfItsKeysAndNothingElseOfThem ) {
   vex::pb::IpsecUpdateSAArg arg;
   for ( int i = 0; i < 2; ++i ) {
      arg.add_saentries()->set_crypto_info( cryptoSecret );
      arg.mutable_saentries( i )->set_auth_info( authSecret );
   }
   vex::pb::Batch batch;
   batch.add_request()->mutable_command()->add_arg( arg.SerializeAsString() );
   batch.add_request()->mutable_create_module()->mutable_arg()->PackFrom( arg );
   const auto words = Vex::describe( arg );
   for ( google::protobuf::Message * message : { static_cast< google::protobuf::Message * >( &arg ),
                                                 static_cast< google::protobuf::Message * >( &batch ) } ) {
      const auto size = message->ByteSizeLong();
      ASSERT_TRUE( holdsSecret( message->SerializeAsString() ) );
      Vex::cleanse( *message );
      EXPECT_FALSE( holdsSecret( message->SerializeAsString() ) );
      EXPECT_EQ( message->ByteSizeLong(), size );
   }
   EXPECT_EQ( Vex::describe( arg ), words );
}

} // namespace
} // namespace Test
