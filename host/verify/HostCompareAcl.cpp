// The rule tables, rule by rule, and the modules that point at them.

#include "HostComparer.h"
#include "HostRuleTables.h"
#include "VexAclSm.h"
#include "VexDescribe.h"
#include "VexPolicyQos.h"

#include <google/protobuf/util/message_differencer.h>

namespace Host {

namespace {

using Vex::AclTarget;
using TableKey = std::pair< AclTarget, U32 >;

std::string inWords( const TableKey & key ) {
   static const char * const targets[] = { "access list", "QoS policy", "control-plane policy" };
   const auto target = static_cast< U32 >( key.first );
   return ( target < std::size( targets ) ? targets[ target ] : "table of target " + std::to_string( target ) ) +
          std::string( " " ) + std::to_string( key.second );
}

std::string rulesInWords( size_t rules ) { return std::to_string( rules ) + ( rules == 1 ? " rule" : " rules" ); }

class RuleTablesComparer : public Comparer {
 public:
   RuleTablesComparer( Comparison & comparison, Vex::Module & module ) : Comparer( comparison, module ) {
      for ( auto & table : meantTables( session() ) ) {
         const TableKey key( table.target, table.id );
         meant_.emplace( key, std::move( table ) );
      }
   }
   bool finish() override {
      for ( const auto & [ key, table ] : meant_ )
         if ( !seen_.contains( key ) ) findings().missing( name(), table.object, rulesInWords( table.rules.size() ) );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      vex::pb::KyIpAclArg arg;
      if ( ( cmd != "createAcl" && cmd != "createPolicy" ) || !arg.ParseFromString( bytes ) ) return false;
      const TableKey key( AclTarget( arg.acl_target() ), arg.acl_id() );
      comparison().ruleTables.insert( key );
      findings().compared( "rule tables" );
      // The control plane's policy goes by any id.
      const auto at = meant_.find( key.first == AclTarget::cpu ? TableKey( AclTarget::cpu, 0 ) : key );
      if ( at == meant_.end() )
         findings().unexpected( name(), inWords( key ), rulesInWords( size_t( arg.rule_size() ) ) );
      else if ( !seen_.insert( at->first ).second )
         findings().unexpected( name(), inWords( key ), "another " + at->second.object );
      else
         compare( at->second, arg );
      return true;
   }

 private:
   void compare( const MeantTable & table, const vex::pb::KyIpAclArg & arg ) {
      const auto held = size_t( arg.rule_size() );
      findings().compared( "rules", held );
      for ( size_t at = 0; at < std::max( held, table.rules.size() ); ++at ) {
         const auto object = table.object + ", rule " + std::to_string( at + 1 );
         const auto inDataPlane = [ & ] { return Vex::describe( arg.rule( int( at ) ) ); };
         if ( at >= table.rules.size() ) {
            findings().unexpected( name(), object, inDataPlane() );
            continue;
         }
         const auto & rule = table.rules[ at ];
         const auto named = object + ", " + rule.place;
         if ( at >= held )
            findings().missing( name(), named, Vex::describe( rule.record ) );
         else if ( !google::protobuf::util::MessageDifferencer::Equals( rule.record, arg.rule( int( at ) ) ) )
            findings().different( name(), named, Vex::describe( rule.record ), inDataPlane() );
      }
   }

   std::map< TableKey, MeantTable > meant_;
   std::set< TableKey > seen_;
};

// A module that points at a table by a command.
class BindingComparer : public Comparer {
 public:
   using Comparer::Comparer;

 protected:
   void finishBinding( AclTarget target, std::optional< U32 > meant ) {
      findings().compared( "rule table bindings" );
      const auto words = [ target ]( U32 id ) { return inWords( TableKey( target, id ) ); };
      if ( meant && !held_ ) findings().missing( name(), "binding", words( *meant ) );
      if ( !held_ ) return;
      if ( !meant )
         findings().unexpected( name(), "binding", words( *held_ ) );
      else
         findings().compare( name(), "binding", words( *meant ), words( *held_ ) );
      if ( !comparison().ruleTables.contains( { target, *held_ } ) )
         findings().dangling( name(), "binding", words( *held_ ) + " does not exist" );
   }
   bool toldPolicy( const char * expected, const std::string & cmd, const std::string & bytes ) {
      vex::pb::PolicyApplyArg arg;
      if ( cmd != expected || !arg.ParseFromString( bytes ) ) return false;
      held_ = arg.policy_id();
      return true;
   }
   std::optional< U32 > held_;
};

class AccessListComparer : public BindingComparer {
 public:
   using BindingComparer::BindingComparer;
   bool finish() override {
      const auto & proxy = static_cast< const Vex::KyAcl & >( module() );
      const auto & data = session().agent()->aclHelper()->vexAclData(
           Vex::AclTypeAndName( proxy.aclTypeIntfAndDirection().aclType(), proxy.aclName() ) );
      finishBinding( AclTarget::security, data ? std::optional< U32 >( data->hwAclId() ) : std::nullopt );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      vex::pb::KyApplyAclArg arg;
      if ( cmd != "applyAcl" || !arg.ParseFromString( bytes ) ) return false;
      held_ = arg.acl_id();
      return true;
   }
};

class PolicyComparer : public BindingComparer {
 public:
   using BindingComparer::BindingComparer;
   bool finish() override {
      finishBinding( AclTarget::qos, static_cast< const Vex::PolicyQos & >( module() ).policyId() );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      return toldPolicy( "applyServicePolicy", cmd, bytes );
   }
};

class TrapComparer : public BindingComparer {
 public:
   using BindingComparer::BindingComparer;
   // It is meant to point at the control plane's policy, where there is one.
   bool finish() override {
      std::optional< U32 > meant;
      for ( const auto & [ target, id ] : comparison().ruleTables )
         if ( target == AclTarget::cpu && ( !meant || id == held_ ) ) meant = id;
      finishBinding( AclTarget::cpu, meant );
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & bytes ) override {
      return toldPolicy( "applyPolicy", cmd, bytes );
   }
};

template < typename Of >
std::unique_ptr< Comparer > make( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< Of >( comparison, module );
}

} // namespace

std::unique_ptr< Comparer > ruleTablesComparer( Comparison & comparison, Vex::Module & module ) {
   return make< RuleTablesComparer >( comparison, module );
}

std::unique_ptr< Comparer > accessListComparer( Comparison & comparison, Vex::Module & module ) {
   return make< AccessListComparer >( comparison, module );
}

std::unique_ptr< Comparer > policyComparer( Comparison & comparison, Vex::Module & module ) {
   return make< PolicyComparer >( comparison, module );
}

std::unique_ptr< Comparer > trapComparer( Comparison & comparison, Vex::Module & module ) {
   return make< TrapComparer >( comparison, module );
}

} // namespace Host
