#include "VexModule.h"

#include "GantAssert.h"
#include "GantTrace.h"
#include "VexAckSm.h"

#include <cstring>
#include <google/protobuf/message.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Vex {

static Gant::TraceHandle traceHandle( "VexModule" );

const char * VexModule::name( ModuleClass moduleClass ) {
   switch ( moduleClass ) {
   case PortRx: return "PortRx";
   case PortTx: return "PortTx";
   case PortRxCp: return "PortRxCp";
   case PortTxCp: return "PortTxCp";
   case EtherClassify: return "EtherClassify";
   case Trap: return "Trap";
   case NextHop: return "NextHop";
   case FibIpv4: return "FibIpv4";
   case KyAclDb: return "KyAclDb";
   case KyAcl: return "KyAcl";
   case PolicyQos: return "PolicyQos";
   case McastFibIpv4: return "McastFibIpv4";
   case IpInput: return "IpInput";
   case IpOutput: return "IpOutput";
   case ForUsClassifyIpv4: return "ForUsClassifyIpv4";
   case McastFibIpv6: return "McastFibIpv6";
   case Ip4GreTun: return "Ip4GreTun";
   case Ip4IpsecTun: return "Ip4IpsecTun";
   case NhResolve: return "NhResolve";
   case IpsecManagement: return "IpsecManagement";
   case IpsecDecrypt: return "IpsecDecrypt";
   case IpsecEncrypt: return "IpsecEncrypt";
   case IpsecTunnelIngress: return "IpsecTunnelIngress";
   case IpsecTunnelEgress: return "IpsecTunnelEgress";
   case IpsecPolicyIngress: return "IpsecPolicyIngress";
   case IpsecPolicyEgress: return "IpsecPolicyEgress";
   case TunnelIngress: return "TunnelIngress";
   }
   return "";
}

GateId UnusedGates::take() {
   if ( next_ < max_ ) return GateId( next_++ );
   if ( returned_.empty() ) return {};
   const auto gate = returned_.front();
   returned_.pop_front();
   return gate;
}

Module::Module( Gant::String name, VexModule::ModuleClass moduleClass, U32 maxInGate, U32 maxOutGate,
                U32 reservedInGate, U32 reservedOutGate, Message * initArgs,
                Gant::Ptr< ModuleConfigStatusPair > modulePair ) :
     name_( std::move( name ) ),
     moduleClass_( moduleClass ), maxInGate_( maxInGate ), maxOutGate_( maxOutGate ), reservedInGate_( reservedInGate ),
     reservedOutGate_( reservedOutGate ), modulePair_( std::move( modulePair ) ), initArgs_( initArgs ),
     unusedInGate_( reservedInGate, maxInGate ), unusedOutGate_( reservedOutGate, maxOutGate ) {
   GANT_TRACE( 2, "create ", VexModule::name( moduleClass ), " ", name_ );
   moduleConfig()->channel()->createModule( moduleConfig()->origin(), name_, VexModule::name( moduleClass_ ),
                                            initArgs_.get() );
   moduleConfig()->moduleIs( name_, this );
}

Module::~Module() {
   GANT_TRACE( 2, "destroy ", name_ );
   moduleConfig()->moduleDel( name_, this );
   Module::doResourceLeakCheck();
   while ( !outGate_.empty() ) forget( outGate_.begin()->first );
   for ( const auto & [ inGate, connections ] : InGates( inGate_ ) )
      for ( const auto & [ peer, gate ] : connections ) {
         const bool givesGateBack = peer->outGate_.at( gate ).givesGateBack;
         peer->forget( gate );
         if ( givesGateBack ) peer->releaseOutGate( gate );
      }
   moduleConfig()->channel()->destroyModule( moduleConfig()->origin(), name_ );
}

void Module::initArgsIs( Message * initArgs ) { initArgs_.reset( initArgs ); }

void Module::show( int, const Gant::String & objName ) { GANT_TRACE( 3, name_, " has no show for ", objName ); }

void Module::doResourceLeakCheck() {
   if ( inUseCounters() != 0 ) GANT_TRACE( 0, name_, " goes with ", inUseCounters(), " counters in use" );
}

GateId Module::getOutGate() {
   const auto gate = unusedOutGate_.take();
   if ( !gate ) GANT_TRACE( 0, name_, ": no free output gate of ", maxOutGate_ );
   return gate;
}

void Module::releaseOutGate( GateId gate ) {
   if ( !gate || gate < reservedOutGate_ ) return;
   GANT_ASSERT( !outGate_.contains( gate ), name_, " gate ", gate );
   unusedOutGate_.give( gate );
}

void Module::connectModule( const Gant::Ptr< Module > & target ) {
   if ( !!findGateByName( target->name(), false ) ) return;
   const auto gate = getOutGate();
   if ( !gate ) return;
   outGateIs( gate, target.get() );
   outGate_[ gate ].givesGateBack = true;
}

void Module::connectViaReservedGate( const Gant::Ptr< Module > & target, GateId gate ) {
   outGateIs( gate, target.get() );
}

void Module::disconnectModule( const Gant::Ptr< Module > & target ) {
   std::vector< GateId > gates;
   for ( const auto & [ gate, connection ] : outGate_ )
      if ( connection.peer == target.get() ) gates.push_back( gate );
   for ( const auto gate : gates ) {
      outGateIs( gate, nullptr );
      releaseOutGate( gate );
   }
}

GateId Module::findGateByName( const Gant::String & name, bool findInGate ) const {
   if ( findInGate ) {
      for ( const auto & [ gate, connections ] : inGate_ )
         for ( const auto & connection : connections )
            if ( connection.peer->name() == name ) return gate;
   } else {
      for ( const auto & [ gate, connection ] : outGate_ )
         if ( connection.peer->name() == name ) return gate;
   }
   return {};
}

void Module::outGateIs( GateId gate, Module * target ) {
   if ( !gate ) return;
   const auto at = outGate_.find( gate );
   if ( at != outGate_.end() ) {
      if ( at->second.peer == target ) return;
      moduleConfig()->channel()->disconnectModules( moduleConfig()->origin(), name_, gate );
      forget( gate );
   }
   if ( target == nullptr ) return;
   // An input gate takes many.
   const GateId inGate( 0 );
   outGate_[ gate ] = { target, inGate, false };
   target->inGate_[ inGate ].push_back( { this, gate } );
   moduleConfig()->channel()->connectModules( moduleConfig()->origin(), name_, gate, target->name(), inGate );
}

// The data plane has no such connection any more.
void Module::forget( GateId gate ) {
   const auto at = outGate_.find( gate );
   const auto peer = at->second.peer;
   const auto inGate = at->second.inGate;
   outGate_.erase( at );
   const auto in = peer->inGate_.find( inGate );
   std::erase( in->second, InConnection{ this, gate } );
   if ( in->second.empty() ) peer->inGate_.erase( in );
}

int Module::ackSocketBind( U64 suffix ) {
   const int fd = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 );
   if ( fd < 0 ) return -1;
   // In the abstract namespace: no file to clean up.
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   const auto path =
        Gant::format( "vex-ack-%d-%s-%llu", getpid(), name_.c_str(), static_cast< unsigned long long >( suffix ) );
   const auto size = std::min( path.size(), sizeof( address.sun_path ) - 1 );
   std::memcpy( address.sun_path + 1, path.data(), size );
   const auto length = static_cast< socklen_t >( offsetof( sockaddr_un, sun_path ) + 1 + size );
   if ( bind( fd, reinterpret_cast< const sockaddr * >( &address ), length ) == 0 ) return fd;
   close( fd );
   return -1;
}

int Module::dupSocket( U64 suffix ) {
   GANT_TRACE( 3, name_, " dupSocket ", suffix, ": this data plane answers shows by gRPC only" );
   return -1;
}

} // namespace Vex
