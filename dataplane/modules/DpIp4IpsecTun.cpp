#include "DpIp4IpsecTun.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

namespace Vexdp {

namespace {
constexpr GateId kIpsecTunOut = 1;
}

const ModuleClass & Ip4IpsecTun::moduleClass() {
   static const ModuleClass self = describe< Ip4IpsecTun, vex::pb::Ip4IpsecTunArg >(
        "Ip4IpsecTun", "the place of an IPsec tunnel interface on its chain", { .igates = 1, .ogates = 2 }, {} );
   return self;
}

Ip4IpsecTun::Ip4IpsecTun( Identity identity, const vex::pb::Ip4IpsecTunArg & init ) :
     Module( std::move( identity ) ), tunId_( init.tun_id() ), cpIngress_( init.cp_ingress() ) {}

Fate Ip4IpsecTun::process( Packet & packet, Context & context ) {
   if ( cpIngress_ ) packet.meta.own = true;
   context.note( "IPsec tunnel {}, passed on", tunId_ );
   return context.forward( kIpsecTunOut );
}

std::optional< GateId > Ip4IpsecTun::passGate() const { return kIpsecTunOut; }

std::string Ip4IpsecTun::desc() const { return fmt::format( "tunnel {}", tunId_ ); }

} // namespace Vexdp
