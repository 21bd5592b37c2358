// What Prometheus sees of the daemon.
#include "DaemonProcess.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <thread>

namespace {

using namespace Test;

// Port 0: one that is free.
int openSocket( sockaddr_in & address ) {
   address.sin_family = AF_INET;
   address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
   return socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
}

std::uint16_t freePort() {
   sockaddr_in address{};
   socklen_t size = sizeof( address );
   const int fd = openSocket( address );
   bind( fd, reinterpret_cast< sockaddr * >( &address ), size );
   getsockname( fd, reinterpret_cast< sockaddr * >( &address ), &size );
   close( fd );
   return ntohs( address.sin_port );
}

std::string scraped( std::uint16_t port ) {
   sockaddr_in address{};
   const int fd = openSocket( address );
   address.sin_port = htons( port );
   std::string text = "GET /metrics HTTP/1.0\r\n\r\n", got;
   if ( connect( fd, reinterpret_cast< sockaddr * >( &address ), sizeof( address ) ) == 0 &&
        send( fd, text.data(), text.size(), MSG_NOSIGNAL ) > 0 )
      while ( Process::readInto( fd, got ) ) {
      }
   close( fd );
   return got;
}

TEST_F( Vexl3d, servesMetricsOfItsSessionAndSaysWhenItCannot ) {
   const auto port = freePort();
   const Words metrics{ "--metrics", "127.0.0.1:" + std::to_string( port ) };
   Process daemon( VEXL3D_PROGRAM, arguments( metrics ), runtime() );
   ASSERT_TRUE( daemon.says( fed ) );
   const char * const settled = "vexl3_routes{vrf=\"default\",family=\"ipv4\",state=\"programmed\"} 7\n";
   std::string text;
   for ( const auto end = std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
         text.find( settled ) == text.npos && std::chrono::steady_clock::now() < end; text = scraped( port ) )
      std::this_thread::yield();
   for ( const char * line : { settled, "vexl3_routes{vrf=\"default\",family=\"ipv6\",state=\"programmed\"} 0\n",
                               "vexl3_source_routes{source=\"description\"} 1\n", "vexl3_session_up 1\n",
                               "vexl3_phase{phase=\"running\"} 1\n", "vexl3_queue_depth{stage=\"waiting\"} 0\n",
                               "# TYPE vexl3_queue_bytes gauge\n", "vexl3_convergence_seconds_bucket{le=\"+Inf\"} ",
                               "# TYPE vexl3_loop_turn_seconds histogram\n" } )
      EXPECT_NE( text.find( line ), text.npos ) << line << text;
   Process other( VEXL3D_PROGRAM, { "--socket", path( "other.sock" ), metrics[ 0 ], metrics[ 1 ] }, runtime() );
   EXPECT_NE( other.all().find( metrics[ 0 ] + " " + metrics[ 1 ] + ": cannot be listened at" ), std::string::npos );
   EXPECT_EQ( other.wait(), 1 );
}

} // namespace
