// The records of translations, as a data plane that translates would keep them. Nothing fills them here.
#pragma once

#include "GantAttr.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KytHashMix.h"

namespace VexL3Unicast {

// Names a translation.
class NatHwDataKey {
   GANT_VALUE_FIELDS( "VexL3Unicast::NatHwDataKey", NatHwDataKey, ( Kynet::IpAndPort, srcIpAndPort ),
                      ( Kynet::IpAndPort, dstIpAndPort ), ( U8, protocol ), ( U16, vlan ), ( Gant::String, acl ) )
   GANT_VALUE_COMPARE( NatHwDataKey )
   // The VLAN goes in ahead of the protocol.
   size_t hash() const {
      return Kyt::HashMix( 0 )
           .mix( srcIpAndPort() )
           .mix( dstIpAndPort() )
           .mix( vlan() )
           .mix( protocol() )
           .mix( acl() )
           .value();
   }
};

// The rules of one filter address.
class NatAclData : public Gant::PtrInterface {
 public:
   explicit NatAclData( const Kynet::IpAddrWithFullMask & filterAddr ) : filterAddr_( filterAddr ) {}
   const char * fwkType() const override { return "VexL3Unicast::NatAclData"; }
   GANT_CONST( Kynet::IpAddrWithFullMask, filterAddr )
   GANT_ATTR( U16, rule, 0 )
   GANT_ATTR( U16, fragRule, 0 ) // of fragments, if `fragment`
   GANT_ATTR( bool, fragment, false )
   GANT_ATTR( U32, nextHopId, 0 )
   GANT_ATTR( U32, fragNextHopId, 0 )
};

class NatHwData : public Gant::PtrInterface {
 public:
   using AclData = Gant::HashMap< Kynet::IpAddrWithFullMask, Gant::Ptr< NatAclData > >;
   explicit NatHwData( const NatHwDataKey & key ) : key_( key ) {}
   const char * fwkType() const override { return "VexL3Unicast::NatHwData"; }
   GANT_CONST( NatHwDataKey, key )
   GANT_ATTR( Kynet::IpAndPort, newIpAddr )
   GANT_ATTR( Kynet::IpAndPort, oldIpAddr )
   GANT_ATTR( Kynet::IpAndPort, newTwiceNatSrcAddr )
   GANT_ATTR( Kynet::IpAndPort, newTwiceNatDstAddr )
   GANT_ATTR( U8, protocol, 0 )
   GANT_INSTANTIATING( AclData, aclData )
   GANT_ATTR( U16, tunnelId, 0 )
   GANT_ATTR( U64, pktCount, 0 )
};

} // namespace VexL3Unicast
