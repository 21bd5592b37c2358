#include "DpPolicyQos.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using namespace vex::pb;

namespace {
constexpr GateId kMarked = 0;
}

const ModuleClass & PolicyQos::moduleClass() {
   static const ModuleClass self = describe< PolicyQos, PolicyQosArg >(
        "PolicyQos", "the QoS policy of an interface: DSCP and traffic class", { .igates = kMaxGates, .ogates = 1 },
        { command< &PolicyQos::applyServicePolicy >( "applyServicePolicy" ) } );
   return self;
}

Outcome PolicyQos::check( const PolicyQosArg & init ) {
   if ( !init.has_ingress() || init.ingress() ) return {};
   return refuse( EOPNOTSUPP, "a policy on the way out is not supported" );
}

PolicyQos::PolicyQos( Identity identity, const PolicyQosArg & init ) :
     Module( std::move( identity ) ), version_( init.policy_version() ) {}

Outcome PolicyQos::applyServicePolicy( const PolicyApplyArg & arg ) {
   return policy_.bind( graph(), RuleTarget::qos, arg );
}

Fate PolicyQos::process( Packet & packet, Context & context ) {
   auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   if ( policy_.table() == nullptr ) context.note( "no QoS policy is applied" );
   const auto * rule = policy_.apply( *header, packet, context );
   if ( rule != nullptr && rule->permit == false ) return context.drop( kNoCounter, "denied" );
   return context.forward( kMarked );
}

void PolicyQos::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

std::string PolicyQos::desc() const {
   return fmt::format( "{}, version {}", policy_.desc( RuleTarget::qos ), version_ );
}

} // namespace Vexdp
