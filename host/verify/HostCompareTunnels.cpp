// The ends of tunnels: by which gate what comes in for each goes to its interface.

#include "HostComparer.h"
#include "vex/ip.pb.h"

namespace Host {

namespace {

std::string endInWords( Kynet::IpAddr local, Kynet::IpAddr remote, U32 vrf, bool gre, U32 key, U32 connection ) {
   return remote.stringValue() + " -> " + local.stringValue() +
          Gant::format( " in VRF %u, %s, connection %u", vrf,
                        gre ? Gant::format( "GRE key %u", key ).c_str() : "no GRE", connection );
}

class TunnelComparer : public Comparer {
 public:
   using Comparer::Comparer;

   bool finish() override {
      for ( const auto & [ intfId, l2Intf ] : session().vexcsd()->l2IntfIterator() ) {
         if ( !l2Intf->isTunnelType() ) continue;
         const auto gate = module().findGateByName( l2Intf->rxModule()->name(), false );
         if ( !gate ) continue;
         const auto meant =
              endInWords( l2Intf->srcIp(), l2Intf->dstIp(), l2Intf->underlayVrfId(), l2Intf->isGreTunnelType(),
                          l2Intf->greKey(), l2Intf->isIpsecTunnelType() ? l2Intf->ipsecEncapId() : 0 );
         findings().compared( "settings" );
         const auto held = held_.extract( gate.value() );
         if ( held.empty() )
            findings().missing( name(), "end of " + intfId.stringValue(), meant );
         else
            findings().compare( name(), "end of " + intfId.stringValue(), meant, held.mapped() );
      }
      for ( const auto & [ gate, words ] : held_ )
         findings().unexpected( name(), "end behind gate " + std::to_string( gate ), words );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      vex::pb::TunnelEndArg arg;
      if ( cmd != "addTunnel" || !arg.ParseFromString( bytes ) ) return false;
      held_[ arg.ogate() ] = endInWords( Kynet::IpAddr( arg.local_ip() ), Kynet::IpAddr( arg.remote_ip() ), arg.vrf(),
                                         arg.gre(), arg.gre_key(), arg.encap_id() );
      return true;
   }

 private:
   std::map< U32, std::string > held_; // by gate
};

} // namespace

std::unique_ptr< Comparer > tunnelComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< TunnelComparer >( comparison, module );
}

} // namespace Host
