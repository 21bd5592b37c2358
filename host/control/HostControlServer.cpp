#include "HostControlServer.h"

#include "GantAsio.h"
#include "GantTrace.h"
#include "HostControlClient.h"

#include <algorithm>
#include <asio/steady_timer.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Host {

static Gant::TraceHandle traceHandle( "HostControlServer" );

// Held by the daemon that has the path, and let go of by the kernel, whatever ends it.
class PathLock {
 public:
   ~PathLock() { release(); }
   // The reason when it cannot be taken.
   std::string take( const std::string & path ) {
      const auto file = path + ".lock";
      fd_ = open( file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600 );
      if ( fd_ < 0 ) return file + ": " + std::strerror( errno );
      if ( flock( fd_, LOCK_EX | LOCK_NB ) == 0 ) return {};
      const int error = errno;
      release();
      return error == EWOULDBLOCK ? path + ": another daemon has this socket" : file + ": " + std::strerror( error );
   }
   void release() {
      if ( fd_ >= 0 ) ::close( fd_ );
      fd_ = -1;
   }

 private:
   int fd_ = -1;
};

namespace {

using asio::local::stream_protocol;

// A listening descriptor, or -1 with errno. The mode is right from the first moment.
int listenAt( const std::string & path ) {
   const int fd = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( fd < 0 ) return -1;
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::memcpy( address.sun_path, path.data(), path.size() );
   const auto mask = umask( 0117 );
   const bool listening =
        bind( fd, reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ) == 0 && listen( fd, 64 ) == 0;
   const int error = errno;
   umask( mask );
   if ( listening ) return fd;
   ::close( fd );
   errno = error;
   return -1;
}

// Only a socket is taken away: a file of another kind at this path is somebody's mistake.
std::string removeLeftOver( const std::string & path ) {
   struct stat status {};
   if ( lstat( path.c_str(), &status ) != 0 ) return {};
   if ( !S_ISSOCK( status.st_mode ) ) return path + ": exists, and is no socket";
   return unlink( path.c_str() ) == 0 ? std::string() : path + ": " + std::strerror( errno );
}

// What the process itself opens: sources, counters, data planes with their connections, questions to them.
constexpr size_t descriptorsKept = 40;

ControlServer::Limits limitsHere() {
   ControlServer::Limits limits;
   rlimit descriptors{};
   getrlimit( RLIMIT_NOFILE, &descriptors );
   const auto most = std::min< rlim_t >( descriptors.rlim_cur, 1 << 20 );
   limits.clientsMax =
        std::clamp< size_t >( most > descriptorsKept ? most - descriptorsKept : 0, 4, limits.clientsMax );
   return limits;
}

constexpr auto acceptAgain = std::chrono::milliseconds( 200 );

} // namespace

struct ControlServer::Impl : std::enable_shared_from_this< Impl > {
   Impl( DaemonControl & daemon, const CommandTable & commands, const Limits & limits ) :
        daemon( daemon ), commands( commands ), limits( limits ), acceptor( Gant::ioContext() ),
        again( Gant::ioContext() ) {}

   void accept() {
      acceptor.async_accept( [ self = shared_from_this() ]( const std::error_code & error, auto socket ) {
         if ( !self->acceptor.is_open() ) return;
         if ( error ) return self->rest( error );
         self->add( std::move( socket ) );
         self->accept();
      } );
   }

   // No descriptor, say: the client is still there to be accepted.
   void rest( const std::error_code & error ) {
      tellFull( error.message() );
      again.expires_after( acceptAgain );
      again.async_wait( [ self = shared_from_this() ]( const std::error_code & ) {
         if ( self->acceptor.is_open() ) self->accept();
      } );
   }

   void tellFull( const std::string & why ) {
      if ( std::exchange( toldFull, true ) ) return;
      GANT_TRACE( 0, path, ": clients are turned away: ", why );
   }

   void add( stream_protocol::socket socket ) {
      const auto client = std::make_shared< ControlClient >(
           std::move( socket ), ControlClient::Surroundings{ daemon, commands, limits,
                                                             [ this ]( ControlClient * gone ) { drop( gone ); } } );
      const bool room = clients.size() < limits.clientsMax;
      if ( !room ) tellFull( Gant::format( "there are %zu", clients.size() ) );
      if ( room || makeRoom() ) {
         clients.insert( client );
         client->begin();
      } else {
         clients.insert( client );
         client->refuse( ErrorCode::unavailable, "too many clients" );
      }
      if ( clients.size() <= limits.clientsMax / 2 ) toldFull = false;
   }

   bool makeRoom() {
      std::shared_ptr< ControlClient > longest;
      for ( const auto & client : clients )
         if ( client->idle() && ( !longest || client->idleSince() < longest->idleSince() ) ) longest = client;
      if ( !longest ) return false;
      longest->refuse( ErrorCode::unavailable, "too many clients: this one was idle for longest" );
      return true;
   }

   void drop( ControlClient * gone ) {
      std::erase_if( clients, [ gone ]( const auto & client ) { return client.get() == gone; } );
   }

   DaemonControl & daemon;
   const CommandTable commands;
   const Limits limits;
   std::string path;
   PathLock lock;
   stream_protocol::acceptor acceptor;
   asio::steady_timer again;
   bool toldFull = false; // that clients are turned away
   std::set< std::shared_ptr< ControlClient > > clients;
};

ControlServer::ControlServer( DaemonControl & daemon ) : ControlServer( daemon, CommandTable::all(), limitsHere() ) {}

ControlServer::ControlServer( DaemonControl & daemon, const CommandTable & commands, const Limits & limits ) :
     impl_( std::make_shared< Impl >( daemon, commands, limits ) ) {}

ControlServer::~ControlServer() { close(); }

std::string ControlServer::open( const std::string & path ) {
   if ( path.empty() || path.size() >= sizeof( sockaddr_un::sun_path ) )
      return "\"" + path + "\" is no path of a socket: it is empty or too long";
   if ( auto why = impl_->lock.take( path ); !why.empty() ) return why;
   auto why = removeLeftOver( path );
   const int fd = why.empty() ? listenAt( path ) : -1;
   if ( why.empty() && fd < 0 ) why = path + ": " + std::strerror( errno );
   if ( !why.empty() ) {
      impl_->lock.release();
      return why;
   }
   impl_->path = path;
   impl_->acceptor.assign( stream_protocol(), fd );
   impl_->accept();
   return {};
}

void ControlServer::close() {
   if ( impl_->path.empty() ) return;
   std::error_code ignored;
   impl_->acceptor.close( ignored );
   impl_->again.cancel();
   for ( const auto & client : impl_->clients ) client->close();
   impl_->clients.clear();
   unlink( impl_->path.c_str() );
   impl_->path.clear();
   impl_->lock.release();
}

size_t ControlServer::clients() const { return impl_->clients.size(); }

} // namespace Host
