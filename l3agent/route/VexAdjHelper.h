// Adjacencies: each is one FEC, made and deleted with it, and rebuilt under the same key whenever its next hops change.
//
//   no FEC             createAdj   allocates the key, builds, programs       FEC
//   FEC                createAdj   as updateAdj                              FEC, version + 1
//   FEC                updateAdj   rebuilds and reprograms                   FEC, version + 1
//   no FEC             updateAdj   fails, and asks for a walk                no FEC
//   FEC, no routes     deleteAdj   removes, gives the key back               no FEC
//   FEC with routes    deleteAdj   assertion
//   no FEC             deleteAdj   trace only                                no FEC
//
// An update makes before it breaks: new next hops get new local indexes and are written, the FIB's entry is replaced,
// and only then the old ones are deleted.
#pragma once

#include "HulHelper.h"
#include "HulL3Status.h"
#include "VexL3Types.h"

namespace VexL3Unicast {

class VexL3Sm;

// The prefixes of an adjacency. Part of the model; FECs know their routes themselves.
class AdjPrefixList : public Gant::PtrInterface {
 public:
   using PrefixV4s = Gant::OrderedSet< Hul::EgressPrefixIndex >;
   using PrefixV6s = Gant::OrderedSet< Hul::EgressIp6PrefixIndex >;
   explicit AdjPrefixList( U64 adjIndex ) : adjIndex_( adjIndex ) {}
   const char * fwkType() const override { return "VexL3Unicast::AdjPrefixList"; }
   GANT_CONST( U64, adjIndex )
   GANT_SET( PrefixV4s, prefixV4 )
   GANT_SET( PrefixV6s, prefixV6 )
};

class AdjHelper : public HulHelper::AdjSmHelper {
 public:
   using AdjPrefixLists = Gant::HashMap< U64, Gant::Ptr< AdjPrefixList > >;

   AdjHelper( const Gant::Name & name, const Gant::Ptr< RouteDb > & routeDb,
              const Gant::Ptr< Hul::L3Status > & hulL3Status, const Gant::Ptr< VexL3Sm > & l3Writer );
   ~AdjHelper() override;
   const char * fwkType() const override { return "VexL3Unicast::AdjHelper"; }

   GANT_CONST( Gant::Ptr< RouteDb >, routeDb )
   GANT_CONST( Gant::Ptr< Hul::L3Status >, hulL3Status )
   GANT_CONST( Gant::Ptr< VexL3Sm >, l3Writer )
   GANT_MAP( AdjPrefixLists, adjPrefixList )
   GANT_COUNTER( U64, numCreateAdj )
   GANT_COUNTER( U64, numDeleteAdj )
   GANT_COUNTER( U64, numUpdateAdj )

   Hul::AdjUpdateStatus createAdj( const AdjPtr & adj ) override;
   Hul::AdjUpdateReturnType updateAdj( const AdjPtr & adj ) override;
   void deleteAdj( const AdjPtr & adj ) override;
   void verifyAdj( const AdjPtr & adj ) override;
   // The FEC key, for policy-based routing; all ones for an adjacency that is not known.
   Pbr::NexthopIndex getNexthopIndexForAdj( const AdjPtr & adj ) const override;

   // A fragment of a dictionary literal, which the caller wraps.
   void showSoftwareSummary( unsigned fd ) const;
};

// Puts the FEC into the indexes under its present next hops, or takes it out.
void updateFecSets( const Gant::Ptr< RouteDb > & routeDb, const Gant::Ptr< Fec > & fec, bool add );

// The next hops of the adjacency, one slot for each that has a multiplicity, each with a local index of its own.
void createFecInfo( const Gant::Ptr< AdjHelper > & adjHelper, const Gant::Ptr< const Hul::L2Adjacency > & adj,
                    FecInfo & fecInfo, const Gant::Ptr< HulL3Intf::Table > & l3IntfTable );

// A next hop that cannot be reached yet becomes a drop: the FEC stays valid, and the next update corrects it.
NextHopKey createNextHopKey( const Gant::Ptr< AdjHelper > & adjHelper, Hul::NextHopEntryType type, Kynet::IntfId l2Intf,
                             Kynet::IntfId l3Intf, Kynet::IntfId tunnelIntf, const Kynet::EthAddr & macAddr,
                             const Gant::Ptr< Hul::TunnelL2Info > & tunnelL2Info,
                             const Gant::Ptr< HulL3Intf::Table > & l3IntfTable );

} // namespace VexL3Unicast
