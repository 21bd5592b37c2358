// The description in small, with what it means for a packet, written from the docs alone: nothing here knows of FECs,
// adjacencies or modules.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace Test {

inline constexpr int vrfs = 3, ethernets = 5, tunnels = 2, lists = 4;

struct ModelRule {
   bool permit = true;
   unsigned proto = 0; // 0: any
   uint32_t dst = 0;
   unsigned len = 0;
   unsigned dport = 0; // 0: any
   int dscp = -1;      // any
};
using ModelList = std::vector< ModelRule >;

struct ModelIntf {
   int vrf = 0;
   int net = 0; // an Ethernet interface has 10.0.NET.1/24; TunnelN has 10.255.N.1/30
   bool enabled = true;
   int in = -1, out = -1; // lists
   bool policy = false;
   int underlay = 0; // VRF of a tunnel's own packets
   friend bool operator==( const ModelIntf &, const ModelIntf & ) = default;
};

// Of `tunnel` 0 one with an address, and where `ethernet` is not 0 by that interface alone.
struct ModelHop {
   int tunnel = 0, ethernet = 0;
   uint32_t addr = 0;
};
struct ModelRoute {
   enum class Kind { via, blackhole, receive } kind = Kind::via;
   std::vector< ModelHop > hops{};
   int receiver = 1;
};
struct ModelPrefix {
   int vrf;
   uint32_t addr;
   unsigned len;
   friend auto operator<=>( const ModelPrefix &, const ModelPrefix & ) = default;
};

struct ModelPacket {
   uint32_t src, dst;
   unsigned proto, dport, dscp = 0;
};

// Where a packet ends.
struct ModelEnd {
   enum class Kind { dropped, local, sent } kind = Kind::dropped;
   int ethernet = 0;  // of a sent one
   uint32_t addr = 0; // the neighbour that it was sent to
   friend auto operator<=>( const ModelEnd &, const ModelEnd & ) = default;
};
using ModelEnds = std::set< ModelEnd >; // one for each way of the flow's choice

// A change, or an entry: its kind, and its text. Of an empty text nothing is told.
struct ModelEntry {
   bool del = false;
   std::string kind, text;
};

class RouterModel {
 public:
   explicit RouterModel( std::minstd_rand & random );

   // Everything, each behind what it leans on.
   std::vector< ModelEntry > description() const;
   // Changes it at random, and gives what tells the change.
   ModelEntry change( std::minstd_rand & random );
   // A packet that is likely to meet something, and the Ethernet interface by which it comes in; 0: there is none.
   std::pair< int, ModelPacket > packet( std::minstd_rand & random ) const;
   ModelEnds ends( int ethernet, ModelPacket packet ) const;

 private:
   using Intfs = std::map< int, ModelIntf >; // by number, those that are there
   struct Neighbor {
      int ethernet;
      uint32_t addr;
      friend auto operator<=>( const Neighbor &, const Neighbor & ) = default;
   };

   ModelEntry entry( bool tunnel, int number ) const;
   ModelEntry listEntry( int number ) const;
   ModelEntry routeEntry( const ModelPrefix & prefix, const ModelRoute & route ) const;
   ModelEntry randomEthernet( std::minstd_rand & random, int number );
   ModelEntry randomTunnel( std::minstd_rand & random, int number );
   ModelEntry randomNeighbor( std::minstd_rand & random );
   ModelEntry randomRoute( std::minstd_rand & random );
   ModelEntry randomList( std::minstd_rand & random, int number );

   bool permitted( int list, const ModelPacket & packet ) const;
   bool onSubnet( int ethernet, uint32_t addr ) const;
   // The longest route of the destination, with those that follow from addresses and neighbours.
   ModelEnds routed( int vrf, const ModelPacket & packet ) const;
   ModelEnds forwarded( int vrf, const ModelRoute & route, const ModelPacket & packet ) const;
   ModelEnds tunnelled( int tunnel, const ModelPacket & packet ) const;
   ModelEnd toNeighbor( int ethernet, uint32_t addr, const ModelPacket & packet ) const;
   ModelEnd toRouter( int ethernet, const ModelPacket & packet ) const;
   // The interface of the VRF by which the hop goes; 0: none reaches it.
   int reachedBy( int vrf, const ModelHop & hop ) const;
   std::vector< ModelHop > inUse( int vrf, const ModelRoute & route ) const;
   const ModelRoute * longest( int vrf, uint32_t dst, unsigned over ) const;

   Intfs ethernets_, tunnels_;
   std::set< Neighbor > neighbors_;
   std::map< ModelPrefix, ModelRoute > routes_;
   std::array< ModelList, lists > lists_; // the last one is what the policy's class matches
};

std::string text( const ModelEnd & end );
std::string text( const ModelPacket & packet );
std::string addressText( uint32_t addr );
std::string macText( uint32_t addr ); // of the neighbour that has the address

} // namespace Test
