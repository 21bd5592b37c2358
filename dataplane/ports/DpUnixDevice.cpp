#include "DpUnixDevice.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace Vexdp {

namespace {

// What is received of a client that has gone has no more bytes than its empty message.
bool hasGone( const Descriptor & client ) {
   pollfd asked{ client.fd(), POLLRDHUP, 0 };
   return poll( &asked, 1, 0 ) > 0;
}

// The socket of a process that was killed, which refuses everybody; one that somebody listens on refuses the kind
// alone. False, with errno as it was: what is there is another's.
bool removedLeftOver( const sockaddr_un & address, socklen_t length ) {
   const Descriptor asked( ::socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 ) );
   struct stat file {};
   const bool left = address.sun_path[ 0 ] != 0 && lstat( address.sun_path, &file ) == 0 && S_ISSOCK( file.st_mode ) &&
                     connect( asked.fd(), reinterpret_cast< const sockaddr * >( &address ), length ) != 0 &&
                     errno == ECONNREFUSED && unlink( address.sun_path ) == 0;
   errno = EADDRINUSE;
   return left;
}

} // namespace

UnixDevice::UnixDevice( std::string path, unsigned workers ) :
     Device( workers ), path_( std::move( path ) ), leaving_( workers ) {
   for ( unsigned worker = 0; worker < workers; ++worker ) leaving_[ worker ].reserve( kBurst );
}

Outcome UnixDevice::make( const bess::pb::UnixSocketPortArg & arg, unsigned workers,
                          std::unique_ptr< Device > & device ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   const auto & path = arg.path();
   if ( path.empty() || path.size() >= sizeof address.sun_path )
      return refuse( EINVAL, "path \"{}\" is not of 1 to {} characters", path, sizeof address.sun_path - 1 );
   std::ranges::copy( path, address.sun_path );
   if ( path.front() == '@' ) address.sun_path[ 0 ] = 0;
   const auto length = socklen_t( offsetof( sockaddr_un, sun_path ) + path.size() );
   std::unique_ptr< UnixDevice > made( new UnixDevice( path, workers ) );
   made->listening_ = Descriptor( ::socket( AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 ) );
   const int fd = made->listening_.fd();
   const auto binds = [ & ] { return bind( fd, reinterpret_cast< sockaddr * >( &address ), length ) == 0; };
   made->bound_ = fd >= 0 && ( binds() || ( errno == EADDRINUSE && removedLeftOver( address, length ) && binds() ) );
   if ( !made->bound_ || listen( fd, 1 ) != 0 ) {
      const int error = errno;
      return refuse( error, "{}: {}", path, std::strerror( error ) );
   }
   device = std::move( made );
   return {};
}

UnixDevice::~UnixDevice() {
   if ( bound_ && path_.front() != '@' ) unlink( path_.c_str() );
}

void UnixDevice::welcome() {
   const int fd = accept4( listening_.fd(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC );
   if ( fd >= 0 ) client_ = Descriptor( fd );
}

bool UnixDevice::hasClient() const {
   const OneAtATime one( mutex_, shared() );
   return client_.fd() >= 0;
}

int UnixDevice::descriptor( unsigned ) const {
   const OneAtATime one( mutex_, shared() );
   return client_.fd() >= 0 ? client_.fd() : listening_.fd();
}

void UnixDevice::receive( unsigned, std::vector< Packet > & burst ) {
   const OneAtATime one( mutex_, shared() );
   welcome();
   std::array< std::uint8_t, kMostBytes > bytes;
   for ( std::size_t i = 0; i < kBurst && client_.fd() >= 0; ++i ) {
      const auto length = recv( client_.fd(), bytes.data(), bytes.size(), MSG_TRUNC );
      if ( length < 0 && ( errno == EAGAIN || errno == EINTR ) ) return;
      if ( length < 0 || ( length == 0 && hasGone( client_ ) ) ) {
         client_ = Descriptor();
         return;
      }
      if ( !up_ || length == 0 || std::size_t( length ) > bytes.size() ) {
         ++in_.dropped;
         continue;
      }
      ++in_.packets;
      in_.bytes += std::size_t( length );
      std::copy_n( bytes.data(), length, burst.emplace_back( std::size_t( length ) ).data() );
   }
}

void UnixDevice::send( Packet && packet, unsigned worker ) {
   auto & leaving = leaving_[ worker ];
   leaving.push_back( std::move( packet ) );
   if ( leaving.size() == kBurst ) flush( worker );
}

void UnixDevice::flush( unsigned worker ) {
   auto & leaving = leaving_[ worker ];
   if ( leaving.empty() ) return;
   const OneAtATime one( mutex_, shared() );
   if ( client_.fd() < 0 ) welcome();
   for ( const auto & packet : leaving ) sendOne( packet );
   leaving.clear();
}

void UnixDevice::sendOne( const Packet & packet ) {
   if ( !up_ || client_.fd() < 0 ||
        ::send( client_.fd(), packet.data(), packet.size(), MSG_NOSIGNAL ) != ssize_t( packet.size() ) ) {
      ++out_.dropped;
      return;
   }
   ++out_.packets;
   out_.bytes += packet.size();
}

Outcome UnixDevice::confIs( const bess::pb::PortConf & conf ) {
   if ( !conf.mac_addr().empty() ) return refuse( EOPNOTSUPP, "mac_addr: the port has none" );
   if ( conf.mtu() != 0 && ( conf.mtu() < kMinMtu || conf.mtu() > kMaxMtu ) )
      return refuse( ERANGE, "mtu {} is not from {} to {}", conf.mtu(), kMinMtu, kMaxMtu );
   if ( conf.mtu() != 0 ) mtu_ = conf.mtu();
   up_ = conf.admin_up();
   return {};
}

} // namespace Vexdp
