// Local indexes of next hops: one pool per interface, since the table of next hops is that of the interface's
// NextHopMod.
#pragma once

#include "GantAttr.h"
#include "KynetIntfId.h"

namespace VexL3Unicast {

// The free indexes of one interface: 1 to 16383, the one that was given back last first.
class NhLocalIndexIntf : public Gant::PtrInterface {
 public:
   explicit NhLocalIndexIntf( Kynet::IntfId intf ) : intf_( intf ) {}
   const char * fwkType() const override { return "VexL3Unicast::NhLocalIndexIntf"; }
   GANT_CONST( Kynet::IntfId, intf )
   GANT_STACK( U16, freeNextHopId )
};

class NhIndexManager : public Gant::PtrInterface {
 public:
   static constexpr U16 indexMax = 16383;
   using Pools = Gant::HashMap< Kynet::IntfId, Gant::Ptr< NhLocalIndexIntf > >;
   const char * fwkType() const override { return "VexL3Unicast::NhIndexManager"; }

   // A pool lives as long as the manager, also when the interface goes.
   GANT_KEYED( Pools, nhLocalIndexIntf )
   const Gant::Ptr< NhLocalIndexIntf > & nhLocalIndexIntfIs( Kynet::IntfId intf );

   // 1, 2, 3 and so on for a new interface, which may be the empty one. 0 when all indexes are in use, which is no
   // error here: the next hop is written and used at index 0.
   U16 allocNhLocalIndex( Kynet::IntfId intf );
   // Nothing for index 0. That the index was in use is not checked.
   void freeNhLocalIndex( Kynet::IntfId intf, U16 nhLocalIndex );
};

} // namespace VexL3Unicast
