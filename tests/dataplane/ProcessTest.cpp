// The program as its supervisor sees it: exit codes, messages, and what is left behind.

#include "Process.h"

#include <grpcpp/grpcpp.h>

#include <chrono>

namespace {

using Test::Process, Test::Words;

struct DataPlane : Process {
   explicit DataPlane( const Words & arguments, unsigned life = 0 ) :
        Process( VEXDP_PROGRAM, arguments, "/tmp", life ) {}
};

bool answers( const std::string & address ) {
   grpc::ChannelArguments arguments;
   arguments.SetInt( GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 10 );
   arguments.SetInt( GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 10 );
   arguments.SetInt( GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 10 );
   const auto channel = grpc::CreateCustomChannel( address, grpc::InsecureChannelCredentials(), arguments );
   return channel->WaitForConnected( std::chrono::system_clock::now() + std::chrono::seconds( 20 ) );
}

class Program : public testing::Test {
 protected:
   const ::Test::Directory directory_;
   const std::string socket_ = directory_.path( "socket" ), counters_ = directory_.path( "counters" );
};

TEST_F( Program, endsOnASignalAndLeavesNothingBehind ) {
   for ( const int number : { SIGTERM, SIGINT } ) {
      DataPlane process( { "--listen", "unix:" + socket_, "--counters", counters_ } );
      ASSERT_TRUE( answers( "unix:" + socket_ ) );
      EXPECT_TRUE( std::filesystem::exists( counters_ ) );
      EXPECT_EQ( std::filesystem::status( socket_ ).permissions(), std::filesystem::perms( 0660 ) );
      process.signal( number );
      EXPECT_EQ( process.wait(), 0 );
      EXPECT_TRUE( directory_.empty() );
   }
}

TEST_F( Program, listensWhereNobodyElseCanBeFirst ) {
   const auto runtime = directory_.path( "runtime" ), address = "unix:" + runtime + "/vexdp.sock";
   {
      Process process( VEXDP_PROGRAM, {}, runtime );
      ASSERT_TRUE( answers( address ) );
   }
   std::filesystem::permissions( runtime, std::filesystem::perms::all );
   Process process( VEXDP_PROGRAM, {}, runtime );
   EXPECT_EQ( process.all(), "vexdp: " + runtime + ": others can write to it\n" );
   EXPECT_EQ( process.wait(), 1 );
}

TEST_F( Program, takesThePlaceOfOneThatWasKilled ) {
   {
      DataPlane killed( { "--listen", "unix:" + socket_, "--counters", counters_ } );
      ASSERT_TRUE( answers( "unix:" + socket_ ) );
      killed.signal( SIGKILL );
      EXPECT_EQ( killed.wait(), 128 + SIGKILL );
   }
   EXPECT_TRUE( std::filesystem::exists( socket_ ) && std::filesystem::exists( counters_ ) );
   DataPlane next( { "--listen", "unix:" + socket_, "--counters", counters_ } );
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
}

TEST_F( Program, startsAfterAKillAtAnyMoment ) {
   using Clock = std::chrono::steady_clock;
   const Words arguments{ "--listen", "unix:" + socket_, "--counters", counters_ };
   const auto begin = Clock::now();
   const auto startTime = [ & ] {
      DataPlane whole( arguments );
      EXPECT_TRUE( answers( "unix:" + socket_ ) );
      return std::chrono::duration_cast< std::chrono::microseconds >( Clock::now() - begin ).count();
   }();
   for ( int kill = 1; kill <= 50; ++kill ) {
      DataPlane killed( arguments, unsigned( startTime * kill / 50 ) );
      ASSERT_EQ( killed.wait(), 128 + SIGALRM ) << killed.all();
   }
   DataPlane next( arguments );
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
}

TEST_F( Program, saysWhatItCannotHave ) {
   DataPlane holder( { "--listen", "unix:" + socket_, "--counters", counters_ } );
   ASSERT_TRUE( answers( "unix:" + socket_ ) );
   directory_.write( "file", "text" );
   const auto other = "unix:" + directory_.path( "other" );
   const struct {
      Words arguments;
      int code;
      std::string message;
   } cases[] = {
        { { "--listen", "unix:" + socket_ }, 1, "can't listen on unix:" + socket_ + ": the address is in use" },
        { { "--listen", other, "--listen", other }, 1, "can't listen on " + other + ": it is given twice" },
        { { "--listen", "unix:" + directory_.path( "file" ) }, 1, "file: the path exists and is not a socket" },
        { { "--listen", "unix:" + directory_.path( "none/socket" ) }, 1, "none/socket: No such file or directory" },
        { { "--listen", other, "--counters", counters_ }, 1, counters_ + ": in use by another process" },
        { { "--listen", other, "--counters", directory_.path( "none/x" ) }, 1, "none/x: No such file or directory" },
        { { "--listen", "nowhere" }, 2, "an address is unix:PATH or HOST:PORT" },
        { { "--listen", "localhost:65536" }, 2, "the port is not a number up to 65535" },
        { { "--listen", "unix:/" + std::string( 200, 'x' ) }, 2, "the socket's path is too long" },
        { { "--listen", "localhost:0" }, 2, "takes --tls-cert, --tls-key and --tls-ca, or --insecure-tcp" },
        { { "--tls-key", "key" }, 2, "--tls-cert, --tls-key and --tls-ca are given together" },
        { { "--log-level", "loud" }, 2, "--log-level" },
        { { "--loud" }, 2, "--loud" },
        { { "--version" }, 0, "vexdp " },
        { { "--help" }, 0, "--listen ADDRESS" },
   };
   for ( const auto & given : cases ) {
      DataPlane process( given.arguments );
      const auto output = process.all();
      EXPECT_EQ( process.wait(), given.code ) << output;
      EXPECT_NE( output.find( given.message ), std::string::npos ) << output;
   }
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
}

// A parent that starts one and dies. The pipe is at its end when the child is gone too.
TEST_F( Program, diesWithItsParent ) {
   int ends[ 2 ];
   ASSERT_EQ( pipe2( ends, O_CLOEXEC ), 0 );
   int go[ 2 ];
   ASSERT_EQ( pipe2( go, O_CLOEXEC ), 0 );
   const pid_t parent = fork();
   if ( parent == 0 ) {
      if ( fork() == 0 )
         Process::become( VEXDP_PROGRAM,
                          { "--listen", "unix:" + socket_, "--die-with-parent", std::to_string( getppid() ) },
                          ends[ 1 ] );
      char byte;
      close( go[ 1 ] );
      [[maybe_unused]] const auto n = read( go[ 0 ], &byte, 1 );
      _exit( 0 );
   }
   close( ends[ 1 ] );
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
   close( go[ 1 ] );
   std::string output;
   while ( Process::readInto( ends[ 0 ], output ) ) {
   }
   EXPECT_NE( output.find( "ending on SIGTERM" ), std::string::npos ) << output;
   EXPECT_FALSE( std::filesystem::exists( socket_ ) );
   waitpid( parent, nullptr, 0 );
   close( ends[ 0 ] );
   close( go[ 0 ] );
}

TEST_F( Program, doesNotStartForAParentThatIsGone ) {
   DataPlane process( { "--listen", "unix:" + socket_, "--die-with-parent", "1" } );
   EXPECT_EQ( process.all(), "vexdp: the parent process is gone\n" );
   EXPECT_EQ( process.wait(), 1 );
}

} // namespace
