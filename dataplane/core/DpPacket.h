// A packet: its bytes, with room before them for headers, and what the modules on its way found out about it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Vexdp {

class Packet {
 public:
   // Room for an Ethernet header over several tunnel headers.
   static constexpr std::size_t kHeadroom = 192;

   struct Meta {
      std::uint64_t ingressIntf = 0;
      std::uint32_t vrf = 0;
      std::uint8_t trafficClass = 0;
      std::uint32_t nhIndex = 0; // in the next-hop or resolve module ahead
      bool ethernet = false;     // the bytes begin with an Ethernet header, otherwise with an IP header
      bool own = false;          // sent by the router itself
      bool ttlDone = false;      // this router has taken its hop from the TTL
   };

   // `size` zero bytes.
   explicit Packet( std::size_t size ) : bytes_( kHeadroom + size ), at_( kHeadroom ) {}

   std::uint8_t * data() { return bytes_.data() + at_; }
   const std::uint8_t * data() const { return bytes_.data() + at_; }
   std::size_t size() const { return bytes_.size() - at_; }
   std::span< const std::uint8_t > span() const { return { data(), size() }; }

   // Opens `n` zero bytes before the first. Null, and no change, when the headroom doesn't hold them.
   std::uint8_t * prepend( std::size_t n );
   // Cuts `n` bytes off the front. REQUIRES: n <= size()
   void pull( std::size_t n );
   // Cuts the end off. REQUIRES: size <= size()
   void trim( std::size_t size );

   Meta meta;

 private:
   std::vector< std::uint8_t > bytes_;
   std::size_t at_;
};

} // namespace Vexdp
