// Where the graph meets the outside: one wire for each interface, by its name. The modules of the interface hold it,
// and so do the ports, whichever come first; neither knows the other.
#pragma once

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
   // On the worker's thread.
   virtual void send( Packet && packet ) = 0;
};

struct Wire {
   Outlet * device = nullptr;    // the interface's device
   Outlet * kernel = nullptr;    // its device in the host's kernel
   Module * source = nullptr;    // packets from the device begin here
   Module * ownSource = nullptr; // bare packets that the kernel sends begin here
};

class Wires {
 public:
   // The wire of the interface, until the last holder lets it go.
   std::shared_ptr< Wire > of( std::string_view intfname );

 private:
   std::map< std::string, std::weak_ptr< Wire >, std::less<> > wires_;
};

} // namespace Vexdp
