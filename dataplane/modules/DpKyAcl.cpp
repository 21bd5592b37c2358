#include "DpKyAcl.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

#include <spdlog/spdlog.h>

#include <cerrno>
#include <cmath>

namespace Vexdp {

using namespace vex::pb;

namespace {
constexpr GateId kPermitted = 1;
}

const ModuleClass & KyAcl::moduleClass() {
   static const ModuleClass self = describe< KyAcl, KyApplyAclInitArg >(
        "KyAcl", "the access list of an interface and direction", { .igates = kMaxGates, .ogates = 2 },
        { command< &KyAcl::applyAcl >( "applyAcl" ) } );
   return self;
}

KyAcl::KyAcl( Identity identity, const KyApplyAclInitArg & init ) :
     Module( std::move( identity ) ), ingress_( init.ingress() ) {}

Outcome KyAcl::applyAcl( const KyApplyAclArg & arg ) {
   if ( auto out = requireFields( { { arg.has_acl_id(), "acl_id" } } ); !out.ok() ) return out;
   if ( arg.has_ipv4() && !arg.ipv4() ) return refuse( EOPNOTSUPP, "access list {} is not of IPv4", arg.acl_id() );
   return list_.bind( graph(), RuleTarget::security, arg.acl_id() );
}

Fate KyAcl::process( Packet & packet, Context & context ) {
   auto header = Ipv4Header::of( packet );
   if ( !header ) return context.drop( kNoCounter, "not an IPv4 packet" );
   if ( list_.table() == nullptr ) return context.drop( kNoCounter, "no access list is applied" );
   const auto * rule = list_.apply( *header, packet, context );
   if ( rule == nullptr ) return context.drop( kNoCounter, "no rule permits it" );
   if ( rule->log ) log( *rule, *header, packet, context );
   if ( !*rule->permit ) return context.drop( kNoCounter, "denied" );
   context.note( "permitted" );
   return context.forward( kPermitted );
}

void KyAcl::processAll( Packets packets, Context & context ) { context.each( packets, *this ); }

void KyAcl::log( const Rule & rule, const Ipv4Header & header, const Packet & packet, const Context & context ) {
   if ( !context.counting() || !mayLog( context.now() ) ) return;
   const auto & list = *list_.table();
   const auto key = RuleKey::of( header, packet );
   spdlog::info( "{}: access list {} rule {} {}: protocol {} {}:{} > {}:{}, {} bytes", name(), list.id(),
                 list.placeOf( rule ), *rule.permit ? "permits" : "denies", key.field( RuleKey::proto ), key.src(),
                 key.ranged[ RuleKey::sport ], key.dst(), key.ranged[ RuleKey::dport ], key.ranged[ RuleKey::len ] );
}

// Workers share the number. Beyond it nobody writes.
bool KyAcl::mayLog( double now ) {
   constexpr std::uint64_t kPlaces = 16;
   static_assert( kMaxLogged < kPlaces - 1 );
   const auto second = std::uint64_t( now );
   auto logged = logged_.load( std::memory_order_relaxed );
   std::uint64_t next = 0;
   do {
      // One of them may be ahead by a burst.
      const auto ahead = logged / kPlaces - second;
      next = ahead <= 1 ? logged + 1 : second * kPlaces + 1;
      if ( next % kPlaces > kMaxLogged ) return false;
   } while ( !logged_.compare_exchange_weak( logged, next, std::memory_order_relaxed ) );
   return true;
}

CommandSource KyAcl::commands() const {
   return [ id = list_.id() ]( CommandSink & sink ) {
      if ( !id ) return;
      KyApplyAclArg arg;
      arg.set_acl_id( *id );
      arg.set_ipv4( true );
      sink.command( "applyAcl", arg );
   };
}

std::optional< GateId > KyAcl::passGate() const { return kPermitted; }

std::string KyAcl::desc() const {
   return fmt::format( "{}, {}", ingress_ ? "in" : "out", list_.desc( RuleTarget::security ) );
}

} // namespace Vexdp
