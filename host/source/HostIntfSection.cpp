// interfaces, and tunnels, which are interfaces with two ends.
#include "HostSection.h"

#include "HostVerdict.h"

namespace Host {

namespace {

using Interface::TunnelIntfStatus;
using Interface::TunnelMode;

class IntfSection : public Section {
 public:
   const char * name() const override { return "interfaces"; }
   const char * kind() const override { return "interface"; }
   std::string key( const Entry & entry ) const override { return intfId( entry ).stringValue(); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.intfBook().intfs().contains( intfId( entry ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      return state.intfIs( fact( entry ), teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      return state.intfDel( intfId( entry ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      std::vector< Kynet::IntfId > gone;
      for ( const auto & [ intfId, told ] : state.intfBook().intfs() )
         if ( told.teller == teller && takes( intfId.type() ) && !keys.contains( intfId.stringValue() ) )
            gone.push_back( intfId );
      std::vector< ChangeResult > refusals;
      for ( const auto intfId : gone )
         if ( auto result = state.intfDel( intfId ); !isDone( result ) ) refusals.push_back( std::move( result ) );
      return refusals;
   }

 protected:
   virtual IntfFact fact( const Entry & entry ) const {
      entry.only( { "name", "vrf", "addresses", "mtu", "mss", "mac", "enabled", "access-group", "service-policy",
                    "device", "driver", "port", "kernel" } );
      auto fact = common( entry );
      fact.port = port( entry );
      fact.mac = entry.value< Kynet::EthAddr >( "mac", "a MAC address", {} );
      fact.open.mac = !entry.has( "mac" );
      return fact;
   }
   virtual bool takes( Kynet::IntfType type ) const {
      switch ( type.value() ) {
      case Kynet::IntfType::ethernet_:
      case Kynet::IntfType::vlan_:
      case Kynet::IntfType::loopback_:
      case Kynet::IntfType::portChannel_: return true;
      default: return false;
      }
   }
   virtual const char * kindsTaken() const { return "Ethernet, Port-Channel, Vlan and Loopback interfaces"; }

   Kynet::IntfId intfId( const Entry & entry ) const {
      const auto intfId = entry.intf( "name" );
      if ( !takes( intfId.type() ) )
         entry.fail( intfId.stringValue() + " does not belong here: " + name() + " are " + kindsTaken() );
      return intfId;
   }
   IntfFact common( const Entry & entry ) const {
      IntfFact fact{ intfId( entry ), entry.vrf() };
      const bool said = entry.has( "addresses" );
      const bool kernels =
           said && entry.node()[ "addresses" ].IsScalar() && entry.node()[ "addresses" ].Scalar() == "kernel";
      if ( said && !kernels )
         for ( const auto & address : entry.list( "addresses" ) )
            fact.addresses.push_back( address.interfaceAddress() );
      fact.open = { !said || kernels, !entry.has( "mtu" ), false, !entry.has( "enabled" ) };
      if ( entry.has( "mtu" ) ) fact.mtu = entry.at( "mtu" ).number( "mtu", 0, ~U32( 0 ) );
      if ( entry.has( "mss" ) ) readMss( entry.at( "mss" ), fact );
      fact.enabled = entry.flag( "enabled", true );
      if ( entry.has( "kernel" ) ) fact.kernel = entry.flag( "kernel", true );
      if ( entry.has( "access-group" ) ) readAccessGroup( entry.at( "access-group" ), fact.filters );
      if ( entry.has( "service-policy" ) ) readServicePolicy( entry.at( "service-policy" ), fact.filters );
      return fact;
   }

 private:
   // The short form, a device of the kernel, or the long one.
   static PortFact port( const Entry & entry ) {
      if ( !entry.has( "device" ) ) {
         if ( entry.has( "driver" ) ) entry.at( "driver" ).fail( "a driver is one of a device, which is missing" );
         return entry.has( "port" ) ? longPort( entry.at( "port" ) ) : PortFact();
      }
      if ( entry.has( "port" ) ) entry.at( "port" ).fail( "an interface has a device or a port, not both" );
      PortFact port{ PortKind::afPacket(), device( entry.at( "device" ) ) };
      const auto driver = entry.has( "driver" ) ? entry.at( "driver" ).text( "a driver" ) : "af_packet";
      if ( driver == "af_xdp" )
         port.kind = PortKind::afXdp();
      else if ( driver != "af_packet" )
         entry.at( "driver" ).fail( "driver " + quoted( driver ) + " is not af_packet or af_xdp" );
      return port;
   }
   static PortFact longPort( const Entry & entry ) {
      static constexpr struct {
         const char * driver;
         const char * key;
         PortKind::Value kind;
      } forms[] = { { "PMDPort", "vdev", PortKind::vdev_ },
                    { "PMDPort", "pci", PortKind::pci_ },
                    { "PMDPort", "port-id", PortKind::portId_ },
                    { "PCAPPort", "dev", PortKind::pcap_ },
                    { "UnixSocketPort", "path", PortKind::unixSocket_ } };
      entry.only( { "driver", "vdev", "pci", "port-id", "dev", "path", "queues" } );
      const auto driver = entry.at( "driver" ).text( "a driver" );
      PortFact port;
      port.queues = entry.number( "queues", 1, 64, 1 );
      std::string keys;
      for ( const auto & form : forms ) {
         const bool own = driver == form.driver;
         if ( own ) keys += ( keys.empty() ? "" : ", " ) + std::string( form.key );
         if ( !entry.has( form.key ) ) continue;
         if ( !own || port.kind != PortKind::none_ )
            entry.at( form.key ).fail( std::string( form.key ) + " does not belong here" );
         port.kind = form.kind;
         port.device = form.kind == PortKind::portId_ ? std::to_string( entry.number( form.key, 0, 65535, 0 ) )
                       : form.kind == PortKind::pcap_ ? device( entry.at( form.key ) )
                                                      : entry.at( form.key ).text( "a device" );
         if ( port.device.empty() ) entry.at( form.key ).fail( std::string( form.key ) + " is empty" );
      }
      if ( keys.empty() )
         entry.at( "driver" ).fail( "driver " + quoted( driver ) + " is not PMDPort, PCAPPort or UnixSocketPort" );
      if ( port.kind == PortKind::none_ ) entry.fail( "a " + driver + " needs " + keys );
      return port;
   }
   // A name that the kernel gives a device, and that no argument of a driver can be mistaken for.
   static std::string device( const Entry & entry ) {
      constexpr size_t longest = 15;
      const auto name = entry.text( "a device" );
      if ( name.empty() || name.size() > longest || name.find_first_of( " \t\n/,=:" ) != name.npos )
         entry.fail( "device " + quoted( name ) + " is no name of a network device" );
      return name;
   }
   static void readAccessGroup( const Entry & group, IntfFilters & filters ) {
      group.only( { "in", "out" } );
      if ( group.has( "in" ) ) filters.aclIn = group.name( "in", "access-list" );
      if ( group.has( "out" ) ) filters.aclOut = group.name( "out", "access-list" );
   }
   static void readServicePolicy( const Entry & policy, IntfFilters & filters ) {
      policy.only( { "input", "output" } );
      if ( policy.has( "input" ) ) filters.policyIn = policy.name( "input", "policy-map" );
      if ( policy.has( "output" ) )
         policy.at( "output" )
              .fail( "service-policy output " + policy.name( "output", "policy-map" ) +
                     ": this data plane has no output policies" );
   }
   static void readMss( const Entry & mss, IntfFact & fact ) {
      constexpr U32 most = 65535;
      if ( !mss.node().IsMap() ) {
         fact.mssIngress = fact.mssEgress = static_cast< U16 >( mss.number( "mss", 0, most ) );
         return;
      }
      mss.only( { "ingress", "egress" } );
      fact.mssIngress = static_cast< U16 >( mss.number( "ingress", 0, most, 0 ) );
      fact.mssEgress = static_cast< U16 >( mss.number( "egress", 0, most, 0 ) );
   }
};

class TunnelSection : public IntfSection {
 public:
   const char * name() const override { return "tunnels"; }
   const char * kind() const override { return "tunnel"; }

 protected:
   IntfFact fact( const Entry & entry ) const override {
      entry.only( { "name", "vrf", "addresses", "mtu", "mss", "enabled", "access-group", "service-policy", "mode",
                    "kernel", "source", "destination", "underlay", "key", "ttl", "tos" } );
      auto fact = common( entry );
      fact.tunnel = TunnelIntfStatus( mode( entry ), entry.ip4( "source" ), entry.ip4( "destination" ),
                                      entry.vrf( "underlay" ), static_cast< U8 >( entry.number( "ttl", 0, 255, 64 ) ),
                                      static_cast< U8 >( entry.number( "tos", 0, 255, 0 ) ),
                                      entry.number( "key", 0, ~U32( 0 ), 0 ) );
      return fact;
   }
   bool takes( Kynet::IntfType type ) const override { return type == Kynet::IntfType::tunnel_; }
   const char * kindsTaken() const override { return "Tunnel interfaces"; }

 private:
   static TunnelMode mode( const Entry & entry ) {
      if ( !entry.has( "mode" ) ) return TunnelMode::gre();
      const auto text = entry.at( "mode" ).text( "a tunnel mode" );
      if ( text == "gre" ) return TunnelMode::gre();
      if ( text == "gre-ipsec" ) return TunnelMode::greOverIpsec();
      if ( text == "ipsec" ) return TunnelMode::ipsec();
      entry.at( "mode" ).fail( "mode \"" + text + "\" is not gre, gre-ipsec or ipsec" );
   }
};

} // namespace

std::unique_ptr< const Section > intfSection() { return std::make_unique< IntfSection >(); }
std::unique_ptr< const Section > tunnelSection() { return std::make_unique< TunnelSection >(); }

} // namespace Host
