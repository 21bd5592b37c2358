#include "DpKyAclDb.h"

#include "DpModuleClass.h"
#include "DpWalk.h"

#include <cerrno>

namespace Vexdp {

using vex::pb::KyIpAclArg;

namespace {

bool isPolicy( std::uint32_t target ) {
   return target == std::uint32_t( RuleTarget::qos ) || target == std::uint32_t( RuleTarget::cpu );
}

Outcome wrongTarget( std::uint32_t target, const char * wanted ) {
   return refuse( EINVAL, "acl_target {} is not that of {}", target, wanted );
}

} // namespace

const ModuleClass & KyAclDb::moduleClass() {
   static const ModuleClass self = shared( describe< KyAclDb, bess::pb::EmptyArg >(
        "KyAclDb", "the rule tables of access lists and policies", { .igates = 0, .ogates = 0 },
        { command< &KyAclDb::createAcl >( "createAcl" ), command< &KyAclDb::destroyAcl >( "destroyAcl" ),
          command< &KyAclDb::createPolicy >( "createPolicy" ),
          command< &KyAclDb::destroyPolicy >( "destroyPolicy" ) } ) );
   return self;
}

KyAclDb::~KyAclDb() {
   for ( const auto & [ key, slot ] : slots_ ) slot->table.reset();
}

Outcome KyAclDb::createAcl( const KyIpAclArg & arg ) {
   if ( arg.acl_target() != std::uint32_t( RuleTarget::security ) )
      return wrongTarget( arg.acl_target(), "an access list" );
   return create( arg );
}

Outcome KyAclDb::destroyAcl( const KyIpAclArg & arg ) {
   if ( arg.acl_target() != std::uint32_t( RuleTarget::security ) )
      return wrongTarget( arg.acl_target(), "an access list" );
   return destroy( RuleTarget::security, arg );
}

Outcome KyAclDb::createPolicy( const KyIpAclArg & arg ) {
   if ( arg.has_acl_target() && !isPolicy( arg.acl_target() ) ) return wrongTarget( arg.acl_target(), "a policy" );
   return create( arg );
}

Outcome KyAclDb::destroyPolicy( const KyIpAclArg & arg ) {
   if ( !arg.has_acl_target() ) return destroy( RuleTarget::qos, arg );
   if ( !isPolicy( arg.acl_target() ) ) return wrongTarget( arg.acl_target(), "a policy" );
   return destroy( RuleTarget( arg.acl_target() ), arg );
}

Outcome KyAclDb::create( const KyIpAclArg & arg ) {
   if ( auto out = RuleTable::check( arg ); !out.ok() ) return out;
   const auto target = RuleTarget( arg.acl_target() );
   const auto at = slots_.find( { target, arg.acl_id() } );
   const std::size_t before = at == slots_.end() ? 0 : at->second->table->size();
   const auto after = std::size_t( arg.rule_size() );
   if ( rules_ - before + after > kMaxRules )
      return refuse( ENOSPC, "no room for the {} rules of {} {}, the tables have {} of {}", after, nameOf( target ),
                     arg.acl_id(), rules_, kMaxRules );
   auto table = std::make_shared< const RuleTable >( arg );
   if ( at == slots_.end() )
      slots_.emplace( Key( target, arg.acl_id() ), std::make_shared< RuleSlot >( RuleSlot{ std::move( table ) } ) );
   else
      at->second->table = std::move( table );
   rules_ += after - before;
   return {};
}

Outcome KyAclDb::destroy( RuleTarget target, const KyIpAclArg & arg ) {
   if ( auto out = requireFields( { { arg.has_acl_id(), "acl_id" } } ); !out.ok() ) return out;
   const auto at = slots_.find( { target, arg.acl_id() } );
   if ( at == slots_.end() ) return refuse( ENOENT, "there is no {} {}", nameOf( target ), arg.acl_id() );
   rules_ -= at->second->table->size();
   at->second->table.reset();
   slots_.erase( at );
   return {};
}

std::shared_ptr< const RuleSlot > KyAclDb::slot( RuleTarget target, std::uint32_t id ) const {
   const auto at = slots_.find( { target, id } );
   return at == slots_.end() ? nullptr : at->second;
}

Fate KyAclDb::process( Packet &, Context & context ) { return context.drop( kNoCounter, "packets don't come here" ); }

CommandSource KyAclDb::commands() const {
   std::vector< std::shared_ptr< const RuleTable > > tables;
   for ( const auto & [ key, slot ] : slots_ ) tables.push_back( slot->table );
   return [ tables = std::move( tables ) ]( CommandSink & sink ) {
      for ( const auto & table : tables )
         sink.command( table->target() == RuleTarget::security ? "createAcl" : "createPolicy", table->arg() );
   };
}

std::string KyAclDb::desc() const { return fmt::format( "{} rules in {} tables", rules_, slots_.size() ); }

} // namespace Vexdp
