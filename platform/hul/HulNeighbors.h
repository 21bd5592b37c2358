// Whether an interface can be used, and who is there. Not for public headers.
#pragma once

#include "HulL3Status.h"
#include "StateArp.h"
#include "StateInterface.h"

namespace Hul {

struct Neighbors {
   Gant::Ptr< const L3Status > hulL3Status;
   Gant::Ptr< const Arp::Table::Status > neighborTable;
   Gant::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;

   // The helper knows the interface, it routes the family, and it is up.
   bool usable( Kynet::IntfId intfId, Kynet::AddressFamily af ) const {
      const auto & state = hulL3Status->intfRoutingState( intfId );
      const bool routed = af == Kynet::AddressFamily::ipv6_ ? state.routing6Enabled() : state.routingEnabled();
      return routed && allIntfStatusDir->intfStatus( intfId ).operUp();
   }
   // Zero while the neighbour is not resolved, or cannot be reached.
   Kynet::EthAddr mac( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr, Kynet::AddressFamily af ) const {
      return usable( intfId, af ) ? neighborTable->neighbor( Arp::NeighborKey( intfId, addr ) ) : Kynet::EthAddr();
   }
};

} // namespace Hul
