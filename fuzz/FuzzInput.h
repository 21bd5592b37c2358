// What the fuzzers have in common: inputs as files, and a router that is told of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace Fuzz {

// A regular file that has the bytes, without a disk.
class File {
 public:
   File( const std::uint8_t * data, std::size_t size ) : fd_( memfd_create( "fuzz", MFD_CLOEXEC ) ) {
      if ( write( fd_, data, size ) != static_cast< ssize_t >( size ) ) std::abort();
   }
   File( const File & ) = delete;
   File & operator=( const File & ) = delete;
   ~File() { close( fd_ ); }
   std::string path() const { return "/proc/self/fd/" + std::to_string( fd_ ); }

 private:
   const int fd_;
};

// What an input says of interfaces, neighbours and lists is about these.
inline constexpr const char * twoPorts = R"(vrfs: [red]
interfaces:
  - {name: Ethernet1, addresses: 10.0.1.1/24}
  - {name: Ethernet2, addresses: 10.0.2.1/24, vrf: red}
tunnels: [{name: Tunnel1, mode: ipsec, source: 10.0.1.1, destination: 10.0.1.9}]
neighbors: [{interface: Ethernet1, address: 10.0.1.2, mac: '02:00:00:00:01:02'}]
access-lists: [{name: web, rules: [permit tcp any any eq www]}]
)";

} // namespace Fuzz

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size );
