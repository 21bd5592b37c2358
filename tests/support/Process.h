// Programs as their users start them, and a place for their files.
#pragma once

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <signal.h>
#include <string>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Test {

using Words = std::vector< std::string >;

// A directory that goes with its object.
class Directory {
 public:
   Directory() : path_( std::filesystem::temp_directory_path() / "vexl3-test-XXXXXX" ) {
      if ( mkdtemp( path_.data() ) == nullptr ) ADD_FAILURE() << "no directory";
   }
   ~Directory() { std::filesystem::remove_all( path_ ); }
   std::string path( const std::string & name ) const { return path_ + "/" + name; }
   void write( const std::string & name, const std::string & text ) const { std::ofstream( path( name ) ) << text; }
   bool empty() const { return std::filesystem::is_empty( path_ ); }

 private:
   std::string path_;
};

// Stops a child. No thread of it runs any more on return: what is asked afterwards waits until it goes on.
inline void stop( pid_t child ) {
   ASSERT_EQ( kill( child, SIGSTOP ), 0 );
   siginfo_t told{};
   ASSERT_EQ( waitid( P_PID, id_t( child ), &told, WSTOPPED | WEXITED | WNOWAIT ), 0 );
   EXPECT_EQ( told.si_code, CLD_STOPPED );
}

// A started program, whose output is read as it comes.
class Process {
 public:
   // With a life, in microseconds, it is killed after it.
   Process( const char * program, const Words & arguments, const std::string & runtime = "/tmp", unsigned life = 0 ) {
      int ends[ 2 ];
      EXPECT_EQ( pipe2( ends, O_CLOEXEC ), 0 );
      output_ = ends[ 0 ];
      pid_ = fork();
      if ( pid_ == 0 ) {
         setenv( "RUNTIME_DIRECTORY", runtime.c_str(), 1 );
         become( program, arguments, ends[ 1 ], life );
      }
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
   [[noreturn]] static void become( const char * program, const Words & arguments, int output, unsigned life = 0 ) {
      // One that doesn't end is ended. The timer outlives execv, and its signal kills.
      const itimerval timer{ {}, { life == 0 ? 120 : 0, suseconds_t( life ) } };
      setitimer( ITIMER_REAL, &timer, nullptr );
      dup2( output, STDOUT_FILENO );
      dup2( output, STDERR_FILENO );
      std::vector< char * > argv{ const_cast< char * >( program ) };
      for ( const auto & argument : arguments ) argv.push_back( const_cast< char * >( argument.c_str() ) );
      argv.push_back( nullptr );
      execv( program, argv.data() );
      _exit( 127 );
   }

   pid_t pid() const { return pid_; }
   void signal( int number ) const { kill( pid_, number ); }
   // Its exit code, or 128 and the signal.
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
         if ( !readInto( output_, said_ ) ) return false;
      }
   }
   // What is left of the line that says() found the text in.
   std::string rest() {
      const auto begin = from_;
      return says( "\n" ) ? said_.substr( begin, from_ - begin - 1 ) : "";
   }
   // All that it says. REQUIRES: it ends by itself
   std::string all() {
      while ( readInto( output_, said_ ) ) {
      }
      return said_;
   }
   // False at the end.
   static bool readInto( int fd, std::string & text ) {
      char buffer[ 4096 ];
      const auto n = read( fd, buffer, sizeof( buffer ) );
      if ( n > 0 ) text.append( buffer, std::size_t( n ) );
      return n > 0;
   }

 private:
   pid_t pid_ = -1;
   int output_ = -1;
   std::string said_;
   std::size_t from_ = 0;
};

} // namespace Test
