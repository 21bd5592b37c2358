// The daemon as its supervisor and its user see it: exit codes, what it says, and what becomes of its data plane.

#include "vex/engine.grpc.pb.h"

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Words = std::vector< std::string >;

// A started program, whose output is read as it comes.
class Process {
 public:
   Process( const char * program, const Words & arguments, const std::string & runtime = "/tmp" ) {
      int ends[ 2 ];
      EXPECT_EQ( pipe2( ends, O_CLOEXEC ), 0 );
      output_ = ends[ 0 ];
      pid_ = fork();
      if ( pid_ == 0 ) {
         // One that hangs is ended.
         alarm( 120 );
         setenv( "RUNTIME_DIRECTORY", runtime.c_str(), 1 );
         dup2( ends[ 1 ], STDOUT_FILENO );
         dup2( ends[ 1 ], STDERR_FILENO );
         std::vector< char * > argv{ const_cast< char * >( program ) };
         for ( const auto & argument : arguments ) argv.push_back( const_cast< char * >( argument.c_str() ) );
         argv.push_back( nullptr );
         execv( program, argv.data() );
         _exit( 127 );
      }
      close( ends[ 1 ] );
   }
   ~Process() {
      if ( pid_ > 0 ) {
         kill( pid_, SIGKILL );
         waitpid( pid_, nullptr, 0 );
      }
      close( output_ );
   }
   pid_t pid() const { return pid_; }
   void signal( int number ) const { kill( pid_, number ); }
   int wait() {
      int status = 0;
      waitpid( pid_, &status, 0 );
      pid_ = -1;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : 128 + WTERMSIG( status );
   }
   // Reads on until it has said the text, from where the last call ended. False when it ends before.
   bool says( const std::string & text ) {
      while ( true ) {
         if ( const auto at = said_.find( text, from_ ); at != said_.npos ) {
            from_ = at + text.size();
            return true;
         }
         char buffer[ 4096 ];
         const auto n = read( output_, buffer, sizeof( buffer ) );
         if ( n <= 0 ) return false;
         said_.append( buffer, std::size_t( n ) );
      }
   }
   std::string all() {
      says( std::string( 1, '\0' ) );
      return said_;
   }

 private:
   pid_t pid_ = -1;
   int output_ = -1;
   std::string said_;
   std::size_t from_ = 0;
};

const char * const fed = "the data plane has everything";

class Vexl3d : public testing::Test {
 protected:
   Vexl3d() {
      std::string name = ( std::filesystem::temp_directory_path() / "vexl3d-test-XXXXXX" ).string();
      directory_ = mkdtemp( name.data() );
      std::filesystem::create_directory( runtime() );
      write( "router.yaml", R"(interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24}
  - {name: Ethernet2, addresses: 10.0.2.1/24}
routes:
  - {prefix: 192.0.2.0/24, via: [10.0.1.2, 10.0.2.2]}
)" );
   }
   ~Vexl3d() override { std::filesystem::remove_all( directory_ ); }

   std::string path( const std::string & name ) const { return directory_ + "/" + name; }
   std::string runtime() const { return path( "runtime" ); }
   void write( const std::string & name, const std::string & text ) const { std::ofstream( path( name ) ) << text; }
   Words arguments( Words more ) const {
      Words words{ "--config", path( "router.yaml" ), "--socket", path( "vexl3d.sock" ) };
      words.insert( words.end(), more.begin(), more.end() );
      return words;
   }
   // Of a data plane at the address: next hops of the route of an IPv4 address, -1 when there is none.
   int nextHops( const std::string & address, std::uint32_t destination ) const {
      const auto stub = vex::pb::Engine::NewStub( grpc::CreateChannel( address, grpc::InsecureChannelCredentials() ) );
      grpc::ClientContext context;
      context.set_wait_for_ready( true );
      vex::pb::LookupRequest request;
      request.set_module( "fibIpv4" );
      request.set_address( destination );
      vex::pb::LookupReply reply;
      if ( !stub->Lookup( &context, request, &reply ).ok() || !reply.found() ) return -1;
      return reply.nh_info_size();
   }

   std::string directory_;
};

TEST_F( Vexl3d, checksItsSourcesAndSaysWhatIsWrong ) {
   write( "wrong.yaml", "interfaces: [{name: Ethernet1, mtu: 1}]\nroute-file: {path: lines}\n" );
   write( "lines", "10.0.0.1/8\n" );
   const struct {
      Words arguments;
      int code;
      std::string message;
   } cases[] = {
        { { "--check-config", "--config", path( "router.yaml" ) }, 0, "" },
        { { "--check-config", "--config", path( "wrong.yaml" ) },
          1,
          "wrong.yaml:1: interface Ethernet1: MTU 1 is under 68" },
        { { "--check-config", "--config", path( "wrong.yaml" ) }, 1, "lines:1: 10.0.0.1/8: the prefix has host bits" },
        { { "--check-config", "--config", path( "none.yaml" ) }, 1, "none.yaml: the file cannot be read" },
        { { "--config", path( "none.yaml" ) }, 1, "none.yaml: the file cannot be read" },
        { { "--dataplane", "nowhere" }, 2, "is not embedded, unix:PATH or HOST:PORT" },
        { { "--log", "VexL3Sm=10" }, 2, "is not a number from 0 to 9" },
        { { "--loud" }, 2, "--loud" },
        { { "--version" }, 0, "vexl3d " },
        { { "--help" }, 0, "--check-config" },
   };
   for ( const auto & given : cases ) {
      Process process( VEXL3D_PROGRAM, given.arguments );
      const auto output = process.all();
      EXPECT_EQ( process.wait(), given.code ) << output;
      EXPECT_NE( output.find( given.message ), std::string::npos ) << output;
   }
}

TEST_F( Vexl3d, endsOnASignalWithItsDataPlaneAndLeavesNothing ) {
   for ( const int number : { SIGTERM, SIGINT } ) {
      Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
      ASSERT_TRUE( daemon.says( fed ) );
      daemon.signal( number );
      // The pipe ends with the last of those who hold it.
      daemon.all();
      EXPECT_EQ( daemon.wait(), 0 );
      EXPECT_TRUE( std::filesystem::is_empty( runtime() ) );
   }
}

TEST_F( Vexl3d, goesOnAfterTheLossOfAnEmbeddedDataPlane ) {
   Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   for ( int round = 0; round < 3; ++round ) {
      ASSERT_TRUE( daemon.says( fed ) );
      std::ifstream children( "/proc/" + std::to_string( daemon.pid() ) + "/task/" + std::to_string( daemon.pid() ) +
                              "/children" );
      pid_t child = 0;
      ASSERT_TRUE( children >> child );
      kill( child, SIGKILL );
      ASSERT_TRUE( daemon.says( "no data plane: the data plane was ended by signal 9" ) );
   }
   ASSERT_TRUE( daemon.says( fed ) );
}

TEST_F( Vexl3d, feedsWhateverDataPlaneComesAndAppliesReloads ) {
   const auto address = "unix:" + path( "dataplane.sock" );
   constexpr std::uint32_t described = 0xc0000201, reloaded = 0xcb007101;
   Process daemon( VEXL3D_PROGRAM, arguments( { "--dataplane", address } ), runtime() );
   ASSERT_TRUE( daemon.says( "no data plane: " ) );
   {
      Process dataPlane( VEXDP_PROGRAM, { "--listen", address } );
      ASSERT_TRUE( daemon.says( fed ) );
      EXPECT_EQ( nextHops( address, described ), 2 );
      EXPECT_EQ( nextHops( address, reloaded ), -1 );
   }
   ASSERT_TRUE( daemon.says( "no data plane: " ) );
   // Changes while there is none reach the next one.
   write( "router.yaml", "interfaces:\n  - {name: Ethernet1, addresses: 10.0.1.1/24}\n"
                         "routes:\n  - {prefix: 203.0.113.0/24, via: 10.0.1.2}\n" );
   daemon.signal( SIGHUP );
   ASSERT_TRUE( daemon.says( "reloaded" ) );
   Process dataPlane( VEXDP_PROGRAM, { "--listen", address } );
   ASSERT_TRUE( daemon.says( fed ) );
   EXPECT_EQ( nextHops( address, described ), -1 );
   EXPECT_EQ( nextHops( address, reloaded ), 1 );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

TEST_F( Vexl3d, leavesTheSocketToTheDaemonThatHasIt ) {
   Process daemon( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   EXPECT_EQ( std::filesystem::status( path( "vexl3d.sock" ) ).permissions(), std::filesystem::perms( 0660 ) );
   Process second( VEXL3D_PROGRAM, arguments( {} ), runtime() );
   EXPECT_TRUE( second.says( "another daemon has this socket" ) );
   EXPECT_EQ( second.wait(), 1 );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

TEST_F( Vexl3d, triesAgainWhenItsDataPlaneDoesNotStart ) {
   Process daemon( VEXL3D_PROGRAM, arguments( { "--dataplane-program", path( "none" ) } ), runtime() );
   EXPECT_TRUE( daemon.says( "no data plane: " + path( "none" ) + ": No such file or directory" ) );
   daemon.signal( SIGTERM );
   EXPECT_EQ( daemon.wait(), 0 );
}

} // namespace
