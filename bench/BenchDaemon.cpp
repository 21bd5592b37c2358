#include "BenchDaemon.h"

#include "BenchProcess.h"
#include "BenchVerify.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace Bench {

namespace {

// Four interfaces, and 256 neighbours: 64 groups of four that stand side by side.
void writeDescription( const std::string & path ) {
   std::ofstream out( path );
   out << "router:\n  mac: 02:00:00:aa:00:01\ninterfaces:\n";
   for ( U32 n = 1; n <= hopsPerAdjacency; ++n )
      out << fmt::format( "  - name: Ethernet{0}\n    addresses: 10.0.{0}.1/24\n", n );
   out << "neighbors:\n";
   std::string hops;
   for ( U32 adjacency = 0; adjacency < adjacencies; ++adjacency )
      for ( U32 n = 1; n <= hopsPerAdjacency; ++n ) {
         const auto address = fmt::format( "10.0.{}.{}", n, adjacency + 2 );
         out << fmt::format( "  - {{interface: Ethernet{}, address: {}, mac: '02:00:00:00:{:02x}:{:02x}'}}\n", n,
                             address, n, adjacency );
         hops += ( hops.empty() ? "" : ", " ) + address;
      }
   out << "route-file:\n  nexthops: [" << hops << "]\n  ecmp: " << hopsPerAdjacency << "\n";
}

void writeRoutes( const std::string & path, const Order & order ) {
   std::ofstream out( path );
   for ( const auto & prefix : order.prefixes() ) out << prefix.stringValue() << '\n';
}

class Daemon {
 public:
   explicit Daemon( const Order & order ) {
      std::string name = ( std::filesystem::temp_directory_path() / "vexl3d-bench-XXXXXX" ).string();
      directory_ = mkdtemp( name.data() );
      const auto description = directory_ + "/router.yaml", routes = directory_ + "/routes",
                 socket = directory_ + "/socket", program = programFolder() + "/vexl3d";
      writeDescription( description );
      writeRoutes( routes, order );
      int ends[ 2 ];
      if ( pipe2( ends, O_CLOEXEC ) != 0 ) throw std::runtime_error( "no pipe" );
      pid_ = fork();
      if ( pid_ == 0 ) {
         dup2( ends[ 1 ], STDOUT_FILENO );
         dup2( ends[ 1 ], STDERR_FILENO );
         execl( program.c_str(), "vexl3d", "--config", description.c_str(), "--routes", routes.c_str(), "--socket",
                socket.c_str(), nullptr );
         _exit( 127 );
      }
      close( ends[ 1 ] );
      log_ = fdopen( ends[ 0 ], "r" );
   }
   Daemon( const Daemon & ) = delete;
   Daemon & operator=( const Daemon & ) = delete;
   ~Daemon() {
      kill( pid_, SIGTERM );
      fclose( log_ );
      waitpid( pid_, nullptr, 0 );
      std::filesystem::remove_all( directory_ );
   }

   pid_t pid() const { return pid_; }
   const std::string & dataPlane() const { return dataPlane_; }
   // Reads its log until the data plane has everything.
   void untilFed() {
      char line[ 1024 ];
      std::string last;
      while ( fgets( line, sizeof( line ), log_ ) != nullptr ) {
         last = line;
         static const std::string session = "session with the data plane at ";
         if ( const auto at = last.find( session ); at != last.npos ) {
            dataPlane_ = last.substr( at + session.size() );
            dataPlane_.erase( dataPlane_.find_last_not_of( " \n" ) + 1 );
         }
         if ( last.find( "the data plane has everything" ) != last.npos ) return;
      }
      throw std::runtime_error( "the daemon ended: " + last );
   }
   // Its child.
   void killDataPlane() const {
      std::ifstream children( fmt::format( "/proc/{0}/task/{0}/children", pid_ ) );
      pid_t child = 0;
      if ( !( children >> child ) ) throw std::runtime_error( "the daemon has no data plane" );
      kill( child, SIGKILL );
   }

 private:
   std::string directory_;
   std::string dataPlane_;
   pid_t pid_ = -1;
   FILE * log_ = nullptr;
};

} // namespace

void measureDaemon( const Order & order, Report & report ) {
   Daemon daemon( order );
   const auto begun = Clock::now();
   daemon.untilFed();
   report.figure( "daemon, from its start until acknowledged", "ms", secondsSince( begun ) * 1e3 );
   verify( daemon.dataPlane(), order, {} );
   report.figure( daemonMemory, "bytes a route",
                  double( residentOf( daemon.pid() ) ) / double( order.prefixes().size() ) );
   daemon.killDataPlane();
   const auto killed = Clock::now();
   daemon.untilFed();
   report.figure( "daemon, from its data plane's kill until acknowledged", "ms", secondsSince( killed ) * 1e3 );
   verify( daemon.dataPlane(), order, {} );
   report.figure( daemonVerified, "ms", secondsSince( killed ) * 1e3 );
}

} // namespace Bench
