// Everything that the router is told: the facts with their sources, and the state tree that they become.
//
// Facts and entities are two things, because a fact is what one teller says of one object and is taken or refused as a
// whole, and the entities of the tree are what the layer watches, piece by piece. A book for each kind of object turns
// the one into the other, and is the only writer of its entities.
#pragma once

#include "HostAclBook.h"
#include "HostIpsecBook.h"
#include "HostNatBook.h"
#include "HostSourceTable.h"
#include "HostVirtualMacBook.h"
#include "HostVlanBook.h"

#include <optional>

namespace Host {

// The operations check before they change anything: a refusal names its object and leaves everything as it was. They
// are called in turns of the loop, never from a reaction to the state tree.
class RouterState {
 public:
   RouterState();

   // The entities and mounts. Only this class, its books and the layers below write to them.
   StateTree & tree() { return tree_; }
   const StateTree & tree() const { return tree_; }
   const VrfBook & vrfBook() const { return vrfs_; }
   const IntfBook & intfBook() const { return intfs_; }
   const IpsecBook & ipsecBook() const { return ipsec_; }
   // Lists, class maps and policy maps are told to the book itself.
   AclBook & aclBook() { return acl_; }
   const AclBook & aclBook() const { return acl_; }
   const VlanBook & vlanBook() const { return vlans_; }
   const VirtualMacBook & virtualMacBook() const { return virtualMacs_; }
   const NatBook & natBook() const { return nat_; }
   // The sources of routes, with the sweeping of what they tell no more.
   SourceTable & sources() { return sources_; }
   const SourceTable & sources() const { return sources_; }
   Origins & origins() { return intfs_.origins(); }

   // Each makes the object, or changes it to what is told.
   ChangeResult vrfIs( const VrfFact & fact, Teller teller );
   ChangeResult intfIs( const IntfFact & fact, Teller teller );
   // As IntfBook has it.
   ChangeResult kernelFactsAre( Kynet::IntfId intfId, const KernelFacts & facts ) {
      return intfs_.kernelFactsAre( intfId, facts );
   }
   // As IntfBook has it.
   void linkIs( Kynet::IntfId intfId, bool up ) { intfs_.linkIs( intfId, up ); }
   ChangeResult neighborIs( const NeighborFact & fact, Teller teller ) { return intfs_.neighborIs( fact, teller ); }
   ChangeResult routeIs( const RouteFact & fact, Teller teller );
   // Why no IPsec connection is taken; empty: they are.
   void keysRefusedIs( const std::string & why ) { ipsec_.keysRefusedIs( why ); }
   ChangeResult ipsecIs( const IpsecFact & fact, Teller teller ) { return ipsec_.connectionIs( fact, teller ); }
   ChangeResult routerMacIs( const Kynet::EthAddr & mac, Teller teller ) { return intfs_.routerMacIs( mac, teller ); }
   void kernelIs( bool wanted, Teller teller ) { intfs_.kernelIs( wanted, teller ); }
   ChangeResult vlanIs( const VlanFact & fact, Teller teller ) { return vlans_.vlanIs( fact, teller ); }
   ChangeResult virtualMacIs( const VirtualMacFact & fact, Teller teller ) {
      return virtualMacs_.virtualMacIs( fact, teller );
   }
   ChangeResult natStaticIs( const NatStaticFact & fact, Teller teller ) { return nat_.staticIs( fact, teller ); }
   ChangeResult natDynamicIs( const NatDynamicFact & fact, Teller teller ) { return nat_.dynamicIs( fact, teller ); }
   // A VRF with interfaces, tunnels' ends or IPsec connections stays; its routes go with it.
   ChangeResult vrfDel( const L3::VrfName & name );
   // Routes that lead out of it keep the ways that are left; its neighbours, virtual MACs and translations go with it.
   // A tunnel of an IPsec connection stays.
   ChangeResult intfDel( Kynet::IntfId intfId );
   ChangeResult ipsecDel( const Gant::Name & name ) { return ipsec_.connectionDel( name ); }
   ChangeResult vlanDel( Bridging::VlanId vlanId ) { return vlans_.vlanDel( vlanId ); }
   ChangeResult virtualMacDel( const VirtualMacFact & fact ) { return virtualMacs_.virtualMacDel( fact ); }
   ChangeResult natStaticDel( const Ip::Nat::StaticKey & key ) { return nat_.staticDel( key ); }
   ChangeResult natDynamicDel( const Ip::Nat::DynamicKey & key ) { return nat_.dynamicDel( key ); }
   ChangeResult neighborDel( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr ) {
      return intfs_.neighborDel( intfId, addr );
   }
   ChangeResult routeDel( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix, Teller teller );

   // Whose route of the prefix is in use; `none` also when there is no such VRF.
   Teller routeTeller( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix ) const;
   // Whether the teller has one there, in use or not.
   bool routeHas( const L3::VrfName & vrf, const Kynet::IpGenPrefix & prefix, Teller teller ) const;
   size_t routes( Teller teller ) const;

   // For those who tell many routes: the same, in steps.
   //
   // Why no route of the family can ever go these ways; empty when one can.
   Gant::String wrongWays( Kynet::AddressFamily af, const Ways & ways ) const;
   // What a route in the VRF that is accepted with these ways does less than they say, as things are: a next hop that
   // nothing reaches, weights. Empty: nothing.
   Gant::String shortOf( U32 vrfId, const Ways & ways ) const;
   RouteBook< Kynet::Prefix > & routes4() { return intfs_.routes4(); }
   RouteBook< Kynet::Ip6Prefix > & routes6() { return intfs_.routes6(); }
   const RouteBook< Kynet::Prefix > & routes4() const { return intfs_.routes4(); }
   const RouteBook< Kynet::Ip6Prefix > & routes6() const { return intfs_.routes6(); }

 private:
   StateTree tree_;
   VrfBook vrfs_;
   IntfBook intfs_;
   IpsecBook ipsec_;
   AclBook acl_;
   VlanBook vlans_;
   VirtualMacBook virtualMacs_;
   NatBook nat_;
   SourceTable sources_;
};

// Why no route of a user's can have the prefix; empty when it can.
Gant::String wrongPrefix( const Kynet::Prefix & prefix );
Gant::String wrongPrefix( const Kynet::Ip6Prefix & prefix );

} // namespace Host
