#include "CtlClient.h"

#include "RuntimeDirectory.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Ctl {

ExitCode Error::exitCode() const {
   if ( code == "usage" ) return ExitCode::usage;
   if ( code == "notFound" ) return ExitCode::notFound;
   if ( code == "noDaemon" ) return ExitCode::noDaemon;
   return ExitCode::refused;
}

namespace {

class Connection {
 public:
   explicit Connection( const Server & server ) : socket_{ socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 ) } {
      const auto & path = server.socket;
      sockaddr_un address{};
      address.sun_family = AF_UNIX;
      if ( path.size() >= sizeof( address.sun_path ) ) throw Error{ "noDaemon", path + ": the path is too long" };
      std::memcpy( address.sun_path, path.data(), path.size() );
      if ( connect( socket_.fd, reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ) != 0 )
         throw Error{ "noDaemon", "no daemon at " + path + ": " + std::strerror( errno ) };
      check( server );
   }
   Connection( const Connection & ) = delete;
   Connection & operator=( const Connection & ) = delete;

   void send( std::string_view text ) const {
      while ( !text.empty() ) {
         const auto sent = ::send( socket_.fd, text.data(), text.size(), MSG_NOSIGNAL );
         if ( sent < 0 && errno == EINTR ) continue;
         if ( sent < 0 ) throw Error{ "noDaemon", std::string( "the daemon is gone: " ) + std::strerror( errno ) };
         text.remove_prefix( static_cast< size_t >( sent ) );
      }
   }
   // Changes and keys go to nobody else's server.
   void check( const Server & server ) const {
      ucred peer{};
      socklen_t size = sizeof( peer );
      if ( getsockopt( socket_.fd, SOL_SOCKET, SO_PEERCRED, &peer, &size ) != 0 )
         throw Error{ "noDaemon", server.socket + ": " + std::strerror( errno ) };
      if ( peer.uid == 0 || peer.uid == geteuid() || peer.uid == server.user || peer.uid == Runtime::serviceUser() )
         return;
      throw Error{ "noDaemon", server.socket + ": what listens there runs as user " + std::to_string( peer.uid ) +
                                    " (--daemon-user " + std::to_string( peer.uid ) + " if that is right)" };
   }
   // Nothing at the end of the connection.
   std::optional< std::string > line() {
      for ( size_t searched = begin_;; ) {
         if ( const auto end = input_.find( '\n', searched ); end != std::string::npos ) {
            auto line = input_.substr( begin_, end - begin_ );
            begin_ = end + 1;
            return line;
         }
         input_.erase( 0, begin_ );
         begin_ = 0;
         searched = input_.size();
         char buffer[ 65536 ];
         const auto got = recv( socket_.fd, buffer, sizeof( buffer ), 0 );
         if ( got < 0 && errno == EINTR ) continue;
         if ( got <= 0 ) return std::nullopt;
         input_.append( buffer, static_cast< size_t >( got ) );
      }
   }

 private:
   // Closed also when the connection is refused half made.
   struct Socket {
      int fd;
      ~Socket() { close( fd ); }
   };
   const Socket socket_;
   std::string input_;
   size_t begin_ = 0;
};

Error errorOf( const Json & error ) {
   return { error.value( "code", "refused" ), error.value( "message", "the daemon gives no reason" ) };
}

// True: the answer is over.
bool take( const Json & line, Answer & answer ) {
   if ( const auto row = line.find( "row" ); row != line.end() ) {
      answer.row( *row );
      return false;
   }
   if ( const auto error = line.find( "error" ); error != line.end() ) throw errorOf( *error );
   const auto end = line.find( "end" );
   if ( end == line.end() ) return false;
   if ( const auto error = end->find( "error" ); error != end->end() ) throw errorOf( *error );
   answer.end( *end );
   return true;
}

void converse( const Server & server, const Json & request, Answer & answer ) {
   Connection connection( server );
   connection.send( request.dump( -1, ' ', false, Json::error_handler_t::replace ) + "\n" );
   while ( const auto line = connection.line() ) {
      const auto json = Json::parse( *line, nullptr, false );
      if ( !json.is_object() ) throw Error{ "noDaemon", "what answers at " + server.socket + " is no vexl3d" };
      if ( take( json, answer ) ) return;
   }
   throw Error{ "noDaemon", "the daemon is gone: its answer broke off" };
}

} // namespace

void ask( const Server & server, const Json & request, Answer & answer ) {
   try {
      converse( server, request, answer );
   } catch ( const Error & error ) {
      answer.failed( error );
   }
}

} // namespace Ctl
