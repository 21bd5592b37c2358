// The forwarding-plane manager's protocol: netlink messages in frames on a stream.
#pragma once

#include "GantTypes.h"

#include <functional>
#include <string>
#include <vector>

struct nlmsghdr;

namespace Host {

// A frame is 4 bytes: version 1, type 1 (netlink), and the length in 16 bits, big endian, with these 4; behind them
// netlink messages, each aligned to 4 bytes. What comes may begin and end anywhere.
class FpmStream {
 public:
   // The messages of a frame, of which each is whole. Gives what is wrong with one, empty: nothing is.
   using Messages = std::vector< const nlmsghdr * >;
   using Each = std::function< std::string( const Messages & ) >;

   explicit FpmStream( Each each ) : each_( std::move( each ) ) {}

   // Where to put up to `size` bytes that come next; they count once they are told to take().
   char * room( size_t size );
   // Gives what is wrong with them; empty: nothing is. After that the stream is of no use.
   std::string take( size_t size );
   // Bytes of a frame that is not whole yet.
   size_t rest() const { return end_ - begin_; }

 private:
   std::string frame( const char * bytes, size_t size );

   const Each each_;
   std::vector< char > buffer_;
   size_t begin_ = 0, end_ = 0;
   std::vector< U32 > aligned_; // a frame that lies across words
   Messages messages_;
};

} // namespace Host
