#include "DpPortTable.h"

#include "DpPmdDevice.h"
#include "DpTapDevice.h"
#include "DpUnixDevice.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace Vexdp {

using namespace bess::pb;

namespace {

struct Making {
   Eal & eal;
   const CreatePortRequest & request;
   unsigned workers;
};

struct Driver {
   const char * name;
   const char * help;
   std::uint64_t mostQueues; // of any device of the driver, in each direction
   Outcome ( *make )( const Making & making, std::unique_ptr< Device > & device );
};

template < class Arg >
Outcome argOf( const CreatePortRequest & request, Arg & arg ) {
   if ( request.arg().UnpackTo( &arg ) ) return {};
   return refuse( EINVAL, "arg is not a {}", Arg::descriptor()->full_name() );
}

PmdDevice::Queues queuesOf( const Making & making ) {
   const auto number = []( std::uint64_t asked ) { return std::uint16_t( std::max< std::uint64_t >( asked, 1 ) ); };
   const auto & request = making.request;
   return { number( request.num_inc_q() ), number( request.num_out_q() ), std::uint16_t( request.size_inc_q() ),
            std::uint16_t( request.size_out_q() ), making.workers };
}

Outcome makePmd( const Making & making, std::unique_ptr< Device > & device ) {
   PMDPortArg arg;
   if ( auto out = argOf( making.request, arg ); !out.ok() ) return out;
   return PmdDevice::make( making.eal, std::move( arg ), queuesOf( making ), device );
}

Outcome makePcap( const Making & making, std::unique_ptr< Device > & device ) {
   PCAPPortArg arg;
   if ( auto out = argOf( making.request, arg ); !out.ok() ) return out;
   PMDPortArg pmd;
   pmd.set_vdev( fmt::format( "net_pcap_{},iface={}", making.request.name(), arg.dev() ) );
   return PmdDevice::make( making.eal, std::move( pmd ), queuesOf( making ), device );
}

Outcome makeTap( const Making & making, std::unique_ptr< Device > & device ) {
   VPortArg arg;
   if ( auto out = argOf( making.request, arg ); !out.ok() ) return out;
   return TapDevice::make( arg, making.workers, device );
}

Outcome makeUnix( const Making & making, std::unique_ptr< Device > & device ) {
   UnixSocketPortArg arg;
   if ( auto out = argOf( making.request, arg ); !out.ok() ) return out;
   return UnixDevice::make( arg, making.workers, device );
}

constexpr Driver kDrivers[] = {
     { "PCAPPort", "a device of the host's kernel, by libpcap", 1, makePcap },
     { "PMDPort", "any device of DPDK", 64, makePmd },
     { "UnixSocketPort", "packets over a SOCK_SEQPACKET socket", 1, makeUnix },
     { "VPort", "a TAP or TUN for the host's kernel", 1, makeTap },
};

const Driver * findDriver( const std::string & name ) {
   const auto * at = std::ranges::find_if( kDrivers, [ & ]( const auto & driver ) { return driver.name == name; } );
   return at == std::end( kDrivers ) ? nullptr : at;
}

Outcome checked( const CreatePortRequest & request, std::uint64_t mostQueues ) {
   if ( auto out = requireAtMost( "num_inc_q", request.num_inc_q(), mostQueues ); !out.ok() ) return out;
   if ( auto out = requireAtMost( "num_out_q", request.num_out_q(), mostQueues ); !out.ok() ) return out;
   constexpr auto kMost = std::numeric_limits< std::uint16_t >::max();
   if ( auto out = requireAtMost( "size_inc_q", request.size_inc_q(), kMost ); !out.ok() ) return out;
   return requireAtMost( "size_out_q", request.size_out_q(), kMost );
}

} // namespace

std::vector< std::string > PortTable::drivers() {
   std::vector< std::string > names;
   for ( const auto & driver : kDrivers ) names.emplace_back( driver.name );
   return names;
}

std::string PortTable::help( const std::string & driver ) {
   const auto * found = findDriver( driver );
   return found == nullptr ? "" : found->help;
}

Outcome PortTable::makeDevice( const CreatePortRequest & request, std::unique_ptr< Device > & device ) {
   const auto * driver = findDriver( request.driver() );
   if ( driver == nullptr ) return refuse( ENOENT, "there is no driver {}", request.driver() );
   if ( auto out = checked( request, driver->mostQueues ); !out.ok() ) return out;
   return driver->make( { eal_, request, workers_ }, device );
}

Outcome PortTable::make( const CreatePortRequest & given, Port & port ) {
   auto request = given;
   while ( request.name().empty() || ( given.name().empty() && ports_.contains( request.name() ) ) )
      request.set_name( fmt::format( "port{}", generated_++ ) );
   const std::string_view name = request.name();
   if ( ports_.contains( name ) ) return refuse( EEXIST, "there is a port {} already", name );
   if ( auto out = makeDevice( request, port.device ); !out.ok() ) return out;
   port.driver = request.driver();
   port.arg = request.arg();
   port.kernel = name.starts_with( kKernelPrefix );
   port.wire = wires_.of( port.kernel ? name.substr( kKernelPrefix.size() ) : name );
   auto & listed = port.listed;
   listed.set_name( request.name() );
   listed.set_driver( request.driver() );
   listed.set_mac_addr( port.device->conf().mac );
   listed.set_num_inc_q( std::max< std::uint64_t >( request.num_inc_q(), 1 ) );
   listed.set_num_out_q( std::max< std::uint64_t >( request.num_out_q(), 1 ) );
   listed.set_size_inc_q( request.size_inc_q() );
   listed.set_size_out_q( request.size_out_q() );
   *listed.mutable_driver_arg() = request.arg();
   return {};
}

void PortTable::add( Port && port ) {
   ( port.kernel ? port.wire->kernel : port.wire->device ) = port.device.get();
   ports_.emplace( port.listed.name(), std::move( port ) );
}

// The device is off its wire before it goes.
void PortTable::cut( Port & port ) { ( port.kernel ? port.wire->kernel : port.wire->device ) = nullptr; }

Outcome PortTable::take( const std::string & name, Port & port ) {
   const auto at = ports_.find( name );
   if ( at == ports_.end() ) return refuse( ENOENT, "there is no port {}", name );
   cut( at->second );
   port = std::move( at->second );
   ports_.erase( at );
   return {};
}

PortTable::Ports PortTable::takeAll() {
   for ( auto & [ name, port ] : ports_ ) cut( port );
   return std::exchange( ports_, {} );
}

Device * PortTable::find( std::string_view name ) const {
   const auto at = ports_.find( name );
   return at == ports_.end() ? nullptr : at->second.device.get();
}

const std::string & PortTable::nameOf( const Device & device ) const {
   return std::ranges::find_if( ports_, [ & ]( const auto & entry ) { return entry.second.device.get() == &device; } )
        ->first;
}

void PortTable::carry() {
   for ( auto & [ name, port ] : ports_ ) {
      if ( !port.kernel || port.device->bare() ) continue;
      const auto * wire = find( std::string_view( name ).substr( kKernelPrefix.size() ) );
      if ( wire != nullptr ) port.device->carrierIs( wire->link().up );
   }
}

} // namespace Vexdp
