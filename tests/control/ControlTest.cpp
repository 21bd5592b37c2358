// The command socket: what it takes, what it refuses, and that neither moves the daemon.

#include "ControlSocket.h"
#include "GantCleanse.h"
#include "HostChangeCommands.h"
#include "HostCommands.h"
#include "HostControlServer.h"
#include "TestRouter.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace Host;
using Test::ControlSocket;

// Rows without end, and rows that come when they are asked for.
Commands testCommands( std::function< void() > * wake ) {
   const auto many = []( const Asked & asked ) {
      std::vector< int > keys( asked.question.number( "rows", 0 ) );
      return perKey< int >( [ keys ] { return keys; },
                            []( const int &, Output & out ) {
                               out.row( { { "text", std::string( 1000, 'x' ) } } );
                            } );
   };
   class Waiting : public Answer {
    public:
      Step step( Output & ) override { return std::exchange( woken_, true ) ? Step::done : Step::wait; }

    private:
      bool woken_ = false;
   };
   const auto waiting = [ wake ]( const Asked & asked ) {
      *wake = asked.wake;
      return std::make_unique< Waiting >();
   };
   const auto broken = []( const Asked & ) {
      return atOnce( []( Output & out ) {
         out.row( { { "first", 1 } } );
         throw CommandError( ErrorCode::unavailable, "lost" );
      } );
   };
   return { { "many", { { "rows", Parameter::Kind::number, true } }, many },
            { "wait", {}, waiting },
            { "broken", {}, broken } };
}

class Control : public testing::Test {
 protected:
   Control() {
      limits_.clientsMax = 3;
      openServer();
   }
   void openServer() {
      auto commands = testCommands( &wake_ );
      for ( auto & command : changeCommands() ) commands.push_back( command );
      server_ = std::make_unique< ControlServer >( router_, CommandTable( commands ), limits_ );
      ASSERT_EQ( server_->open( path_ ), "" );
   }
   // A later client is served.
   void expectUnmoved() {
      ControlSocket client( path_ );
      EXPECT_EQ( client.ask( { { "command", "many" }, { "rows", 2 } } ).size(), 3u );
   }

   class NoDaemon : public DaemonControl {
    public:
      RouterState & state() override { throw std::logic_error( "no command asks for it" ); }
      Gant::Ptr< VexL3Unicast::AgentSm > agent() const override { return nullptr; }
      Gant::Ptr< Vex::VexCommonSmData > vexcsd() const override { return nullptr; }
      Gant::Ptr< Vex::GrpcChannel > channel() const override { return nullptr; }
      DaemonStatus status() const override { return told; }
      ChangeResult change( ChangeOp, const std::string &, const std::string & ) override {
         ++changes;
         return {};
      }
      ChangeResult reload() override { return {}; }

      DaemonStatus told;
      int changes = 0;
   };

   ::Test::Directory directory_;
   const std::string path_ = directory_.path( "control" );
   NoDaemon router_;
   ControlServer::Limits limits_;
   std::function< void() > wake_;
   std::unique_ptr< ControlServer > server_;
};

TEST_F( Control, refusesWhatIsNoRequestAndClosesTheConnection ) {
   const std::pair< std::string, const char * > refused[] = {
        { "\x01\x80\xff garbage\n", "a request is a JSON object on one line" },
        { "[1, 2]\n", "a request is a JSON object on one line" },
        { "{\"command\": \"many\"", "the request has no end" },
        { std::string( 1 << 20, 'a' ), "a request is one line of at most 65536 bytes" },
        { "{\"command\": \"" + std::string( 70000, 'a' ) + "\"}\n", "a request is one line of at most 65536 bytes" } };
   for ( const auto & [ sent, message ] : refused ) {
      ControlSocket client( path_ );
      client.send( sent );
      client.shut();
      const auto line = client.line();
      ASSERT_TRUE( line ) << message;
      EXPECT_EQ( line->at( "error" ).at( "code" ), "usage" );
      EXPECT_EQ( line->at( "error" ).at( "message" ), message );
      EXPECT_TRUE( client.closed() ) << message;
   }
   expectUnmoved();
}

TEST_F( Control, refusesAWrongRequestAndGoesOnWithTheConnection ) {
   ControlSocket client( path_ );
   const std::pair< Json, const char * > refused[] = {
        { { { "rows", 1 } }, "a request has the member \"command\", a text" },
        { { { "command", "dance" } }, "there is no command \"dance\"" },
        { { { "command", "many" } }, "many: the member \"rows\" is missing" },
        { { { "command", "many" }, { "rows", -1 } }, "many: the member \"rows\" is a number from 0" },
        { { { "command", "many" }, { "rows", 1 }, { "row", 1 } }, "many: there is no member \"row\"" } };
   for ( const auto & [ request, message ] : refused )
      EXPECT_EQ( client.ask( request ).back().at( "error" ).at( "message" ), message );
   EXPECT_EQ( client.ask( { { "command", "many" }, { "rows", 1 } } ).back().at( "end" ).at( "rows" ), 1 );
}

TEST_F( Control, saysThatAnAnswerBrokeOffAndWhy ) {
   ControlSocket client( path_ );
   const auto lines = client.ask( { { "command", "broken" } } );
   ASSERT_EQ( lines.size(), 2u );
   EXPECT_EQ( lines[ 1 ][ "end" ], Json::parse( R"({"rows":1,"error":{"code":"unavailable","message":"lost"}})" ) );
}

TEST_F( Control, answersTheRequestsOfOneClientInOrderAndOthersMeanwhile ) {
   ControlSocket waiting( path_ ), other( path_ );
   waiting.send( R"({"command":"wait"})"
                 "\n"
                 R"({"command":"many","rows":1})"
                 "\n" );
   ::Test::runUntil( [ this ] { return bool( wake_ ); } );
   EXPECT_EQ( other.ask( { { "command", "many" }, { "rows", 3 } } ).size(), 4u );
   wake_();
   EXPECT_EQ( waiting.answer().back().at( "end" ).at( "rows" ), 0 );
   EXPECT_EQ( waiting.answer().back().at( "end" ).at( "rows" ), 1 );
}

TEST_F( Control, makesNoMoreRowsThanAClientTakes ) {
   // given a client that asks for 100 megabytes and takes nothing
   ControlSocket greedy( path_ );
   greedy.send( R"({"command":"many","rows":100000})"
                "\n" );
   // when the loop has nothing left to do for it
   size_t idle = 0;
   ::Test::runUntil( [ & ] { return Gant::activityManager()->poll() == 0 ? ++idle > 20 : ( idle = 0 ) > 0; } );
   // then others are served, and the first goes on when it takes
   expectUnmoved();
   for ( int row = 0; row < 500; ++row ) ASSERT_TRUE( greedy.line() );
}

TEST_F( Control, saysThatTheDataPlaneHasNotAnsweredAndGoesOnWithTheConnection ) {
   server_->close();
   limits_.answerSeconds = 0.05;
   openServer();
   ControlSocket client( path_ );
   EXPECT_EQ( client.ask( { { "command", "wait" } } ).back().at( "end" ).at( "error" ).at( "message" ),
              "the data plane has not answered for 0.05 s" );
   EXPECT_EQ( client.ask( { { "command", "many" }, { "rows", 2 } } ).size(), 3u );
}

TEST_F( Control, aChangeWaitsWhileVeryMuchWaitsForTheDataPlane ) {
   router_.told.paused = "many wait";
   ControlSocket client( path_ );
   client.send( R"({"command":"add","kind":"vrf","entry":"{name: red}"})"
                "\n" );
   EXPECT_TRUE( client.line()->at( "ok" ) );
   EXPECT_EQ( router_.changes, 0 );
   router_.told.paused.clear();
   EXPECT_EQ( client.line()->at( "end" ).at( "rows" ), 0 );
   EXPECT_EQ( router_.changes, 1 );
}

TEST_F( Control, dropsAClientThatGoesWhileItsAnswerWaits ) {
   {
      ControlSocket client( path_ );
      client.send( R"({"command":"wait"})"
                   "\n" );
      ::Test::runUntil( [ this ] { return bool( wake_ ); } );
   }
   wake_();
   ::Test::runUntil( [ this ] { return server_->clients() == 0; } );
   wake_();
}

TEST_F( Control, makesRoomForANewClientByClosingTheOneThatIsIdleForLongest ) {
   ControlSocket first( path_ );
   ::Test::runUntil( [ this ] { return server_->clients() == 1; } );
   ControlSocket second( path_ ), third( path_ );
   ::Test::runUntil( [ this ] { return server_->clients() == 3; } );
   ControlSocket fourth( path_ );
   EXPECT_EQ( fourth.ask( { { "command", "many" }, { "rows", 1 } } ).size(), 2u );
   EXPECT_EQ( first.line()->at( "error" ).at( "message" ), "too many clients: this one was idle for longest" );
   EXPECT_TRUE( first.closed() );
   // No one is idle any more.
   for ( auto * client : { &second, &third, &fourth } )
      client->send( R"({"command":"wait"})"
                    "\n" );
   for ( auto * client : { &second, &third, &fourth } ) EXPECT_TRUE( client->line()->at( "ok" ) );
   ControlSocket fifth( path_ );
   EXPECT_EQ( fifth.line()->at( "error" ).at( "message" ), "too many clients" );
   EXPECT_TRUE( fifth.closed() );
}

// How often the bytes stand in the memory that is allocated, and was.
size_t copiesInHeap( const std::string & bytes ) {
   std::ifstream maps( "/proc/self/maps" );
   size_t copies = 0;
   for ( std::string line; std::getline( maps, line ); ) {
      if ( !line.ends_with( "[heap]" ) ) continue;
      size_t behind = 0;
      const auto begin = std::stoull( line, &behind, 16 ), end = std::stoull( line.substr( behind + 1 ), nullptr, 16 );
      const std::string_view heap( reinterpret_cast< const char * >( begin ), end - begin );
      for ( auto at = heap.find( bytes ); at != heap.npos; at = heap.find( bytes, at + 1 ) ) ++copies;
   }
   return copies;
}

TEST_F( Control, overwritesALineThatItHasAnsweredWhileTheClientStays ) {
   ControlSocket client( path_ );
   auto text = R"({"command":"many","secret":")" + std::string( 3000, 'k' ) + "\"}\n";
   const auto end = text.substr( text.size() - 40 );
   client.send( text );
   ASSERT_TRUE( client.line() );
   Gant::cleanse( text );
   EXPECT_LE( copiesInHeap( end ), 1u ); // the one here
}

TEST( ControlRequest, isOverwrittenInPlace ) {
   Json request{ { "command", "add" }, { "list", { { { "entry", std::string( 100, 'k' ) } } } } };
   const auto & entry = request[ "list" ][ 0 ][ "entry" ].get_ref< const std::string & >();
   const std::string_view bytes( entry.data(), entry.size() );
   cleanse( request );
   EXPECT_EQ( bytes, std::string( 100, '\0' ) );
}

TEST_F( Control, hasItsSocketAloneAndForItsGroupOnly ) {
   struct stat status {};
   ASSERT_EQ( stat( path_.c_str(), &status ), 0 );
   EXPECT_EQ( status.st_mode & 0777u, 0660u );
   ControlServer second( router_, CommandTable( {} ), limits_ );
   EXPECT_EQ( second.open( path_ ), path_ + ": another daemon has this socket" );
   expectUnmoved();
   // A file that is no socket is not taken away, a dead daemon's socket is.
   const auto file = directory_.path( "file" );
   fclose( fopen( file.c_str(), "w" ) );
   EXPECT_EQ( second.open( file ), file + ": exists, and is no socket" );
   ASSERT_EQ( link( path_.c_str(), directory_.path( "left" ).c_str() ), 0 );
   EXPECT_EQ( second.open( directory_.path( "left" ) ), "" );
   server_->close();
   EXPECT_NE( access( path_.c_str(), F_OK ), 0 );
   second.close();
   EXPECT_EQ( second.open( path_ ), "" );
}

} // namespace
