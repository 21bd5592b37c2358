// Where the graph meets the outside: one wire for each interface, by its name. The modules of the interface hold it,
// and so do the ports, whichever come first; neither knows the other.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace Vexdp {

class Module;
class Packet;

// Takes packets out of the graph.
class Outlet {
 public:
   virtual ~Outlet() = default;
   // On the thread of the worker of that number.
   virtual void send( Packet && packet, unsigned worker ) = 0;
};

// Two graphs may be there at a time: the one that forwards, and one that is to follow it.
using Side = std::uint8_t;
inline constexpr Side kSides = 2;

struct Wire {
   Outlet * device = nullptr; // the interface's device
   Outlet * kernel = nullptr; // its device in the host's kernel
   struct Ends {
      Module * source = nullptr;    // packets from the device begin here
      Module * ownSource = nullptr; // bare packets that the kernel sends begin here
   };
   std::array< Ends, kSides > ends{}; // in the graph of each side
};

class Wires {
 public:
   // The wire of the interface, until the last holder lets it go.
   std::shared_ptr< Wire > of( std::string_view intfname );

 private:
   std::map< std::string, std::weak_ptr< Wire >, std::less<> > wires_;
};

} // namespace Vexdp
