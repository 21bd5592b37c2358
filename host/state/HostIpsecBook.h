// The IPsec connections that the router is told.
#pragma once

#include "HostIntfBook.h"
#include "StateIpsec.h"

namespace Host {

struct IpsecFact {
   Ipsec::Ike::ConnectionKey key;
   Ipsec::Ike::Connection connection;
};

// What a connection needs has to be there when it is told, and stays while the connection does: its VRF, and its
// tunnels in their mode. A tunnel is rebuilt when it gets a connection or loses it, because its modules name the
// connection.
class IpsecBook {
 public:
   using Connections = std::map< Gant::Name, Told< IpsecFact > >; // by name

   IpsecBook( StateTree & tree, IntfBook & intfs ) : tree_( tree ), intfs_( intfs ) {}

   // Why none is taken; empty: they are.
   void keysRefusedIs( const Gant::String & why ) { keysRefused_ = why; }
   // A connection of the name under another key is replaced too.
   ChangeResult connectionIs( const IpsecFact & fact, Teller teller );
   ChangeResult connectionDel( const Gant::Name & name );

   const Connections & connections() const { return connections_; }
   // Why the tunnel cannot go, or get another mode; empty when it can.
   Gant::String keeps( Kynet::IntfId intfId ) const;
   // Why the VRF cannot go; empty when it can.
   Gant::String keeps( const L3::VrfName & vrf ) const;

 private:
   Gant::String wrong( const IpsecFact & fact ) const;
   void remove( const IpsecFact & fact );

   StateTree & tree_;
   IntfBook & intfs_;
   Connections connections_;
   Gant::String keysRefused_;
};

} // namespace Host
