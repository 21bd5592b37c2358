// Neighbours: who has which address on which interface.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"

namespace Arp {

class NeighborKey {
   GANT_VALUE( "Arp::NeighborKey", NeighborKey, ( Kynet::IntfId, intfId ), ( Kynet::IpGenAddr, addr ) )
};

namespace Table {

// Resolved neighbours, of ARP (RFC 826) and of neighbour discovery (RFC 4861). An entry that is being resolved is not
// there, or has no MAC yet.
class Status : public Gant::Entity {
 public:
   using Neighbors = Gant::HashMap< NeighborKey, Kynet::EthAddr >;
   class Notifiee : public Gant::NotifieeOf< Status > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onNeighbor( const NeighborKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Neighbors, neighbor, onNeighbor )
};

} // namespace Table

namespace Hardware {

// How many neighbours the data plane holds.
class Status : public Gant::Entity {
 public:
   using Entity::Entity;
   GANT_ATTR( U32, arpTableSize, 0 )
   GANT_ATTR( U32, neighborTableSize, 0 )
};

} // namespace Hardware

namespace MonitoredNexthop::Input {

// Next hops that the data plane wants kept resolved.
class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

class VrfStatusDir : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace MonitoredNexthop::Input

} // namespace Arp
