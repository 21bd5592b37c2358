// A packet: its bytes, with room before them for headers, and what the modules on its way found out about it. The bytes
// are the packet's own, or lent by a device whose buffer they lie in.
#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

namespace Vexdp {

struct Wire;

class Packet {
 public:
   // Room for an Ethernet header over several tunnel headers. A buffer of a device may have less.
   static constexpr std::size_t kHeadroom = 192;
   // Room for what ESP puts behind a packet.
   static constexpr std::size_t kTailroom = 64;

   struct Meta {
      std::uint64_t ingressIntf = 0;
      const Wire * ingress = nullptr; // of that interface
      std::uint32_t vrf = 0;
      std::uint8_t trafficClass = 0;
      std::uint32_t nhIndex = 0;   // in the next-hop or resolve module ahead
      std::uint32_t encapId = 0;   // of the IPsec connection that it came in by; 0: none
      std::uint16_t etherType = 0; // of the frame that it came in by, 0: none
      bool ethernet = false;       // the bytes begin with an Ethernet header, otherwise with an IP header
      bool linkGroup = false;      // came in by a link-layer broadcast or multicast
      bool own = false;            // sent by the router itself
      bool forKernel = false;      // no tunnel's, though it looked like it
      bool ttlDone = false;        // this router has taken its hop from the TTL
   };

   // The bytes from `begin` to `end`, and who gets them back.
   struct Buffer {
      std::uint8_t * begin = nullptr;
      std::uint8_t * end = nullptr;
      void * owner = nullptr;
      void ( *giveBack )( void * owner ) = nullptr;
   };

   // `size` zero bytes of its own.
   explicit Packet( std::size_t size );
   // `size` bytes at `data`, which lie in the buffer.
   Packet( const Buffer & buffer, std::uint8_t * data, std::size_t size ) :
        buffer_( buffer ), data_( data ), size_( size ) {}
   // A copy has a buffer of its own.
   Packet( const Packet & other );
   Packet( Packet && other ) noexcept :
        meta( other.meta ), buffer_( other.letGo() ), data_( std::exchange( other.data_, nullptr ) ),
        size_( std::exchange( other.size_, 0 ) ), cameIn_( std::exchange( other.cameIn_, nullptr ) ),
        cameInFramed_( other.cameInFramed_ ) {}
   Packet & operator=( Packet other ) noexcept {
      swap( other );
      return *this;
   }
   ~Packet() {
      if ( buffer_.owner != nullptr ) buffer_.giveBack( buffer_.owner );
   }

   std::uint8_t * data() { return data_; }
   const std::uint8_t * data() const { return data_; }
   std::size_t size() const { return size_; }
   std::span< const std::uint8_t > span() const { return { data(), size() }; }

   // Opens `n` zero bytes before the first. Null, and no change, when the headroom doesn't hold them.
   std::uint8_t * prepend( std::size_t n ) {
      auto * const front = open( n );
      if ( front != nullptr ) std::memset( front, 0, n );
      return front;
   }
   // The same, and they hold whatever they held.
   std::uint8_t * open( std::size_t n ) {
      if ( n > std::size_t( data_ - buffer_.begin ) ) return nullptr;
      if ( data_ > cameIn_ ) cameIn_ = nullptr;
      data_ -= n;
      size_ += n;
      return data_;
   }
   // Opens `n` bytes behind the last, whatever they hold. False, and no change, when the tailroom doesn't hold them.
   bool append( std::size_t n );
   // Cuts `n` bytes off the front. REQUIRES: n <= size()
   void pull( std::size_t n ) {
      assert( n <= size_ );
      data_ += n;
      size_ -= n;
   }
   // Cuts the end off. REQUIRES: size <= size()
   void trim( std::size_t size ) {
      assert( size <= size_ );
      size_ = size;
   }

   // It begins here, for whoever wants it as it came in.
   void cameIn() {
      cameIn_ = data_;
      cameInFramed_ = meta.ethernet;
   }
   // Gives back what was pulled off its front since it came in. False, and no change, when that was written over.
   bool rewind();

   // `size` zero bytes of its own, behind what was pulled off this one's front since it came in.
   Packet withFront( std::size_t size ) const;

   const Buffer & buffer() const { return buffer_; }
   // The caller has the buffer, and the packet is gone.
   Buffer letGo() { return std::exchange( buffer_, {} ); }

   Meta meta;

 private:
   void swap( Packet & other ) noexcept;

   Buffer buffer_;
   std::uint8_t * data_ = nullptr;
   std::size_t size_ = 0;
   std::uint8_t * cameIn_ = nullptr;
   bool cameInFramed_ = false;
};

} // namespace Vexdp
