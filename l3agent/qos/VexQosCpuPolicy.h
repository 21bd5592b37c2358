// The control plane's policy: which traffic class each packet for the router's own software is of. It is fixed.
#pragma once

#include "VexAclCommon.h"

namespace VexModules {

struct CpuReasonToTc {
   enum : U8 {
      reasonDefault = 0,
      reasonForUsIpLow = 1,
      reasonVrrp = 3,
      reasonDhcp = 3,
      reasonPim = 4,
      reasonIgmp = 4,
      reasonOspf = 5,
      reasonBfd = 6,
      reasonBgp = 6,
      reasonIpsec = 6,
      reasonIke = 6,
   };
};

// RFC 5881, 5883, 7296, 3948 and 2131.
struct UdpPort {
   enum : U16 {
      portDhcpServer = 67,
      portDhcpClient = 68,
      portIke = 500,
      portBfd = 3784,
      portBfdEcho = 3785,
      portIpsec = 4500,
      portBfdMultihop = 4784,
   };
};

struct TcpPort {
   enum : U16 { portBgp = 179 };
};

} // namespace VexModules

namespace Vex {

// What a rule is counted under.
class QosCpuReasonCode {
   GANT_VALUE( "Vex::QosCpuReasonCode", QosCpuReasonCode, ( Gant::String, key ), ( Acl::UniqueId, aclId ),
               ( Gant::Ptr< VexAclCommonData >, vexData ) )
};

// Built once, by hwInit, and held for the life of the agent. The host makes it, once the trap module and the rule
// database are there.
class QosCpuPolicy : public Gant::PtrInterface {
 public:
   using ReasonCodes = Gant::OrderedMap< Gant::String, QosCpuReasonCode >;

   VEXL3_EXPORT explicit QosCpuPolicy( Gant::Ptr< VexCommonSmData > vexcsd );
   ~QosCpuPolicy() override;
   const char * fwkType() const override { return "Vex::QosCpuPolicy"; }

   GANT_CONST( Gant::Ptr< VexCommonSmData >, vexcsd )
   GANT_ATTR( Gant::Ptr< AclCommonHelper >, commonHelper )
   GANT_ATTR( U16, hwPolicyId )
   GANT_ATTR( KyIpAclMessagePtr, kyIpCpuClassifyArg ) // null once it was sent
   GANT_MAP( ReasonCodes, qosCpuReasonCode )

   VEXL3_EXPORT void hwInit();
   void createPolicy();
   // Sends the table under construction, if there is one.
   void createPolicyInDb();
   void applyPolicy();

   // A port other than 0 is matched as source and as destination; 0 is any. `dscp` is a value, or Qos::Dscp::invalid
   // for any; `reason` is the traffic class.
   void addIpRule( U8 proto, U16 l4Port, U8 dscp, U8 reason );
   void addIpRuleWithL4( U8 proto, U16 srcL4Port, U16 dstL4Port, U8 dscp, U8 reason );
   void addFinalIpRule();
   // Made where there is none.
   QosCpuReasonCode getReasonCode( U8 proto, U16 srcL4Port, U16 dstL4Port, U8 dscp, U8 reason );

 private:
   void addRules();
};

} // namespace Vex
