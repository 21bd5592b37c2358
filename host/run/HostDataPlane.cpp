#include "HostDataPlane.h"

#include "HostErrorStream.h"
#include "RuntimeDirectory.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <spawn.h>
#include <spdlog/spdlog.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace Host {

namespace {

namespace fs = std::filesystem;

// Beside this executable, or where an installation puts programs that are not for users.
std::string ownProgram() {
   std::error_code error;
   const auto here = fs::read_symlink( "/proc/self/exe", error ).parent_path();
   for ( const auto & path : { here / "vexdp", here / "../libexec/vexl3/vexdp", here / "../bin/vexdp" } )
      if ( fs::exists( path, error ) ) return path.string();
   return "vexdp";
}

constexpr std::string_view namePrefix = "dataplane-";

// What a daemon that was killed left there.
void removeLeftOvers( const fs::path & place ) {
   std::error_code error;
   std::vector< fs::path > dead;
   for ( const auto & entry : fs::directory_iterator( place, error ) ) {
      const auto name = entry.path().filename().string();
      pid_t owner = 0;
      if ( !name.starts_with( namePrefix ) ) continue;
      const auto * const begin = name.data() + namePrefix.size();
      const auto [ end, wrong ] = std::from_chars( begin, name.data() + name.size(), owner );
      if ( wrong == std::errc() && owner > 0 && kill( owner, 0 ) != 0 && errno == ESRCH ) dead.push_back( entry );
   }
   for ( const auto & path : dead ) fs::remove_all( path, error );
}

std::string endText( int status ) {
   if ( WIFSIGNALED( status ) )
      return "the data plane was ended by signal " + std::to_string( WTERMSIG( status ) ) + " (" +
             strsignal( WTERMSIG( status ) ) + ")";
   return "the data plane ended with exit code " + std::to_string( WEXITSTATUS( status ) );
}

// Whether the child has ended within the time; it can be waited for then.
bool endsWithin( pid_t pid, int milliseconds ) {
   const int fd = static_cast< int >( syscall( SYS_pidfd_open, pid, 0 ) );
   if ( fd < 0 ) return false;
   pollfd waiting{ fd, POLLIN, 0 };
   const bool ended = poll( &waiting, 1, milliseconds ) == 1;
   close( fd );
   return ended;
}

} // namespace

DataPlane::DataPlane( std::string program, std::string logLevel, const Size & size ) :
     program_( program.empty() ? ownProgram() : std::move( program ) ), logLevel_( std::move( logLevel ) ),
     size_( size ) {}

DataPlane::~DataPlane() {
   stop();
   std::error_code error;
   if ( !directory_.empty() ) fs::remove_all( directory_, error );
}

std::string DataPlane::makeDirectory() {
   std::error_code error;
   if ( !directory_.empty() && fs::is_directory( directory_, error ) ) return {};
   if ( !directory_.empty() ) spdlog::warn( "{}: somebody removed it, another one is made", directory_ );
   const auto place = Runtime::directory();
   if ( auto reason = Runtime::prepare( place ); !reason.empty() ) return reason;
   removeLeftOvers( place );
   auto name = place + "/" + std::string( namePrefix ) + std::to_string( getpid() ) + "-XXXXXX";
   if ( mkdtemp( name.data() ) == nullptr ) return name + ": " + std::strerror( errno );
   directory_ = name;
   return {};
}

std::string DataPlane::start() {
   if ( auto reason = makeDirectory(); !reason.empty() ) return reason;
   const std::vector< std::string > words{ program_,
                                           "--listen",
                                           address(),
                                           "--counters",
                                           directory_ + "/counters",
                                           "--die-with-parent",
                                           std::to_string( getpid() ),
                                           "--max-routes",
                                           std::to_string( size_.maxRoutes ),
                                           "--workers",
                                           std::to_string( size_.workers ),
                                           "--log-level",
                                           logLevel_ };
   std::vector< char * > argv;
   argv.reserve( words.size() + 1 );
   for ( const auto & word : words ) argv.push_back( const_cast< char * >( word.c_str() ) );
   argv.push_back( nullptr );
   int ends[ 2 ];
   if ( pipe2( ends, O_CLOEXEC ) != 0 ) return std::string( "no pipe for the data plane: " ) + std::strerror( errno );
   errors_ = std::make_unique< ErrorStream >( ends[ 0 ] );
   posix_spawn_file_actions_t actions;
   posix_spawn_file_actions_init( &actions );
   posix_spawn_file_actions_adddup2( &actions, ends[ 1 ], STDERR_FILENO );
   // Not every library sets O_CLOEXEC: a client's connection would stay open for as long as the data plane lives.
   posix_spawn_file_actions_addclosefrom_np( &actions, STDERR_FILENO + 1 );
   const int error = posix_spawnp( &pid_, program_.c_str(), &actions, nullptr, argv.data(), environ );
   posix_spawn_file_actions_destroy( &actions );
   close( ends[ 1 ] );
   if ( error == 0 ) return {};
   pid_ = 0;
   return program_ + ": " + std::strerror( error );
}

bool DataPlane::listens() const {
   const int fd = ::socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( fd < 0 ) return false;
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   const auto path = socket();
   std::memcpy( address.sun_path, path.c_str(), std::min( path.size(), sizeof( address.sun_path ) - 1 ) );
   const bool connected = connect( fd, reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ) == 0;
   close( fd );
   return connected;
}

std::optional< std::string > DataPlane::ended( int patience ) {
   int status = 0;
   if ( pid_ != 0 && patience != 0 ) endsWithin( pid_, patience );
   if ( pid_ == 0 || waitpid( pid_, &status, WNOHANG ) != pid_ ) return std::nullopt;
   pid_ = 0;
   auto text = endText( status );
   if ( const auto said = errors_->lastLine(); WIFEXITED( status ) && !said.empty() ) text += ": " + said;
   return text;
}

void DataPlane::stop() {
   if ( pid_ == 0 ) return;
   constexpr int grace = 1000; // milliseconds
   ::kill( pid_, SIGTERM );
   endsWithin( pid_, grace );
   kill();
}

void DataPlane::kill() {
   if ( pid_ == 0 ) return;
   ::kill( pid_, SIGKILL );
   waitpid( pid_, nullptr, 0 );
   pid_ = 0;
}

} // namespace Host
