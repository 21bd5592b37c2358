// Netlink messages that wait, in their order.
#pragma once

#include "GantTypes.h"

#include <deque>
#include <vector>

struct nlmsghdr;

namespace Host {

// A message costs its own bytes, and room is given up as it gets empty.
class MessageQueue {
 public:
   // A copy of it.
   void push( const nlmsghdr & message );
   // REQUIRES: size() != 0. It stays where it is until it is popped.
   const nlmsghdr & front() const;
   void pop();
   void clear();
   size_t size() const { return size_; }

 private:
   std::deque< std::vector< char > > chunks_;
   size_t at_ = 0; // in the first chunk
   size_t size_ = 0;
};

} // namespace Host
