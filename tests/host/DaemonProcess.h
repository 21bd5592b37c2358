// The daemon as a process, with its files, its output and its signals.
#pragma once

#include "vex/engine.grpc.pb.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Test {

using Words = std::vector< std::string >;
using Json = nlohmann::json;

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

inline constexpr const char * fed = "the data plane has everything";

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
   // The answer as a document; the exit code is in `exitCode`.
   Json vexctl( Words words ) const {
      words.insert( words.begin(), { "--json", "--socket", path( "vexl3d.sock" ) } );
      Process process( VEXCTL_PROGRAM, words );
      const auto text = process.all();
      exitCode = process.wait();
      // What is for people comes behind the document.
      auto document = Json::parse( text.substr( 0, text.rfind( "\n}" ) + 2 ), nullptr, false );
      EXPECT_TRUE( document.is_object() ) << text;
      return document;
   }
   Json rows( Words words ) const { return vexctl( std::move( words ) )[ "rows" ]; }
   // Of a data plane at the address: next hops of the longest match of an IPv4 address, or of that very prefix; -1 when
   // there is none.
   int nextHops( const std::string & address, std::uint32_t destination, int prefixLen = -1 ) const {
      const auto stub = vex::pb::Engine::NewStub( grpc::CreateChannel( address, grpc::InsecureChannelCredentials() ) );
      grpc::ClientContext context;
      context.set_wait_for_ready( true );
      vex::pb::LookupRequest request;
      request.set_module( "fibIpv4" );
      request.set_address( destination );
      if ( prefixLen >= 0 ) request.set_prefix_len( std::uint32_t( prefixLen ) );
      vex::pb::LookupReply reply;
      if ( !stub->Lookup( &context, request, &reply ).ok() || !reply.found() ) return -1;
      return reply.nh_info_size();
   }

   std::string directory_;
   mutable int exitCode = -1;
};

} // namespace Test
