// The program as its supervisor sees it: exit codes, messages, and what is left behind.

#include "bess/control.grpc.pb.h"

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using Words = std::vector< std::string >;

// A started vexdp, whose output is kept to the end.
class Process {
 public:
   // With a life, in microseconds, it is killed after it.
   explicit Process( const Words & arguments, unsigned life = 0 ) {
      int ends[ 2 ];
      EXPECT_EQ( pipe2( ends, O_CLOEXEC ), 0 );
      output_ = ends[ 0 ];
      pid_ = fork();
      if ( pid_ == 0 ) become( arguments, ends[ 1 ], life );
      close( ends[ 1 ] );
   }
   ~Process() {
      if ( pid_ > 0 ) {
         kill( pid_, SIGKILL );
         wait();
      }
      close( output_ );
   }

   // Replaces this process, with `output` for its standard streams.
   [[noreturn]] static void become( const Words & arguments, int output, unsigned life = 0 ) {
      // One that doesn't end is ended. The timer outlives execv, and its signal kills.
      const itimerval timer{ {}, { life == 0 ? 60 : 0, suseconds_t( life ) } };
      setitimer( ITIMER_REAL, &timer, nullptr );
      dup2( output, STDOUT_FILENO );
      dup2( output, STDERR_FILENO );
      std::vector< char * > argv{ const_cast< char * >( VEXDP_PROGRAM ) };
      for ( const auto & argument : arguments ) argv.push_back( const_cast< char * >( argument.c_str() ) );
      argv.push_back( nullptr );
      execv( VEXDP_PROGRAM, argv.data() );
      _exit( 127 );
   }

   void signal( int number ) const { kill( pid_, number ); }
   // Its exit code, or 128 and the signal.
   int wait() {
      int status = 0;
      waitpid( pid_, &status, 0 );
      pid_ = -1;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : 128 + WTERMSIG( status );
   }
   // All that it wrote. REQUIRES: it ends by itself
   std::string output() const { return readAll( output_ ); }

   static std::string readAll( int fd ) {
      std::string text;
      char buffer[ 4096 ];
      for ( ssize_t n; ( n = read( fd, buffer, sizeof( buffer ) ) ) > 0; ) text.append( buffer, std::size_t( n ) );
      return text;
   }

 private:
   pid_t pid_ = -1;
   int output_ = -1;
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
   Program() {
      std::string name = ( std::filesystem::temp_directory_path() / "vexdp-test-XXXXXX" ).string();
      directory_ = mkdtemp( name.data() );
      socket_ = directory_ + "/socket";
      counters_ = directory_ + "/counters";
   }
   ~Program() override { std::filesystem::remove_all( directory_ ); }

   std::string directory_, socket_, counters_;
};

TEST_F( Program, endsOnASignalAndLeavesNothingBehind ) {
   for ( const int number : { SIGTERM, SIGINT } ) {
      Process process( { "--listen", "unix:" + socket_, "--counters", counters_ } );
      ASSERT_TRUE( answers( "unix:" + socket_ ) );
      EXPECT_TRUE( std::filesystem::exists( counters_ ) );
      EXPECT_EQ( std::filesystem::status( socket_ ).permissions(), std::filesystem::perms( 0660 ) );
      process.signal( number );
      EXPECT_EQ( process.wait(), 0 );
      EXPECT_TRUE( std::filesystem::is_empty( directory_ ) );
   }
}

TEST_F( Program, takesThePlaceOfOneThatWasKilled ) {
   {
      Process killed( { "--listen", "unix:" + socket_, "--counters", counters_ } );
      ASSERT_TRUE( answers( "unix:" + socket_ ) );
      killed.signal( SIGKILL );
      EXPECT_EQ( killed.wait(), 128 + SIGKILL );
   }
   EXPECT_TRUE( std::filesystem::exists( socket_ ) && std::filesystem::exists( counters_ ) );
   Process next( { "--listen", "unix:" + socket_, "--counters", counters_ } );
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
}

TEST_F( Program, startsAfterAKillAtAnyMoment ) {
   using Clock = std::chrono::steady_clock;
   const Words arguments{ "--listen", "unix:" + socket_, "--counters", counters_ };
   const auto begin = Clock::now();
   const auto startTime = [ & ] {
      Process whole( arguments );
      EXPECT_TRUE( answers( "unix:" + socket_ ) );
      return std::chrono::duration_cast< std::chrono::microseconds >( Clock::now() - begin ).count();
   }();
   for ( int kill = 1; kill <= 50; ++kill ) {
      Process killed( arguments, unsigned( startTime * kill / 50 ) );
      ASSERT_EQ( killed.wait(), 128 + SIGALRM ) << killed.output();
   }
   Process next( arguments );
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
}

TEST_F( Program, saysWhatItCannotHave ) {
   Process holder( { "--listen", "unix:" + socket_, "--counters", counters_ } );
   ASSERT_TRUE( answers( "unix:" + socket_ ) );
   std::ofstream( directory_ + "/file" ) << "text";
   const auto other = "unix:" + directory_ + "/other";
   const struct {
      Words arguments;
      int code;
      std::string message;
   } cases[] = {
        { { "--listen", "unix:" + socket_ }, 1, "can't listen on unix:" + socket_ + ": the address is in use" },
        { { "--listen", other, "--listen", other }, 1, "can't listen on " + other + ": it is given twice" },
        { { "--listen", "unix:" + directory_ + "/file" }, 1, "file: the path exists and is not a socket" },
        { { "--listen", "unix:" + directory_ + "/none/socket" }, 1, "none/socket: No such file or directory" },
        { { "--listen", other, "--counters", counters_ }, 1, counters_ + ": in use by another process" },
        { { "--listen", other, "--counters", directory_ + "/none/x" }, 1, "none/x: No such file or directory" },
        { { "--listen", "nowhere" }, 2, "an address is unix:PATH or HOST:PORT" },
        { { "--listen", "localhost:65536" }, 2, "the port is not a number up to 65535" },
        { { "--listen", "unix:/" + std::string( 200, 'x' ) }, 2, "the socket's path is too long" },
        { { "--log-level", "loud" }, 2, "--log-level" },
        { { "--loud" }, 2, "--loud" },
        { { "--version" }, 0, "vexdp " },
        { { "--help" }, 0, "--listen ADDRESS" },
   };
   for ( const auto & given : cases ) {
      Process process( given.arguments );
      const auto output = process.output();
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
         Process::become( { "--listen", "unix:" + socket_, "--die-with-parent", std::to_string( getppid() ) },
                          ends[ 1 ] );
      char byte;
      close( go[ 1 ] );
      [[maybe_unused]] const auto n = read( go[ 0 ], &byte, 1 );
      _exit( 0 );
   }
   close( ends[ 1 ] );
   EXPECT_TRUE( answers( "unix:" + socket_ ) );
   close( go[ 1 ] );
   const auto output = Process::readAll( ends[ 0 ] );
   EXPECT_NE( output.find( "ending on SIGTERM" ), std::string::npos ) << output;
   EXPECT_FALSE( std::filesystem::exists( socket_ ) );
   waitpid( parent, nullptr, 0 );
   close( ends[ 0 ] );
   close( go[ 0 ] );
}

TEST_F( Program, doesNotStartForAParentThatIsGone ) {
   Process process( { "--listen", "unix:" + socket_, "--die-with-parent", "1" } );
   EXPECT_EQ( process.output(), "vexdp: the parent process is gone\n" );
   EXPECT_EQ( process.wait(), 1 );
}

} // namespace
