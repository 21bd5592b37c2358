// The interfaces that the router is told, their subnets and neighbours, and the routes that follow from them.
#pragma once

#include "HostRouteBook.h"
#include "HostStateTree.h"
#include "HostSubnets.h"
#include "HostVrfBook.h"

namespace Host {

// Keeps the order that the layers above the state rely on. An interface comes up so: its port, what is special about
// its kind, its IP facts, the interface itself, its routes, its neighbours' routes; it goes the other way round, after
// the FECs have left it.
//
// From an address follow a route of its subnet to whoever on the interface has the destination (`attached`), one of
// the address itself to the router (`receive`), and, in subnets of up to 30 bits, one of the broadcast address
// (`broadcast`). A tunnel's subnet is forwarded into it. From a neighbour on a subnet follows a host route. An
// interface that is not up has none of them, and next hops over it are left out of their routes while others remain.
//
// A loopback interface has a port like an Ethernet interface, with nobody at its other end: its addresses are received
// through it.
// Its filters are there before it comes up, and until it is gone.
class IntfBook {
 public:
   using Intfs = std::map< Kynet::IntfId, Told< IntfFact > >;
   using NeighborKey = std::pair< Kynet::IntfId, Kynet::IpGenAddr >;
   using Neighbors = std::map< NeighborKey, Told< NeighborFact > >;

   IntfBook( StateTree & tree, const VrfBook & vrfs );

   ChangeResult intfIs( const IntfFact & fact, Teller teller );
   // What the kernel says of an interface takes the place of what its fact leaves open, until the interface goes.
   // Addresses that it cannot have are left out; of anything else that it cannot have all is refused, and what the
   // kernel said before holds. Gives the first that was not taken. Of an interface that has gone nothing is taken.
   ChangeResult kernelFactsAre( Kynet::IntfId intfId, const KernelFacts & facts );
   // Whether the link of its port is up: at first it is, and again when it gets another port. An interface that is not
   // there has none.
   void linkIs( Kynet::IntfId intfId, bool up );
   // It is enabled, and its link is not down.
   bool up( const IntfFact & fact ) const { return fact.enabled && !down( fact ); }
   // Its port's link is.
   bool down( const IntfFact & fact ) const {
      return fact.port.kind != PortKind::none_ && down_.contains( fact.intfId );
   }
   // Its neighbours go with it.
   ChangeResult intfDel( Kynet::IntfId intfId );
   ChangeResult neighborIs( const NeighborFact & fact, Teller teller );
   ChangeResult neighborDel( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr );
   // The MAC of the router as a whole, which is that of its bridge, and of every interface without one of its own;
   // zero: none. Another one comes only where there is none: the layers above end the process over one that moves.
   ChangeResult routerMacIs( const Kynet::EthAddr & mac, Teller teller );
   // Whether interfaces have devices in the kernel that do not say so themselves; at first they may.
   void kernelIs( bool wanted, Teller teller );
   // What is told of VRFs may have changed.
   void devicesAre();
   // The IPsec connection of a tunnel, by its id; 0: none. A tunnel that is there is rebuilt.
   // The tunnel's connection, 0 for none, and the bytes of the largest packet that it protects into an underlay of
   // `underlayMtu`.
   void ipsecIs( Kynet::IntfId intfId, U32 encapId, U32 packetMost = underlayMtu );
   // What was told; otherwise 1500, and of a tunnel what its outer headers leave of an underlay of as much.
   U32 mtu( const IntfFact & fact ) const;
   static constexpr U32 underlayMtu = 1500;

   const Intfs & intfs() const { return intfs_; }
   const Neighbors & neighbors() const { return neighbors_; }
   const Kynet::EthAddr & routerMac() const { return routerMac_; }
   Teller routerMacTeller() const { return routerMacTeller_; } // `none` when there is no MAC
   bool kernel() const { return kernel_; }
   Teller kernelTeller() const { return kernelTeller_; } // `none` when there may be devices
   Origins & origins() { return origins_; }
   RouteBook< Kynet::Prefix > & routes4() { return routes4_; }
   const RouteBook< Kynet::Prefix > & routes4() const { return routes4_; }
   RouteBook< Kynet::Ip6Prefix > & routes6() { return routes6_; }
   const RouteBook< Kynet::Ip6Prefix > & routes6() const { return routes6_; }

   // Why the hop can never be one of a route of the family; empty when it can.
   Gant::String wrongHop( Kynet::AddressFamily af, const Hop & hop ) const;
   // Why no packet of the VRF can go by the hop as things are; empty when it can, if need be through an interface that
   // is not up. REQUIRES: the hop is not wrong.
   Gant::String unreachable( U32 vrfId, const Hop & hop ) const;
   // By which it is reached, if need be though that is not up; none.
   Kynet::IntfId intfOf( U32 vrfId, const Hop & hop ) const;

 private:
   using Derived = std::map< Kynet::Prefix, Mirel::RouteType >;

   static IntfFact withKernelFacts( IntfFact fact, const KernelFacts & kernel );
   ChangeResult possible( const IntfFact & fact ) const;
   ChangeResult factIs( const IntfFact & fact, Teller teller );
   Gant::String wrong( const IntfFact & fact ) const;
   Gant::String wrongPort( const IntfFact & fact ) const;
   void bringUp( const IntfFact & fact );
   void takeDown( const IntfFact & fact );
   void writeEntities( const IntfFact & fact );
   void addressesAre( Kynet::IntfId intfId, const std::vector< Kynet::Prefix > & addresses );
   void writeFilters( const IntfFact & fact );
   void subnetsAre( const IntfFact & fact, bool present );
   void withdrawDerived( const IntfFact & fact );
   void announceDerived( const IntfFact & fact );
   void neighborRouteIs( const IntfFact & fact, const NeighborFact & neighbor );
   void neighborRoutesAre( const IntfFact & fact );
   Port port( const IntfFact & fact ) const;
   Device device( const IntfFact & fact ) const;
   bool onSubnet( const IntfFact & fact, Kynet::IpAddr addr ) const;
   U32 vrfId( const IntfFact & fact ) const { return vrfs_.id( fact.vrf ).value_or( 0 ); }
   std::optional< Way > resolve( U32 vrfId, Mirel::RouteType kind, const Hop & hop ) const;
   void reviewFecs( Kynet::IntfId intfId );

   StateTree & tree_;
   const VrfBook & vrfs_;
   Intfs intfs_;                              // with what the kernel says
   std::map< Kynet::IntfId, IntfFact > said_; // without it
   std::map< Kynet::IntfId, KernelFacts > kernelFacts_;
   std::set< Kynet::IntfId > down_; // by their links
   Neighbors neighbors_;
   Subnets subnets_;
   Kynet::EthAddr routerMac_;
   Teller routerMacTeller_;
   bool kernel_ = true;
   Teller kernelTeller_;
   struct Ipsec {
      U32 encapId = 0;
      U32 packetMost = underlayMtu;
      friend bool operator==( const Ipsec &, const Ipsec & ) = default;
   };
   std::map< Kynet::IntfId, Ipsec > ipsec_;
   std::map< Kynet::IntfId, Derived > derived_; // routes in the books, by interface, with the VRF of its fact
   Origins origins_;
   RouteBook< Kynet::Prefix > routes4_;
   RouteBook< Kynet::Ip6Prefix > routes6_;
};

} // namespace Host
