#include "HostSubnets.h"

namespace Host {

Kynet::Prefix subnetOf( Kynet::Prefix address ) {
   return Kynet::Prefix( Kynet::IpAddr( address.address().value() & address.mask() ), address.len() );
}

void Subnets::subnetIs( U32 vrfId, Kynet::Prefix subnet, Kynet::IntfId intfId ) {
   auto & vrf = vrfs_[ vrfId ];
   if ( vrf.intfs.insert_or_assign( subnet, intfId ).second ) ++vrf.lengths[ subnet.len() ];
}

void Subnets::subnetDel( U32 vrfId, Kynet::Prefix subnet ) {
   auto & vrf = vrfs_[ vrfId ];
   if ( vrf.intfs.erase( subnet ) != 0 ) --vrf.lengths[ subnet.len() ];
   if ( vrf.intfs.empty() ) vrfs_.erase( vrfId );
}

std::optional< Kynet::IntfId > Subnets::intf( U32 vrfId, Kynet::IpAddr addr ) const {
   const auto vrf = vrfs_.find( vrfId );
   if ( vrf == vrfs_.end() ) return std::nullopt;
   for ( U8 len = 33; len-- > 0; ) {
      if ( vrf->second.lengths[ len ] == 0 ) continue;
      const auto at = vrf->second.intfs.find( subnetOf( Kynet::Prefix( addr, len ) ) );
      if ( at != vrf->second.intfs.end() ) return at->second;
   }
   return std::nullopt;
}

std::optional< Subnets::Overlap > Subnets::overlap( U32 vrfId, Kynet::Prefix subnet, Kynet::IntfId except ) const {
   const auto vrf = vrfs_.find( vrfId );
   if ( vrf == vrfs_.end() ) return std::nullopt;
   const auto & intfs = vrf->second.intfs;
   for ( U8 len = 0; len < subnet.len(); ++len ) {
      if ( vrf->second.lengths[ len ] == 0 ) continue;
      const auto at = intfs.find( subnetOf( Kynet::Prefix( subnet.address(), len ) ) );
      if ( at != intfs.end() && at->second != except ) return Overlap{ at->first, at->second };
   }
   for ( auto at = intfs.lower_bound( Kynet::Prefix( subnet.address(), 0 ) );
         at != intfs.end() && subnet.contains( at->first.address() ); ++at )
      if ( at->second != except ) return Overlap{ at->first, at->second };
   return std::nullopt;
}

} // namespace Host
