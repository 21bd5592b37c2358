// DPDK's AF_PACKET driver has each socket join a fanout group in which the kernel puts fragments together (packet(7),
// PACKET_FANOUT_FLAG_DEFRAG): a router would get packets that nobody sent, and none where they are longer than the
// driver's buffers. It also has a socket whose ring is full pass packets on to another one, where they overtake those
// of their flow. The driver has no word to leave that out. Its call comes here, for the program's own symbol is found
// before the C library's.

#include "DpPacketSocket.h"

#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <utility>

namespace Vexdp {

namespace {
thread_local std::vector< int > fanoutSockets;

void joinedFanout( int fd ) { fanoutSockets.push_back( fd ); }

} // namespace

std::vector< int > takeFanoutSockets() { return std::exchange( fanoutSockets, {} ); }

} // namespace Vexdp

extern "C" __attribute__( ( visibility( "default" ) ) ) int setsockopt( int fd, int level, int option,
                                                                        const void * value,
                                                                        socklen_t length ) noexcept {
   int fanout = 0;
   if ( level == SOL_PACKET && option == PACKET_FANOUT && length == sizeof fanout ) {
      std::memcpy( &fanout, value, sizeof fanout );
      fanout &= ~( ( PACKET_FANOUT_FLAG_DEFRAG | PACKET_FANOUT_FLAG_ROLLOVER ) << 16 );
      value = &fanout;
      Vexdp::joinedFanout( fd );
   }
   return int( syscall( SYS_setsockopt, fd, level, option, value, length ) );
}
