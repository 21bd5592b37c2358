// The IPsec side of an agent over a recording data plane, fed from a connection table.
#pragma once

#include "Engine.h"
#include "HulIpsecConnectionTableSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vex::pb {
class IpsecUpdateSAArg;
}

namespace Test {

using Ipsec::Ike::Connection;
using Ipsec::Ike::ConnectionKey;
using Ipsec::Ike::EncapId;
using Ipsec::Ike::EncapIdType;
using Ipsec::Ike::KeyMaterial;
using Ipsec::Ike::SecurityAssociation;

// What no output may ever hold.
inline constexpr const char * cryptoSecret = "cipher-SECRET-01";   // 128 bits
inline constexpr const char * authSecret = "hmac-SECRET-of-20-by"; // 160 bits

ConnectionKey connectionKey( U32 reqid, EncapIdType type = EncapIdType::IpsecVti(), const char * vrfName = "default" );
// AES-CBC with SHA-1 in tunnel mode, from 192.0.2.1 to 198.51.100.9, without encapsulation.
SecurityAssociation aesSha1( U32 spi );
Connection connection( std::initializer_list< const char * > intfNames, std::initializer_list< U32 > inboundSpis,
                       std::optional< U32 > outboundSpi );

class IpsecRouter : public Engine {
 public:
   // From now on the table is watched.
   void start();
   // Whether each pair is active: "ipsecFwd_default_5_IpsecVti_Tunnel1 active", sorted.
   Lines pairs() const;
   Lines flows() const;

   Gant::Ptr< Vex::ManagementSm > managementSm = Gant::make< Vex::ManagementSm >();
   Gant::Ptr< VexL3Unicast::IpsecHelper > helper = Gant::make< VexL3Unicast::IpsecHelper >( vexcsd, managementSm );
   Gant::Ptr< Ipsec::Ike::ConnectionTable > table = Gant::make< Ipsec::Ike::ConnectionTable >();
   Gant::Ptr< HulIpsec::HulConnectionTableSm > tableSm;
};

// The lines of the ring, oldest first; of the unit only, where one is named.
Lines traced( const char * unit = "" );

// One with the start behind it.
class IpsecTest : public testing::Test {
 protected:
   IpsecTest() {
      router.start();
      router.take();
   }

   IpsecRouter router;
};

} // namespace Test
