// access-lists, class-maps and policy-maps.
#include "HostSection.h"

#include "HostRuleText.h"
#include "HostVerdict.h"
#include "StateAclCheck.h"

#include <algorithm>

namespace Host {

namespace {

// The sections of the book's named objects differ in what they read and where they tell it.
template < typename Objects >
std::vector< Gant::String > goneOf( const Objects & objects, Teller teller, const std::set< std::string > & keys ) {
   std::vector< Gant::String > gone;
   for ( const auto & [ name, told ] : objects )
      if ( told.teller == teller && !keys.contains( name ) ) gone.push_back( name );
   return gone;
}

class NamedSection : public Section {
 public:
   std::string key( const Entry & entry ) const override { return entry.name( "name", kind() ); }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      return delNamed( state.aclBook(), key( entry ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      std::vector< ChangeResult > refusals;
      for ( const auto & name : gone( state.aclBook(), teller, keys ) )
         if ( auto result = delNamed( state.aclBook(), name ); !isDone( result ) )
            refusals.push_back( std::move( result ) );
      return refusals;
   }

 protected:
   virtual ChangeResult delNamed( AclBook & book, const Gant::String & name ) const = 0;
   // Those of the source under other names than these.
   virtual std::vector< Gant::String > gone( const AclBook & book, Teller teller,
                                             const std::set< std::string > & keys ) const = 0;
};

class AccessListSection : public NamedSection {
 public:
   const char * name() const override { return "access-lists"; }
   const char * kind() const override { return "access-list"; }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.aclBook().lists().contains( key( entry ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "name", "type", "rules" } );
      AclFact fact{ Acl::ListKey( typeOf( entry ), key( entry ) ), {} };
      // Of what the data plane has not at all the rules are not asked.
      if ( fact.key.type() != Acl::ipv6 )
         for ( const auto & rule : entry.list( "rules" ) ) readRule( rule, fact );
      return state.aclBook().listIs( fact, teller );
   }

 protected:
   ChangeResult delNamed( AclBook & book, const Gant::String & name ) const override { return book.listDel( name ); }
   std::vector< Gant::String > gone( const AclBook & book, Teller teller,
                                     const std::set< std::string > & keys ) const override {
      return goneOf( book.lists(), teller, keys );
   }

 private:
   static Acl::AclType typeOf( const Entry & entry ) {
      if ( !entry.has( "type" ) ) return Acl::ip;
      const auto text = entry.at( "type" ).text( "a type" );
      if ( text == "ip" ) return Acl::ip;
      if ( text == "ipv6" ) return Acl::ipv6;
      if ( text == "mac" ) return Acl::mac;
      entry.at( "type" ).fail( "type \"" + text + "\" is not ip, ipv6 or mac" );
   }

   // In steps from the rule with the highest number. A remark stands right behind what has the highest of all.
   static U32 nextSequence( const Acl::Entries & entries, bool remark ) {
      constexpr U32 step = 10;
      const U32 last = entries.empty() ? 0 : entries.rbegin()->first;
      if ( remark ) return last + 1;
      const auto rule = std::find_if( entries.rbegin(), entries.rend(),
                                      []( const auto & entry ) { return !entry.second.isRemark; } );
      return std::max( last + 1, ( rule == entries.rend() ? 0 : rule->first ) + step );
   }

   // Checked one by one: an error has the rule's own line.
   static void readRule( const Entry & entry, AclFact & fact ) {
      RuleLine line;
      const auto wrong = parseRule( fact.key.type(), entry.text( "a rule" ), line );
      const auto sequence = line.sequence.value_or( nextSequence( fact.entries, line.entry.isRemark ) );
      const auto place = Gant::textsOf( "access-list ", fact.key.name(), ", sequence ", sequence );
      if ( !wrong.empty() ) entry.fail( place + ": " + wrong );
      for ( const auto & problem : Acl::validate( fact.key, { { sequence, line.entry } } ) )
         if ( problem.severity == Acl::Problem::Severity::error ) entry.fail( problem.object + ": " + problem.text );
      const auto [ at, added ] = fact.entries.emplace( sequence, std::move( line.entry ) );
      if ( added ) return;
      // A remark may have its number from where it stands.
      if ( at->second.isRemark ) entry.fail( place + " is that of the remark \"" + at->second.remark + "\"" );
      entry.fail( place + " is there twice" );
   }
};

class ClassMapSection : public NamedSection {
 public:
   const char * name() const override { return "class-maps"; }
   const char * kind() const override { return "class-map"; }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.aclBook().classMaps().contains( key( entry ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      using Option = Qos::ClassMapMatchOption;
      entry.only( { "name", "match" } );
      ClassMapFact fact{ key( entry ), { Option::matchNone_, {}, 0 } };
      const auto match = entry.at( "match" );
      match.only( { "access-list", "ipv6-access-list", "vlan" } );
      if ( match.node().size() > 1 ) match.fail( "class-map " + fact.name + " matches in one way" );
      const auto listsAre = [ & ]( const char * key, Option option ) {
         if ( match.has( key ) ) fact.config.matchOption = option;
         for ( const auto & list : match.list( key ) )
            fact.config.accessLists.push_back( list.text( "an access-list" ) );
      };
      listsAre( "access-list", Option::matchIpAccessGroup_ );
      listsAre( "ipv6-access-list", Option::matchIpv6AccessGroup_ );
      if ( match.has( "vlan" ) ) fact.config.matchOption = Option::matchVlan_;
      return state.aclBook().classMapIs( fact, teller );
   }

 protected:
   ChangeResult delNamed( AclBook & book, const Gant::String & name ) const override {
      return book.classMapDel( name );
   }
   std::vector< Gant::String > gone( const AclBook & book, Teller teller,
                                     const std::set< std::string > & keys ) const override {
      return goneOf( book.classMaps(), teller, keys );
   }
};

class PolicyMapSection : public NamedSection {
 public:
   const char * name() const override { return "policy-maps"; }
   const char * kind() const override { return "policy-map"; }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.aclBook().policyMaps().contains( key( entry ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "name", "classes" } );
      PolicyMapFact fact{ key( entry ), {} };
      for ( const auto & item : entry.list( "classes" ) ) fact.config.classes.push_back( classOf( item ) );
      return state.aclBook().policyMapIs( fact, teller );
   }

 protected:
   ChangeResult delNamed( AclBook & book, const Gant::String & name ) const override {
      return book.policyMapDel( name );
   }
   std::vector< Gant::String > gone( const AclBook & book, Teller teller,
                                     const std::set< std::string > & keys ) const override {
      return goneOf( book.policyMaps(), teller, keys );
   }

 private:
   static Qos::PolicyClass classOf( const Entry & entry ) {
      using Action = Qos::ActionType;
      entry.only( { "class", "set", "police" } );
      Qos::PolicyClass policyClass{ entry.name( "class", "class-map" ), {} };
      if ( entry.has( "police" ) ) policyClass.actions[ Action::actionPolice_ ] = 0;
      if ( !entry.has( "set" ) ) return policyClass;
      const auto set = entry.at( "set" );
      set.only( { "dscp", "traffic-class", "cos" } );
      if ( set.has( "dscp" ) ) policyClass.actions[ Action::actionSetDscp_ ] = dscp( set.at( "dscp" ) );
      if ( set.has( "traffic-class" ) )
         policyClass.actions[ Action::actionSetTc_ ] = set.number( "traffic-class", 0, Qos::trafficClassMax, 0 );
      if ( set.has( "cos" ) ) policyClass.actions[ Action::actionSetCos_ ] = 0;
      return policyClass;
   }
   static U32 dscp( const Entry & entry ) {
      const auto text = entry.text( "a DSCP" );
      const auto value = dscpOf( text );
      if ( !value ) entry.fail( "dscp \"" + text + "\" is not a name, or a number from 0 to 63" );
      return *value;
   }
};

} // namespace

std::unique_ptr< const Section > accessListSection() { return std::make_unique< AccessListSection >(); }
std::unique_ptr< const Section > classMapSection() { return std::make_unique< ClassMapSection >(); }
std::unique_ptr< const Section > policyMapSection() { return std::make_unique< PolicyMapSection >(); }

} // namespace Host
