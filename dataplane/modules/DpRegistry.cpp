#include "DpRegistry.h"

#include "DpEtherClassify.h"
#include "DpFibIpv4.h"
#include "DpForUsClassifyIpv4.h"
#include "DpIp4GreTun.h"
#include "DpIp4IpsecTun.h"
#include "DpIpInput.h"
#include "DpIpOutput.h"
#include "DpIpsecIn.h"
#include "DpIpsecManagement.h"
#include "DpIpsecOut.h"
#include "DpKyAcl.h"
#include "DpKyAclDb.h"
#include "DpMcastFib.h"
#include "DpNextHop.h"
#include "DpNhResolve.h"
#include "DpPolicyQos.h"
#include "DpPorts.h"
#include "DpTrap.h"
#include "DpTunnelIngress.h"

#include <algorithm>

namespace Vexdp {

std::span< const ModuleClass * const > moduleClasses() {
   static const auto classes = [] {
      std::vector< const ModuleClass * > all = {
           &EtherClassify::moduleClass(),
           &FibIpv4::moduleClass(),
           &ForUsClassifyIpv4::moduleClass(),
           &Ip4GreTun::moduleClass(),
           &Ip4IpsecTun::moduleClass(),
           &IpInput::moduleClass(),
           &IpOutput::moduleClass(),
           &IpsecDecrypt::moduleClass(),
           &IpsecEncrypt::moduleClass(),
           &IpsecManagement::moduleClass(),
           &IpsecTunnelEgress::moduleClass(),
           &IpsecTunnelIngress::moduleClass(),
           &KyAcl::moduleClass(),
           &KyAclDb::moduleClass(),
           &McastFibIpv4::moduleClass(),
           &McastFibIpv6::moduleClass(),
           &NextHop::moduleClass(),
           &NhResolve::moduleClass(),
           &PolicyQos::moduleClass(),
           &PortRx::moduleClass(),
           &PortRxCp::moduleClass(),
           &PortTx::moduleClass(),
           &PortTxCp::moduleClass(),
           &Trap::moduleClass(),
           &TunnelIngress::moduleClass(),
      };
      std::ranges::sort( all, {}, &ModuleClass::name );
      return all;
   }();
   return classes;
}

const ModuleClass * findModuleClass( std::string_view name ) {
   const auto classes = moduleClasses();
   const auto at = std::ranges::find( classes, name, &ModuleClass::name );
   return at == classes.end() ? nullptr : *at;
}

} // namespace Vexdp
