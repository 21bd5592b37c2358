#include "BenchProcess.h"

#include <malloc.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace Bench {

double cpuOf( pid_t pid ) {
   clockid_t clock;
   timespec time{};
   if ( clock_getcpuclockid( pid, &clock ) != 0 || clock_gettime( clock, &time ) != 0 ) return 0;
   return double( time.tv_sec ) + double( time.tv_nsec ) * 1e-9;
}

double cpuOfThisProcess() { return cpuOf( getpid() ); }

std::size_t residentOf( pid_t pid ) {
   std::ifstream status( "/proc/" + std::to_string( pid ) + "/statm" );
   std::size_t all = 0, resident = 0;
   status >> all >> resident;
   return resident * std::size_t( sysconf( _SC_PAGESIZE ) );
}

std::size_t allocated() {
   const auto info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

std::string programFolder() { return std::filesystem::read_symlink( "/proc/self/exe" ).parent_path(); }

DataPlane::DataPlane() {
   std::string name = ( std::filesystem::temp_directory_path() / "vexl3-bench-XXXXXX" ).string();
   directory_ = mkdtemp( name.data() );
   start();
}

DataPlane::~DataPlane() {
   kill();
   std::filesystem::remove_all( directory_ );
}

namespace {

bool listens( const std::string & path ) {
   sockaddr_un name{};
   name.sun_family = AF_UNIX;
   path.copy( name.sun_path, sizeof( name.sun_path ) - 1 );
   const int fd = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   const bool connected = connect( fd, reinterpret_cast< const sockaddr * >( &name ), sizeof( name ) ) == 0;
   close( fd );
   return connected;
}

} // namespace

void DataPlane::start() {
   const auto program = programFolder() + "/vexdp";
   const auto parent = std::to_string( getpid() );
   pid_ = fork();
   if ( pid_ != 0 ) {
      for ( const auto begun = Clock::now(); !listens( directory_ + "/socket" ); ) {
         if ( secondsSince( begun ) > 20 ) throw std::runtime_error( program + " does not listen" );
         std::this_thread::sleep_for( std::chrono::milliseconds( 1 ) );
      }
      return;
   }
   execl( program.c_str(), "vexdp", "--listen", address().c_str(), "--log-level", "error", "--die-with-parent",
          parent.c_str(), nullptr );
   _exit( 127 );
}

void DataPlane::kill() {
   if ( pid_ <= 0 ) return;
   ::kill( pid_, SIGKILL );
   waitpid( pid_, nullptr, 0 );
   pid_ = -1;
}

} // namespace Bench
