// Who tells the router what it is.
#pragma once

#include "GantEnum.h"

namespace Host {

// The number is also the protocol mark of the FIB, and of offers that are equal otherwise the lowest one holds.
GANT_ENUM( Teller, U8, ( none, 0 ), // nobody: there is none
           ( connected, 1 ),        // follows from an interface's address
           ( command, 2 ),          // told through the command socket
           ( description, 3 ),      // the router description
           ( routeFile, 4 ),        // the plain route file
           ( neighbor, 5 ),         // the host route of a resolved neighbour
           ( kernel, 6 ),           // the kernel beside the router: neighbours and routes
           ( fpm, 7 ) )             // a routing suite, by the forwarding-plane manager's protocol

constexpr size_t tellers = 8;

// In words: "the description".
const char * textOfTeller( Teller teller );
// As `show sources` and `vexctl source` name it: "route-file".
const char * nameOfTeller( Teller teller );

} // namespace Host
