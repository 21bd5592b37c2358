// DPDK's AF_PACKET driver has each socket join a fanout group in which the kernel puts fragments together (packet(7),
// PACKET_FANOUT_FLAG_DEFRAG): a router would get packets that nobody sent, and none where they are longer than the
// driver's buffers. The driver has no word to leave that out. Its call comes here, for the program's own symbol is
// found before the C library's.

#include <linux/if_packet.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

extern "C" __attribute__( ( visibility( "default" ) ) ) int setsockopt( int fd, int level, int option,
                                                                        const void * value,
                                                                        socklen_t length ) noexcept {
   int fanout = 0;
   if ( level == SOL_PACKET && option == PACKET_FANOUT && length == sizeof fanout ) {
      std::memcpy( &fanout, value, sizeof fanout );
      fanout &= ~( PACKET_FANOUT_FLAG_DEFRAG << 16 );
      value = &fanout;
   }
   return int( syscall( SYS_setsockopt, fd, level, option, value, length ) );
}
