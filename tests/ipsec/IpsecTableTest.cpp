// From the connection table to the helper's operations.
#include "IpsecRouter.h"

namespace Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RecordingHelper : public HulIpsec::HulIpsecSmHelper {
 public:
   void newConnection( const Kynet::NamespaceName & vrfName, const EncapId & encapId,
                       const HulIpsec::IntfList * intfList, const SecurityAssociation * outSa,
                       const HulIpsec::SecurityAssociationQueue & inSaq ) override {
      say( "new", vrfName, encapId, intfList == nullptr ? "no list" : listed( *intfList ),
           " out " + text( outSa ) + " in " + text( inSaq ) );
   }
   void deleteConnection( const Kynet::NamespaceName & vrfName, const EncapId & encapId ) override {
      say( "delete", vrfName, encapId );
   }
   void changeIntfList( const Kynet::NamespaceName & vrfName, const EncapId & encapId,
                        const HulIpsec::IntfList & newList ) override {
      say( "intfs", vrfName, encapId, listed( newList ) );
   }
   void changeInSecurityAssociation( const Kynet::NamespaceName & vrfName, const EncapId & encapId,
                                     const HulIpsec::SecurityAssociationQueue & saq ) override {
      say( "in", vrfName, encapId, text( saq ) );
   }
   void changeOutSecurityAssociation( const Kynet::NamespaceName & vrfName, const EncapId & encapId,
                                      const SecurityAssociation * sa ) override {
      say( "out", vrfName, encapId, text( sa ) );
   }
   void beginConnectionTableInit() override { told.push_back( "begin" ); }
   void completedConnectionTableInit() override { told.push_back( "completed" ); }

   Lines take() { return std::exchange( told, {} ); }
   Lines told;

 private:
   static Gant::String text( const SecurityAssociation * sa ) {
      return sa == nullptr ? "none" : std::to_string( sa->sakey().id().spi() );
   }
   static Gant::String text( const HulIpsec::SecurityAssociationQueue & saq ) {
      Gant::String out = "[";
      for ( const auto & sa : saq ) out += " " + text( &sa );
      return out + " ]";
   }
   static Gant::String listed( const HulIpsec::IntfList & intfList ) {
      Gant::String out;
      for ( const auto intfId : intfList ) out += intfId.shortName();
      return out;
   }
   void say( const char * what, const Kynet::NamespaceName & vrfName, const EncapId & encapId,
             const Gant::String & more = "", const Gant::String & last = "" ) {
      told.push_back( Gant::textsOf( what, " ", vrfName, " ", encapId.reqid(), more.empty() ? "" : " ", more, last ) );
   }
};

class IpsecTable : public testing::Test {
 protected:
   void start() {
      sm = Gant::make< HulIpsec::HulConnectionTableSm >( HulIpsec::HulConnectionTableSm::Args{ helper, table } );
   }
   Gant::Ptr< RecordingHelper > helper = Gant::make< RecordingHelper >();
   Gant::Ptr< Ipsec::Ike::ConnectionTable > table = Gant::make< Ipsec::Ike::ConnectionTable >();
   Gant::Ptr< HulIpsec::HulConnectionTableSm > sm;
};

TEST_F( IpsecTable, whatIsThereAtStartComesBetweenTheMarks ) {
   table->connectionIs( connectionKey( 5 ), connection( { "Tunnel1", "Tunnel2" }, { 1000, 1001 }, 2000 ) );
   table->connectionIs( connectionKey( 6 ), connection( {}, {}, std::nullopt ) );
   start();
   EXPECT_THAT( helper->take(), ElementsAre( "begin", "new default 5 Tu1Tu2 out 2000 in [ 1000 1001 ]",
                                             "new default 6 no list out none in [ ]", "completed" ) );
}

TEST_F( IpsecTable, onlyWhatDiffersIsTold ) {
   start();
   helper->take();
   const auto key = connectionKey( 5 );
   table->connectionIs( key, connection( { "Tunnel1" }, { 1000 }, 2000 ) );
   helper->take();
   auto changed = connection( { "Tunnel1" }, { 1000 }, 2000 );
   changed.nameIs( "another name" );
   table->connectionIs( key, changed );
   EXPECT_THAT( helper->take(), IsEmpty() );
   table->connectionIs( key, connection( { "Tunnel2" }, { 1000, 1001 }, 2001 ) );
   EXPECT_THAT( helper->take(),
                ElementsAre( "intfs default 5 Tu2", "in default 5 [ 1000 1001 ]", "out default 5 2001" ) );
   table->connectionIs( key, connection( {}, {}, std::nullopt ) );
   EXPECT_THAT( helper->take(), ElementsAre( "intfs default 5", "in default 5 [ ]", "out default 5 none" ) );
   table->connectionDel( key );
   EXPECT_THAT( helper->take(), ElementsAre( "delete default 5" ) );
}

TEST_F( IpsecTable, aChangeOfKeysAloneIsAChange ) {
   start();
   auto wanted = connection( {}, {}, 2000 );
   table->connectionIs( connectionKey( 5 ), wanted );
   helper->take();
   auto sa = aesSha1( 2000 );
   sa.cryptoKeyIs( KeyMaterial( "another 16 bytes" ) );
   wanted.outSaIs( sa );
   table->connectionIs( connectionKey( 5 ), wanted );
   EXPECT_THAT( helper->take(), ElementsAre( "out default 5 2000" ) );
}

TEST_F( IpsecTable, whatWasMissedIsBroughtInLineAndThoseThatWentGoFirst ) {
   start();
   table->connectionIs( connectionKey( 5 ), connection( { "Tunnel1" }, {}, std::nullopt ) );
   table->connectionIs( connectionKey( 7 ), connection( {}, {}, 2000 ) );
   helper->take();
   sm->hasNotificationActiveIs( false );
   table->connectionIs( connectionKey( 4 ), connection( { "Tunnel1" }, {}, std::nullopt ) );
   table->connectionDel( connectionKey( 5 ) );
   table->connectionIs( connectionKey( 7 ), connection( {}, {}, 2001 ) );
   EXPECT_THAT( helper->take(), IsEmpty() );
   sm->hasNotificationActiveIs( true );
   EXPECT_THAT( helper->take(),
                ElementsAre( "delete default 5", "new default 4 Tu1 out none in [ ]", "out default 7 2001" ) );
}

TEST_F( IpsecTable, associationsThatStayKeepTheirAge ) {
   auto former = connection( {}, { 1000 }, 2000 );
   auto sa = aesSha1( 2000 );
   sa.agreedAtIs( 10 );
   former.outSaIs( sa );
   HulIpsec::SecurityAssociationQueue saq;
   sa = aesSha1( 1000 );
   sa.agreedAtIs( 20 );
   saq.saqEnq( sa );
   former.inSaqIs( saq );
   sa = aesSha1( 1001 );
   sa.agreedAtIs( 30 );
   saq.saqEnq( sa );
   auto now = connection( {}, { 1000 }, 2000 );
   EXPECT_EQ( now, former );
   saq = now.inSaq();
   saq.saqEnq( sa );
   now.inSaqIs( saq );
   now.agesFrom( former );
   EXPECT_EQ( now.outSa()->agreedAt(), 10 );
   EXPECT_EQ( now.inSaq().saq( 0 ).agreedAt(), 20 );
   EXPECT_EQ( now.inSaq().saq( 1 ).agreedAt(), 30 );
   // The numbers of a queue's places rise.
   saq.saqDeq();
   EXPECT_EQ( saq.saqMetadata(), Ipsec::Ike::SaqMetadata( 1, 1 ) );
   EXPECT_EQ( saq.saq( 1 ).sakey().id().spi(), 1001u );
}

} // namespace
} // namespace Test
