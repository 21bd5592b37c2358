// Makes adjacencies, and brings them to the data plane's helper.
#pragma once

#include "HulTypes.h"

namespace Bridging {
class Config;
}
namespace HulHelper {
class AdjSmHelper;
class AdjCapabilityHelper;
} // namespace HulHelper
namespace Interface {
class EthIntfStatusDir;
}
namespace Mlag {
class Status;
}
namespace Quorl {
class EntityManager;
}
namespace Routing::Hardware {
class Config;
class DlbConfig;
class RouteStatus;
class Status;
} // namespace Routing::Hardware
namespace Tunnel::TunnelTable {
class EvpnVxlanTunnelTable;
}

namespace Hul {

class HulCommonSmData;
class L2AdjResponse;
class L3Config;
class L3Status;

//   calls   AdjSmHelper::createAdj, updateAdj, deleteAdj, verifyAdj
//   writes  L3Status::l2AdjList           before createAdj, after deleteAdj
//
// It decides nothing: AdjSm says what is made, changed and deleted, and when.
class L2AdjHelper : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< const L3Config > hulL3Config{};
      Gant::Ptr< L3Status > hulL3Status{};
      Gant::Ptr< const Routing::Hardware::Config > routingHwConfig{};
      Gant::Ptr< const Routing::Hardware::Status > routingHwStatus{};
      Gant::Ptr< const Routing::Hardware::DlbConfig > routingHwDlbConfig{};
      Gant::Ptr< HulHelper::AdjSmHelper > adjHelper{};
      Gant::Ptr< const Interface::EthIntfStatusDir > ethIntfStatusDir{};
      Gant::Ptr< const Mlag::Status > mlagStatus{};
      Gant::Ptr< const L2AdjResponse > tunnelL2AdjResponse{};
      Gant::Ptr< const Tunnel::TunnelTable::EvpnVxlanTunnelTable > evpnVxlanTunnelTable{};
      Gant::Ptr< Routing::Hardware::RouteStatus > routingHwRouteStatus{};
      Gant::Ptr< HulHelper::AdjCapabilityHelper > adjCapHelper{};
      Gant::Ptr< Quorl::EntityManager > em{};
   };
   explicit L2AdjHelper( Args args );
   ~L2AdjHelper() override;

   // The key of the next adjacency. Keys are not used again.
   GANT_ATTR( U64, nextL2AdjIndex, 0 )

   Gant::Ptr< L2Adjacency > newAdj();
   // False: the helper does not take it, and holds nothing of it. It may be offered again.
   bool create( const Gant::Ptr< L2Adjacency > & adj );
   AdjUpdateReturnType update( const Gant::Ptr< L2Adjacency > & adj );
   // `created`: the helper holds it.
   void del( const Gant::Ptr< L2Adjacency > & adj, bool created );
   void verify( const Gant::Ptr< L2Adjacency > & adj );

 private:
   Args args_;
};

} // namespace Hul
