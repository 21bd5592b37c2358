#include "HostIntfBook.h"

#include "StateAcl.h"
#include "StateQos.h"

#include <algorithm>
#include <set>

namespace Host {

namespace {

using Mirel::RouteType;

constexpr U32 mtuMin = 68, mtuMax = 65535;
constexpr U32 portMtuMax = 9216;

std::set< Kynet::Prefix > subnetsOf( const IntfFact & fact ) {
   std::set< Kynet::Prefix > subnets;
   for ( const auto & address : fact.addresses ) subnets.insert( subnetOf( address ) );
   return subnets;
}

Kynet::Prefix hostRoute( Kynet::IpAddr addr ) { return Kynet::Prefix( addr, 32 ); }

Kynet::IpAddr broadcastOf( Kynet::Prefix address ) {
   return Kynet::IpAddr( address.address().value() | ~address.mask() );
}

std::map< Kynet::Prefix, RouteType > derivedOf( const IntfFact & fact, bool up ) {
   std::map< Kynet::Prefix, RouteType > derived;
   if ( !up ) return derived;
   for ( const auto & address : fact.addresses ) {
      // All of a tunnel's subnet is at its other end.
      if ( address.len() < 32 )
         derived[ subnetOf( address ) ] = fact.tunnel ? RouteType::forward() : RouteType::attached();
      // RFC 3021: a subnet of two addresses has no broadcast address.
      if ( address.len() <= 30 && !fact.tunnel )
         derived.emplace( hostRoute( broadcastOf( address ) ), RouteType::broadcast() );
      derived[ hostRoute( address.address() ) ] = RouteType::receive();
   }
   return derived;
}

// Locally administered, and another one for every interface.
Kynet::EthAddr macOf( Kynet::IntfId intfId ) {
   const auto number = intfId.value();
   const auto byte = [ number ]( int shift ) { return static_cast< U8 >( number >> shift ); };
   return Kynet::EthAddr( { 0x02, byte( 56 ), byte( 40 ), byte( 32 ), byte( 16 ), byte( 0 ) } );
}

Vex::EncapType encapOf( Interface::TunnelMode mode ) {
   switch ( mode.value() ) {
   case Interface::TunnelMode::gre_: return Vex::EncapType::gre();
   case Interface::TunnelMode::greOverIpsec_: return Vex::EncapType::greIpsec();
   case Interface::TunnelMode::ipsec_: return Vex::EncapType::vtiIpsec();
   }
   return Vex::EncapType::gre();
}

Gant::String wrongAddress( const IntfFact & fact, Kynet::Prefix address ) {
   const auto text = "address " + address.stringValue();
   const auto first = address.address().value() >> 24;
   if ( first == 0 || first == 127 || first >= 224 ) return text + " is not one that an interface can have";
   if ( address.len() == 0 ) return text + " has no subnet";
   if ( address.len() <= 30 && address.canonical() ) return text + " is its subnet's own";
   if ( address.len() <= 30 && address.address() == broadcastOf( address ) )
      return text + " is its subnet's broadcast address";
   if ( std::ranges::count_if( fact.addresses, [ & ]( auto other ) { return other.address() == address.address(); } ) >
        1 )
      return text + " is there twice";
   return {};
}

Gant::String wrongTunnel( const Interface::TunnelIntfStatus & tunnel ) {
   if ( !tunnel.srcAddr() ) return "a tunnel needs a source";
   if ( !tunnel.dstAddr() ) return "a tunnel needs a destination";
   if ( tunnel.srcAddr() == tunnel.dstAddr() )
      return "source and destination are both " + tunnel.srcAddr().stringValue();
   return {};
}

// What comes in could be either's.
bool sameGreEnds( const Interface::TunnelIntfStatus & a, const Interface::TunnelIntfStatus & b ) {
   return a.mode() == b.mode() && a.srcAddr() == b.srcAddr() && a.dstAddr() == b.dstAddr() && a.key() == b.key() &&
          a.underlayVrf() == b.underlayVrf();
}

// Of the fact by itself: what is wrong whatever the router holds.
Gant::String wrongValue( const IntfFact & fact ) {
   if ( fact.mtu && *fact.mtu < mtuMin ) return Gant::format( "MTU %u is under %u", *fact.mtu, mtuMin );
   if ( fact.mtu && *fact.mtu > mtuMax ) return Gant::format( "MTU %u is over %u", *fact.mtu, mtuMax );
   if ( fact.mac.multicast() ) return "MAC " + fact.mac.stringValue() + " is a multicast address";
   for ( const auto & address : fact.addresses )
      if ( auto text = wrongAddress( fact, address ); !text.empty() ) return text;
   return fact.tunnel ? wrongTunnel( *fact.tunnel ) : "";
}

} // namespace

IntfBook::IntfBook( StateTree & tree, const VrfBook & vrfs ) :
     tree_( tree ), vrfs_( vrfs ),
     routes4_(
          tree.fib, [ this ]( auto vrfId, auto kind, auto & hop ) { return resolve( vrfId, kind, hop ); }, origins_ ),
     routes6_(
          tree.fib6, [ this ]( auto vrfId, auto kind, auto & hop ) { return resolve( vrfId, kind, hop ); }, origins_ ) {
}

Gant::String IntfBook::wrong( const IntfFact & fact ) const {
   if ( !vrfs_.id( fact.vrf ) ) return textOf( fact.vrf ) + " does not exist";
   if ( fact.tunnel && !vrfs_.id( fact.tunnel->underlayVrf() ) )
      return "underlay " + textOf( fact.tunnel->underlayVrf() ) + " does not exist";
   for ( const auto & address : fact.addresses )
      if ( const auto overlap = subnets_.overlap( vrfId( fact ), subnetOf( address ), fact.intfId ) )
         return "address " + address.stringValue() + " overlaps with " + overlap->subnet.stringValue() + " of " +
                overlap->intfId.stringValue();
   if ( fact.tunnel && fact.tunnel->mode() == Interface::TunnelMode::gre_ )
      for ( const auto & [ intfId, told ] : intfs_ )
         if ( intfId != fact.intfId && told.fact.tunnel && sameGreEnds( *told.fact.tunnel, *fact.tunnel ) )
            return "its mode, ends and key are those of " + intfId.stringValue();
   return wrongPort( fact );
}

Gant::String IntfBook::wrongPort( const IntfFact & fact ) const {
   const auto & port = fact.port;
   if ( port.kind == PortKind::none_ ) return {};
   if ( fact.intfId.type() == Kynet::IntfType::loopback_ ) return "a loopback interface has no device";
   if ( mtu( fact ) > portMtuMax )
      return Gant::format( "MTU %u is over %u, the most of a device", mtu( fact ), portMtuMax );
   for ( const auto & [ intfId, told ] : intfs_ )
      if ( intfId != fact.intfId && told.fact.port.kind != PortKind::none_ && told.fact.port.device == port.device )
         return "device " + port.device + " belongs to " + intfId.stringValue();
   return {};
}

IntfFact IntfBook::withKernelFacts( IntfFact fact, const KernelFacts & kernel ) {
   if ( fact.open.addresses ) fact.addresses = kernel.addresses;
   if ( fact.open.mtu && kernel.mtu ) fact.mtu = kernel.mtu;
   if ( fact.open.mac && !!kernel.mac ) fact.mac = kernel.mac;
   if ( fact.open.enabled ) fact.enabled = kernel.enabled.value_or( fact.enabled );
   return fact;
}

ChangeResult IntfBook::intfIs( const IntfFact & fact, Teller teller ) {
   auto result = factIs( withKernelFacts( fact, Gant::valueOf( kernelFacts_, fact.intfId ) ), teller );
   // What was told goes before what the kernel says.
   if ( !isDone( result ) && kernelFacts_.erase( fact.intfId ) != 0 ) result = factIs( fact, teller );
   if ( isDone( result ) ) said_[ fact.intfId ] = fact;
   return result;
}

ChangeResult IntfBook::kernelFactsAre( Kynet::IntfId intfId, const KernelFacts & facts ) {
   const auto known = said_.find( intfId );
   if ( known == said_.end() ) return done();
   const auto & said = known->second;
   auto taken = facts;
   taken.addresses.clear();
   if ( auto result = possible( withKernelFacts( said, taken ) ); !isDone( result ) ) return result;
   auto first = done();
   for ( const auto & address : facts.addresses ) {
      taken.addresses.push_back( address );
      auto result = possible( withKernelFacts( said, taken ) );
      if ( isDone( result ) ) continue;
      taken.addresses.pop_back();
      if ( isDone( first ) ) first = std::move( result );
   }
   kernelFacts_[ intfId ] = taken;
   factIs( withKernelFacts( said, taken ), intfs_.at( intfId ).teller );
   return first;
}

ChangeResult IntfBook::possible( const IntfFact & fact ) const {
   const auto name = "interface " + fact.intfId.stringValue();
   if ( auto text = wrongValue( fact ); !text.empty() ) return invalid( name + ": " + text );
   if ( auto text = wrong( fact ); !text.empty() ) return refused( name + ": " + text );
   return done();
}

ChangeResult IntfBook::factIs( const IntfFact & fact, Teller teller ) {
   if ( auto result = possible( fact ); !isDone( result ) ) return result;
   const auto at = intfs_.find( fact.intfId );
   if ( at != intfs_.end() ) {
      at->second.teller = teller;
      const auto former = at->second.fact;
      if ( former == fact ) return done();
      if ( former.port != fact.port ) down_.erase( fact.intfId );
      if ( former.vrf != fact.vrf || former.tunnel != fact.tunnel )
         takeDown( former );
      else
         subnetsAre( former, false );
   }
   intfs_[ fact.intfId ] = { fact, teller };
   subnetsAre( fact, true );
   bringUp( fact );
   return done();
}

void IntfBook::linkIs( Kynet::IntfId intfId, bool up ) {
   const auto at = intfs_.find( intfId );
   if ( at == intfs_.end() || ( up ? down_.erase( intfId ) == 0 : !down_.insert( intfId ).second ) ) return;
   bringUp( at->second.fact );
}

ChangeResult IntfBook::intfDel( Kynet::IntfId intfId ) {
   const auto at = intfs_.find( intfId );
   if ( at == intfs_.end() ) return notFound( "interface " + intfId.stringValue() + " does not exist" );
   takeDown( at->second.fact );
   said_.erase( intfId );
   kernelFacts_.erase( intfId );
   down_.erase( intfId );
   writeFilters( IntfFact{ intfId } );
   std::vector< NeighborKey > gone;
   for ( auto n = neighbors_.lower_bound( { intfId, {} } ); n != neighbors_.end() && n->first.first == intfId; ++n )
      gone.push_back( n->first );
   for ( const auto & key : gone ) neighborDel( key.first, key.second );
   return done();
}

// From whatever it was, with its subnets told already.
void IntfBook::bringUp( const IntfFact & fact ) {
   writeFilters( fact );
   withdrawDerived( fact );
   if ( !up( fact ) ) reviewFecs( fact.intfId );
   writeEntities( fact );
   if ( up( fact ) ) reviewFecs( fact.intfId );
   announceDerived( fact );
   neighborRoutesAre( fact );
}

void IntfBook::takeDown( const IntfFact & given ) {
   auto fact = given;
   fact.enabled = false;
   withdrawDerived( fact );
   neighborRoutesAre( fact );
   subnetsAre( fact, false );
   intfs_.erase( fact.intfId );
   reviewFecs( fact.intfId );
   const auto intfId = fact.intfId;
   tree_.allIntfStatusDir->intfStatusDel( intfId );
   addressesAre( intfId, {} );
   tree_.ipStatus->intfStatusDel( intfId );
   tree_.ethIntfStatusDir->intfStatusDel( intfId );
   tree_.vlanIntfStatusDir->intfStatusDel( intfId );
   tree_.tunnelIntfStatusDir->intfStatusDel( intfId );
   tree_.deviceDir->deviceDel( intfId );
   tree_.portDir->portDel( intfId );
}

void IntfBook::writeEntities( const IntfFact & fact ) {
   const auto intfId = fact.intfId;
   tree_.portDir->portIs( intfId, port( fact ) );
   tree_.deviceDir->deviceIs( intfId, device( fact ) );
   if ( fact.tunnel )
      tree_.tunnelIntfStatusDir->intfStatusIs( intfId, *fact.tunnel );
   else
      tree_.ethIntfStatusDir->intfStatusIs( intfId, Interface::EthIntfStatus( port( fact ).macAddr(), 0 ) );
   if ( intfId.type() == Kynet::IntfType::vlan_ )
      tree_.vlanIntfStatusDir->intfStatusIs( intfId, Bridging::VlanIdOrNone( intfId.first() ) );
   Ip::IntfStatus status;
   status.vrfNameIs( fact.vrf );
   status.routingEnabledIs( fact.enabled );
   status.mtuIs( mtu( fact ) );
   status.tcpMssIngressIs( fact.mssIngress );
   status.tcpMssEgressIs( fact.mssEgress );
   tree_.ipStatus->intfStatusIs( intfId, status );
   addressesAre( intfId, fact.addresses );
   tree_.allIntfStatusDir->intfStatusIs( intfId, Interface::IntfStatus( fact.enabled, up( fact ) ) );
}

void IntfBook::addressesAre( Kynet::IntfId intfId, const std::vector< Kynet::Prefix > & addresses ) {
   const auto & present = tree_.ipStatus->intfAddrIterator();
   std::vector< Ip::IntfAddr > gone;
   for ( auto at = present.lower_bound( Ip::IntfAddr( intfId, {} ) ); at != present.end() && at->intfId() == intfId;
         ++at )
      if ( std::ranges::count( addresses, at->prefix() ) == 0 ) gone.push_back( *at );
   for ( const auto & address : gone ) tree_.ipStatus->intfAddrDel( address );
   for ( const auto & address : addresses ) tree_.ipStatus->intfAddrIs( Ip::IntfAddr( intfId, address ), true );
}

void IntfBook::writeFilters( const IntfFact & fact ) {
   const auto aclIs = [ & ]( Acl::AclDirection direction, const Gant::String & name ) {
      const Acl::IntfAclKey key( fact.intfId, Acl::ip, direction );
      if ( name.empty() )
         tree_.aclIntfConfig->aclNameDel( key );
      else
         tree_.aclIntfConfig->aclNameIs( key, name );
   };
   aclIs( Acl::in, fact.filters.aclIn );
   aclIs( Acl::out, fact.filters.aclOut );
   const Qos::ServicePolicyKey input( fact.intfId, Qos::Direction::input() );
   if ( fact.filters.policyIn.empty() )
      tree_.qosStatus->servicePolicyDel( input );
   else
      tree_.qosStatus->servicePolicyIs( input, fact.filters.policyIn );
}

Port IntfBook::port( const IntfFact & fact ) const {
   if ( fact.tunnel )
      return Port( encapOf( fact.tunnel->mode() ), {}, *fact.tunnel,
                   Hul::VrfId( vrfs_.id( fact.tunnel->underlayVrf() ).value_or( 0 ) ), Hul::VrfId( vrfId( fact ) ),
                   Gant::valueOf( ipsec_, fact.intfId ).encapId, fact.enabled );
   const auto mac = !!fact.mac ? fact.mac : !!routerMac_ ? routerMac_ : macOf( fact.intfId );
   return Port( Vex::EncapType::ethernet(), mac, {}, {}, {}, 0, fact.enabled );
}

Device IntfBook::device( const IntfFact & fact ) const {
   using Kernel = Device::Kernel;
   const bool portless = fact.tunnel || fact.intfId.type() == Kynet::IntfType::loopback_;
   const bool byDefault = portless || fact.port.kind != PortKind::none_;
   Device device;
   device.port = fact.port;
   device.kernel = fact.kernel.value_or( false )           ? Kernel::asked
                   : fact.kernel || !kernel_ || !byDefault ? Kernel::none
                                                           : Kernel::byDefault;
   device.vrf = fact.vrf;
   device.netns = vrfs_.netns( fact.vrf );
   device.tunnel = fact.tunnel.has_value();
   device.enabled = fact.enabled;
   device.mac = port( fact ).macAddr();
   device.mtu = mtu( fact );
   device.addresses = fact.addresses;
   device.open = fact.open;
   return device;
}

void IntfBook::devicesAre() {
   for ( const auto & [ intfId, told ] : intfs_ ) tree_.deviceDir->deviceIs( intfId, device( told.fact ) );
}

void IntfBook::kernelIs( bool wanted, Teller teller ) {
   kernel_ = wanted;
   kernelTeller_ = wanted ? Teller() : teller;
   devicesAre();
}

void IntfBook::subnetsAre( const IntfFact & fact, bool present ) {
   for ( const auto & subnet : subnetsOf( fact ) )
      if ( present )
         subnets_.subnetIs( vrfId( fact ), subnet, fact.intfId );
      else
         subnets_.subnetDel( vrfId( fact ), subnet );
}

// What no longer follows from the interface's addresses.
void IntfBook::withdrawDerived( const IntfFact & fact ) {
   const auto wanted = derivedOf( fact, up( fact ) );
   auto & present = derived_[ fact.intfId ];
   std::erase_if( present, [ & ]( const auto & entry ) {
      if ( wanted.contains( entry.first ) ) return false;
      routes4_.routeDel( vrfId( fact ), entry.first, Teller::connected() );
      return true;
   } );
   if ( present.empty() ) derived_.erase( fact.intfId );
}

void IntfBook::announceDerived( const IntfFact & fact ) {
   const auto vrf = vrfId( fact );
   for ( const auto & [ prefix, kind ] : derivedOf( fact, up( fact ) ) ) {
      const auto fecId = routes4_.fecs().acquire( vrf, { kind, { Hop( {}, fact.intfId, 1 ) } } );
      routes4_.routeIs( vrf, prefix, Teller::connected(), kind, fecId );
      routes4_.fecs().release( fecId );
      derived_[ fact.intfId ][ prefix ] = kind;
   }
}

bool IntfBook::onSubnet( const IntfFact & fact, Kynet::IpAddr addr ) const {
   return std::ranges::any_of( fact.addresses, [ & ]( auto address ) { return address.contains( addr ); } );
}

void IntfBook::neighborRouteIs( const IntfFact & fact, const NeighborFact & neighbor ) {
   if ( neighbor.addr.af() != Kynet::AddressFamily::ipv4_ ) return;
   const auto prefix = hostRoute( neighbor.addr.v4Addr() );
   const auto vrf = vrfId( fact );
   if ( !up( fact ) || !onSubnet( fact, prefix.address() ) ) {
      routes4_.routeDel( vrf, prefix, Teller::neighbor() );
      return;
   }
   const auto fecId =
        routes4_.fecs().acquire( vrf, { RouteType::forward(), { Hop( neighbor.addr, fact.intfId, 1 ) } } );
   routes4_.routeIs( vrf, prefix, Teller::neighbor(), RouteType::forward(), fecId );
   routes4_.fecs().release( fecId );
}

void IntfBook::neighborRoutesAre( const IntfFact & fact ) {
   for ( auto at = neighbors_.lower_bound( { fact.intfId, {} } );
         at != neighbors_.end() && at->first.first == fact.intfId; ++at )
      neighborRouteIs( fact, at->second.fact );
}

ChangeResult IntfBook::neighborIs( const NeighborFact & fact, Teller teller ) {
   const auto name = "neighbor " + fact.addr.stringValue() + " on " + fact.intfId.stringValue();
   const auto intf = intfs_.find( fact.intfId );
   if ( intf == intfs_.end() ) return refused( name + ": the interface does not exist" );
   if ( intf->second.fact.tunnel ) return refused( name + ": a tunnel has no neighbors" );
   if ( !fact.mac ) return invalid( name + ": the MAC is zero" );
   if ( fact.mac.multicast() ) return invalid( name + ": MAC " + fact.mac.stringValue() + " is a multicast address" );
   if ( fact.addr.af() == Kynet::AddressFamily::ipv4_ ) {
      // The kernel knows those that are on a link, or will be on a subnet of it.
      if ( teller != Teller::kernel_ && !onSubnet( intf->second.fact, fact.addr.v4Addr() ) )
         return refused( name + ": the address is on no subnet of the interface" );
      for ( const auto & address : intf->second.fact.addresses )
         if ( address.address() == fact.addr.v4Addr() ) return refused( name + ": the address is the router's own" );
   }
   neighbors_[ { fact.intfId, fact.addr } ] = { fact, teller };
   tree_.arp->neighborIs( Arp::NeighborKey( fact.intfId, fact.addr ), fact.mac );
   neighborRouteIs( intf->second.fact, fact );
   return done();
}

ChangeResult IntfBook::neighborDel( Kynet::IntfId intfId, const Kynet::IpGenAddr & addr ) {
   const auto at = neighbors_.find( { intfId, addr } );
   if ( at == neighbors_.end() )
      return notFound( "neighbor " + addr.stringValue() + " on " + intfId.stringValue() + " does not exist" );
   neighbors_.erase( at );
   if ( const auto intf = intfs_.find( intfId ); intf != intfs_.end() && addr.af() == Kynet::AddressFamily::ipv4_ )
      routes4_.routeDel( vrfId( intf->second.fact ), hostRoute( addr.v4Addr() ), Teller::neighbor() );
   tree_.arp->neighborDel( Arp::NeighborKey( intfId, addr ) );
   return done();
}

ChangeResult IntfBook::routerMacIs( const Kynet::EthAddr & mac, Teller teller ) {
   if ( mac.multicast() ) return invalid( "router: MAC " + mac.stringValue() + " is a multicast address" );
   if ( !!mac && !!routerMac_ && mac != routerMac_ )
      return refused( "router: MAC " + routerMac_.stringValue() + " has to be taken away before " + mac.stringValue() +
                      " can come" );
   routerMacTeller_ = !mac ? Teller() : teller;
   if ( mac == routerMac_ ) return done();
   routerMac_ = mac;
   tree_.bridgingConfig->bridgeMacAddrIs( mac );
   for ( const auto & [ intfId, told ] : intfs_ ) {
      if ( told.fact.tunnel ) continue;
      // The router's MAC has just become that of every interface. The interface's own one is told again.
      auto port = this->port( told.fact );
      const auto own = port.macAddr();
      port.macAddrIs( mac );
      tree_.portDir->portIs( intfId, port );
      port.macAddrIs( own );
      tree_.portDir->portIs( intfId, port );
   }
   devicesAre();
   return done();
}

U32 IntfBook::mtu( const IntfFact & fact ) const {
   constexpr U32 ipAndGre = 20 + 4, greKey = 4;
   if ( fact.mtu ) return *fact.mtu;
   if ( !fact.tunnel ) return underlayMtu;
   const auto most = Gant::valueOf( ipsec_, fact.intfId ).packetMost;
   if ( fact.tunnel->mode() == Interface::TunnelMode::ipsec_ ) return most;
   return most - ipAndGre - ( fact.tunnel->key() != 0 ? greKey : 0 );
}

void IntfBook::ipsecIs( Kynet::IntfId intfId, U32 encapId, U32 packetMost ) {
   const Ipsec present = Gant::valueOf( ipsec_, intfId ), given{ encapId, packetMost };
   if ( present == given ) return;
   ipsec_[ intfId ] = given;
   if ( encapId == 0 ) ipsec_.erase( intfId );
   const auto at = intfs_.find( intfId );
   if ( at == intfs_.end() ) return;
   if ( present.encapId == encapId ) return writeEntities( at->second.fact );
   const auto told = at->second;
   takeDown( told.fact );
   intfs_[ intfId ] = told;
   subnetsAre( told.fact, true );
   bringUp( told.fact );
}

std::optional< Way > IntfBook::resolve( U32 vrfId, RouteType kind, const Hop & hop ) const {
   const bool v4 = hop.addr().af() == Kynet::AddressFamily::ipv4_;
   auto intfId = hop.intfId();
   if ( !intfId ) {
      const auto by = v4 ? subnets_.intf( vrfId, hop.addr().v4Addr() ) : std::nullopt;
      if ( !by ) return std::nullopt;
      intfId = *by;
   }
   const auto at = intfs_.find( intfId );
   if ( at == intfs_.end() ) return std::nullopt;
   const auto & fact = at->second.fact;
   const auto way = [ & ]( const Kynet::IpGenAddr & addr, Kynet::IntfId by ) {
      return Way{ Mirel::Via( kind, addr, by, hop.weight() ), up( fact ) };
   };
   if ( kind != RouteType::forward_ ) return way( {}, intfId );
   if ( this->vrfId( fact ) != vrfId ) return std::nullopt;
   if ( fact.tunnel ) return way( {}, intfId );
   if ( v4 && !hop.onlink() && !onSubnet( fact, hop.addr().v4Addr() ) ) return std::nullopt;
   return way( hop.addr(), intfId );
}

Kynet::IntfId IntfBook::intfOf( U32 vrfId, const Hop & hop ) const {
   const auto way = resolve( vrfId, RouteType::forward(), hop );
   return way ? way->via.intfId() : Kynet::IntfId();
}

Gant::String IntfBook::wrongHop( Kynet::AddressFamily af, const Hop & hop ) const {
   const bool tunnel = Kynet::TunnelIntfId::isTunnelIntfId( hop.intfId() );
   if ( tunnel ) return {};
   if ( !hop.addrHas() ) return "a next hop needs an address, unless its interface is a tunnel";
   const auto text = "next hop " + hop.addr().stringValue();
   if ( hop.addr().af() != af )
      return text + " is " +
             ( af == Kynet::AddressFamily::ipv4_ ? "IPv6, and the prefix IPv4" : "IPv4, and the prefix IPv6" );
   if ( af == Kynet::AddressFamily::ipv6_ && !hop.intfId() )
      return text + ": name its interface, whose IPv6 subnets are not known here";
   return {};
}

Gant::String IntfBook::unreachable( U32 vrfId, const Hop & hop ) const {
   if ( resolve( vrfId, RouteType::forward(), hop ) ) return {};
   if ( !hop.intfId() ) return "no interface reaches next hop " + hop.addr().stringValue();
   const auto intf = intfs_.find( hop.intfId() );
   const auto name = hop.intfId().stringValue();
   if ( intf == intfs_.end() ) return "interface " + name + " does not exist";
   if ( this->vrfId( intf->second.fact ) != vrfId ) return name + " is in " + textOf( intf->second.fact.vrf );
   return "next hop " + hop.addr().stringValue() + " is on no subnet of " + name;
}

void IntfBook::reviewFecs( Kynet::IntfId intfId ) {
   routes4_.fecs().review( intfId );
   routes6_.fecs().review( intfId );
}

} // namespace Host
