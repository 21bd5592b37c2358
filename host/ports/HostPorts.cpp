#include "HostPorts.h"

#include "HostKeptPort.h"
#include "HostKernelDeviceWatcher.h"
#include "VexEnginePorts.h"

#include <algorithm>
#include <charconv>
#include <spdlog/spdlog.h>

namespace Host {

namespace {

constexpr double tickEvery = 1; // second
// Ports that are being made or destroyed at once: one that takes long does not hold up all others.
constexpr auto changesMost = 4;
constexpr const char * kernelPrefix = "kernel:";
constexpr U32 plainMtu = 1500;

Gant::String vdevOf( const Device & device, unsigned number ) {
   const auto & port = device.port;
   if ( port.kind == PortKind::vdev_ ) return port.device;
   if ( port.kind == PortKind::afXdp_ ) return Gant::format( "net_af_xdp_%u,iface=%s", number, port.device.c_str() );
   // A frame with its ring's header in front has to fit; the driver's own size does for plain ones.
   return Gant::format( "net_af_packet_%u,iface=%s%s", number, port.device.c_str(),
                        device.mtu > plainMtu ? ",framesz=16384,blocksz=16384" : "" );
}

// Of such a name; 0: it has none.
unsigned numberOf( std::string_view vdev ) {
   unsigned number = 0;
   for ( const std::string_view name : { "net_af_packet_", "net_af_xdp_" } )
      if ( vdev.starts_with( name ) ) std::from_chars( vdev.data() + name.size(), vdev.data() + vdev.size(), number );
   return number;
}

} // namespace

struct Ports::GantDevices : DeviceDir::Notifiee {
   explicit GantDevices( Ports * owner ) : Notifiee( owner, owner->devices_ ), owner( owner ) {}
   // An interface may be taken down and brought up again in one turn.
   void onDevice( const Kynet::IntfId & ) override {
      owner->wishesChanged_ = true;
      owner->postReview();
   }
   Ports * owner;
};

struct Ports::GantClock : Gant::Clock::Notifiee {
   explicit GantClock( Ports * owner ) : Notifiee( owner, owner->clock_ ), owner( owner ) {}
   void onTime() override { owner->handleClock(); }
   Ports * owner;
};

struct Ports::Told {
   std::map< Kynet::IntfId, KernelDevice > devices;
};

PortKey PortKey::ofName( const Gant::String & name ) {
   PortKey key;
   key.kernel = name.starts_with( kernelPrefix );
   const auto intfId =
        Kynet::IntfId::fromString( key.kernel ? name.substr( std::string_view( kernelPrefix ).size() ) : name );
   if ( intfId ) key.intfId = *intfId;
   if ( key.name() == name ) return key;
   return { {}, false, name };
}

Gant::String PortKey::name() const {
   if ( !intfId ) return other;
   return ( kernel ? kernelPrefix : "" ) + intfId.stringValue();
}

Gant::String kernelName( Kynet::IntfId intfId ) {
   constexpr size_t longest = 15;
   auto name = intfId.stringValue();
   if ( name.size() > longest ) name = intfId.shortName();
   std::ranges::replace( name, '/', '-' );
   return name;
}

Ports::Ports( Gant::Ptr< const DeviceDir > devices, const Vex::Peer & peer, KernelDeviceWatcher * kernelWatcher,
              LinkWatcher linkWatcher, bool sweep ) :
     devices_( std::move( devices ) ),
     kernelWatcher_( kernelWatcher ), linkWatcher_( std::move( linkWatcher ) ),
     engine_( std::make_unique< Vex::EnginePorts >( peer ) ), told_( std::make_unique< Told >() ), sweep_( sweep ),
     clock_( Gant::activityManager()->newClock() ), deviceReactor_( std::make_unique< GantDevices >( this ) ),
     clockReactor_( std::make_unique< GantClock >( this ) ) {
   listing_ = engine_->listPorts( [ this ]( const auto & error, const auto & reply ) {
      for ( const auto & port : reply.ports() ) keepFound( port );
      listed( error.empty() ? reply.error().errmsg() : error );
   } );
}

Ports::~Ports() {
   *alive_ = false;
   gantDoZombieReactors( true );
   for ( const auto & [ intfId, device ] : told_->devices ) kernelWatcher_->kernelDeviceDel( intfId );
}

const KeptPort * Ports::port( const PortKey & key ) const {
   const auto at = kept_.find( key );
   return at == kept_.end() ? nullptr : at->second.get();
}

bool Ports::changing() const {
   return reviewPosted_ || !listed_ ||
          std::ranges::any_of( kept_, []( const auto & entry ) { return entry.second->changing(); } );
}

bool Ports::linksKnown() const {
   return std::ranges::none_of( kept_, []( const auto & entry ) { return entry.second->linkAwaited(); } );
}

bool Ports::mayChange() const {
   return std::ranges::count_if( kept_, []( const auto & entry ) { return entry.second->changing(); } ) < changesMost;
}

void Ports::listed( const Gant::String & error ) {
   // A data plane need not know ports where nobody wants any.
   if ( !error.empty() && !wishes().empty() ) spdlog::warn( "the data plane does not list its ports: {}", error );
   listed_ = true;
   review();
}

// The number in its device's name is whichever it got.
void Ports::keepFound( const bess::pb::ListPortsResponse::Port & port ) {
   const auto key = PortKey::ofName( port.name() );
   bess::pb::PMDPortArg pmd;
   const unsigned number = port.driver_arg().UnpackTo( &pmd ) ? numberOf( pmd.vdev() ) : 0;
   if ( number != 0 && key.other.empty() ) numbers_[ key.intfId ] = number;
   keep( key ).found( port );
}

unsigned Ports::freeNumber() const {
   unsigned most = 0;
   for ( const auto & [ intfId, number ] : numbers_ ) most = std::max( most, number );
   return most + 1;
}

void Ports::sweepIs() {
   if ( std::exchange( sweep_, true ) ) return;
   postReview();
}

KeptPort & Ports::keep( const PortKey & key ) {
   auto & kept = kept_[ key ];
   if ( !kept )
      kept = std::make_unique< KeptPort >( key.name(), *engine_,
                                           KeptPort::Events{ [ this ] { return mayChange(); },
                                                             [ this ] { return sweep_; }, [ this ] { ++generation_; },
                                                             [ this ] { postReview(); } } );
   return *kept;
}

void Ports::postReview() {
   if ( std::exchange( reviewPosted_, true ) ) return;
   Gant::activityManager()->post( [ this, alive = alive_ ] {
      if ( !*alive ) return;
      reviewPosted_ = false;
      review();
   } );
}

void Ports::review() {
   if ( !listed_ ) return;
   if ( std::exchange( wishesChanged_, false ) )
      tellWishes();
   else
      for ( const auto & [ key, port ] : kept_ ) port->review();
   std::erase_if( kept_, []( const auto & entry ) { return entry.second->gone(); } );
   tellKernelDevices();
   tellLinks();
   if ( !kept_.empty() && clock_->timeMin() == Gant::Clock::never ) clock_->timeMinIs( clock_->now() + tickEvery );
}

void Ports::tellWishes() {
   auto wishes = this->wishes();
   for ( const auto & [ key, wish ] : wishes ) keep( key );
   for ( const auto & [ key, port ] : kept_ ) {
      const auto wish = wishes.find( key );
      port->wishIs( wish == wishes.end() ? std::nullopt : std::optional( std::move( wish->second ) ) );
   }
}

void Ports::handleClock() {
   for ( const auto & [ key, port ] : kept_ ) port->review();
   if ( !kept_.empty() ) clock_->timeMinIs( clock_->now() + tickEvery );
}

bool Ports::kernelWanted( const Device & device, bool anyPort ) const {
   using Kernel = Device::Kernel;
   return device.kernel == Kernel::asked || ( device.kernel == Kernel::byDefault && anyPort );
}

std::map< PortKey, PortWish > Ports::wishes() {
   const auto & devices = devices_->deviceIterator();
   const bool anyPort =
        std::ranges::any_of( devices, []( const auto & entry ) { return entry.second.port.kind != PortKind::none_; } );
   std::map< PortKey, PortWish > wishes;
   for ( const auto & [ intfId, device ] : devices ) {
      if ( device.port.kind != PortKind::none_ )
         wishes.emplace( PortKey{ intfId, false, {} }, portWish( intfId, device ) );
      if ( kernelWanted( device, anyPort ) )
         wishes.emplace( PortKey{ intfId, true, {} }, kernelWish( intfId, device ) );
   }
   return wishes;
}

PortWish Ports::portWish( Kynet::IntfId intfId, const Device & device ) {
   const auto & port = device.port;
   PortWish wish;
   wish.device = port.device;
   auto & create = wish.create;
   create.set_name( PortKey{ intfId, false, {} }.name() );
   create.set_driver( "PMDPort" );
   create.set_num_inc_q( port.queues );
   create.set_num_out_q( port.queues );
   bess::pb::PMDPortArg pmd;
   switch ( port.kind.value() ) {
   case PortKind::afPacket_:
   case PortKind::afXdp_: wish.hostDevice = port.device; [[fallthrough]];
   case PortKind::vdev_: {
      auto & number = numbers_[ intfId ];
      if ( number == 0 ) number = freeNumber();
      pmd.set_vdev( vdevOf( device, number ) );
      break;
   }
   case PortKind::pci_: pmd.set_pci( port.device ); break;
   case PortKind::portId_: pmd.set_port_id( std::stoull( port.device ) ); break;
   case PortKind::pcap_: {
      wish.hostDevice = port.device;
      create.set_driver( "PCAPPort" );
      bess::pb::PCAPPortArg arg;
      arg.set_dev( port.device );
      create.mutable_arg()->PackFrom( arg );
      break;
   }
   case PortKind::unixSocket_: {
      wish.hasLink = false;
      create.set_driver( "UnixSocketPort" );
      bess::pb::UnixSocketPortArg arg;
      arg.set_path( port.device );
      create.mutable_arg()->PackFrom( arg );
      break;
   }
   case PortKind::none_: break;
   }
   if ( !create.has_arg() ) create.mutable_arg()->PackFrom( pmd );
   wish.conf.set_mac_addr( device.mac.stringValue() );
   wish.conf.set_mtu( device.mtu );
   wish.conf.set_admin_up( device.enabled );
   return wish;
}

PortWish Ports::kernelWish( Kynet::IntfId intfId, const Device & device ) {
   PortWish wish;
   wish.kernel = true;
   wish.byDefault = device.kernel != Device::Kernel::asked;
   wish.device = kernelName( intfId );
   wish.netns = device.netns;
   if ( device.netns.empty() && device.vrf != L3::VrfName::defaultVrf() )
      wish.impossible = "VRF " + device.vrf.value() + " has no netns for the device " + wish.device;
   wish.create.set_name( PortKey{ intfId, true, {} }.name() );
   wish.create.set_driver( "VPort" );
   wish.create.set_num_inc_q( 1 );
   wish.create.set_num_out_q( 1 );
   bess::pb::VPortArg arg;
   arg.set_ifname( wish.device );
   if ( !device.netns.empty() ) arg.set_netns( device.netns );
   arg.set_tun( device.tunnel );
   wish.create.mutable_arg()->PackFrom( arg );
   // What the kernel may say of it is not to be set behind its back: the kernel's side does that.
   if ( !device.tunnel && !device.open.mac ) wish.conf.set_mac_addr( device.mac.stringValue() );
   if ( !device.open.mtu ) wish.conf.set_mtu( device.mtu );
   wish.conf.set_admin_up( device.enabled );
   return wish;
}

void Ports::tellLinks() const {
   if ( !linkWatcher_ ) return;
   for ( const auto & [ key, port ] : kept_ )
      if ( const auto up = port->carries(); up && !key.kernel && !!key.intfId ) linkWatcher_( key.intfId, *up );
}

void Ports::tellKernelDevices() {
   if ( kernelWatcher_ == nullptr ) return;
   auto & told = told_->devices;
   for ( const auto & [ key, kernelPort ] : kept_ ) {
      if ( !key.kernel || !kernelPort->ready() || !devices_->deviceHas( key.intfId ) ) continue;
      const auto & device = devices_->device( key.intfId );
      const auto * const carrier = port( { key.intfId, false, {} } );
      KernelDevice now{ key.intfId,
                        kernelName( key.intfId ),
                        device.netns,
                        device.vrf,
                        device.tunnel,
                        device.enabled,
                        carrier == nullptr || carrier->linkUp(),
                        device.tunnel ? Kynet::EthAddr() : device.mac,
                        device.mtu,
                        device.addresses };
      const auto at = told.find( key.intfId );
      if ( at != told.end() && at->second == now ) continue;
      kernelWatcher_->kernelDeviceIs( now );
      told.insert_or_assign( key.intfId, std::move( now ) );
   }
   std::erase_if( told, [ & ]( const auto & entry ) {
      const auto * const kernelPort = port( { entry.first, true, {} } );
      if ( kernelPort != nullptr && kernelPort->ready() ) return false;
      kernelWatcher_->kernelDeviceDel( entry.first );
      return true;
   } );
}

} // namespace Host
