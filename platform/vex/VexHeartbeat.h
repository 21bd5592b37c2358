// Signs of life over a session's own connection. For the channel's sources only.
#pragma once

#include "VexTransport.h"

#include <functional>

namespace Vex {

// Asks for the data plane's version, which it tells beside its work, whatever that is. One question at a time.
class Heartbeat {
 public:
   // On the loop: an answer came. `vouches`: from the data plane, and not from what is in front of it only.
   using Answered = std::function< void( bool vouches ) >;

   Heartbeat( std::shared_ptr< grpc::Channel > channel, Answered answered );
   // Nothing is called any more.
   ~Heartbeat();
   Heartbeat( const Heartbeat & ) = delete;
   Heartbeat & operator=( const Heartbeat & ) = delete;

   // Nothing, while a question is on its way.
   void ask();

 private:
   struct State;
   const std::shared_ptr< State > state_;
};

} // namespace Vex
