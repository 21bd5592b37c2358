// Work of a state machine for a later turn of the loop. Posted again while it waits, it runs once; it does not run once
// its owner is gone. Not for public headers.
#pragma once

#include <functional>

namespace Hul {

class Posted {
 public:
   explicit Posted( std::function< void() > work ) : turn_( new Turn{ std::move( work ) } ) {}
   Posted( const Posted & ) = delete;
   Posted & operator=( const Posted & ) = delete;
   ~Posted();

   void post();

 private:
   // Outlives its Posted while the loop still has it, or runs it.
   struct Turn {
      std::function< void() > work;
      bool posted = false;
      bool running = false;
      bool orphan = false;
   };
   static void run( Turn * turn );

   Turn * turn_;
};

} // namespace Hul
