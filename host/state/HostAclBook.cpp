#include "HostAclBook.h"

#include "StateAclCheck.h"
#include "VexKyAclDb.h"

#include <algorithm>
#include <set>

namespace Host {

namespace {

Gant::String listObject( const Gant::String & name ) { return "access-list " + name; }
Gant::String classObject( const Gant::String & name ) { return "class-map " + name; }
Gant::String policyObject( const Gant::String & name ) { return "policy-map " + name; }

// What to say about it: of errors the first, of notes all.
ChangeResult verdictOn( const Acl::Problems & problems ) {
   ChangeResult result;
   for ( const auto & problem : problems ) {
      const auto text = problem.object + ": " + problem.text;
      if ( problem.severity == Acl::Problem::Severity::error ) return invalid( text );
      result.message += ( result.message.empty() ? "" : "\n" ) + text;
   }
   return result;
}

// Names of the tables that the filters take in the data plane: lists and policies share its ids.
void addTables( const IntfFilters & filters, std::set< Gant::String > & tables ) {
   for ( const auto & list : { filters.aclIn, filters.aclOut } )
      if ( !list.empty() ) tables.insert( listObject( list ) );
   if ( !filters.policyIn.empty() ) tables.insert( policyObject( filters.policyIn ) );
}

} // namespace

void AclBook::noteDenies( const ClassMapFact & fact, const Gant::String & list, ChangeResult & verdict ) const {
   const auto & told = lists_.at( list ).fact;
   const auto notes = verdictOn( Acl::deniesLeftOut( classObject( fact.name ), told.key, told.entries ) ).message;
   if ( notes.empty() ) return;
   verdict.message += ( verdict.message.empty() ? "" : "\n" ) + notes;
}

// Who needs a list of IPv4 of that name; empty: nobody.
Gant::String AclBook::listUser( const Gant::String & name ) const {
   for ( const auto & [ className, told ] : classMaps_ )
      if ( std::ranges::count( told.fact.config.accessLists, name ) != 0 )
         return classObject( className ) + " matches by it";
   for ( const auto & [ intfId, told ] : intfs_.intfs() )
      if ( told.fact.filters.aclIn == name || told.fact.filters.aclOut == name )
         return "interface " + intfId.stringValue() + " has it";
   return {};
}

ChangeResult AclBook::listIs( const AclFact & fact, Teller teller ) {
   const auto & name = fact.key.name();
   auto verdict = verdictOn( Acl::validate( fact.key, fact.entries ) );
   if ( !isDone( verdict ) ) return verdict;
   const auto at = lists_.find( name );
   const bool moves = at != lists_.end() && at->second.fact.key != fact.key;
   if ( moves ) {
      if ( const auto user = listUser( name ); !user.empty() )
         return refused( listObject( name ) + ": " + user + ", and its type stays" );
      tree_.aclCliConfig->aclConfigDel( at->second.fact.key );
   }
   lists_[ name ] = { fact, teller };
   for ( const auto & [ className, told ] : classMaps_ )
      if ( std::ranges::count( told.fact.config.accessLists, name ) != 0 ) noteDenies( told.fact, name, verdict );
   if ( const auto & list = tree_.aclCliConfig->aclConfig( fact.key ) ) {
      list->entriesIs( fact.entries );
      return verdict;
   }
   const auto list = Gant::make< Acl::AclConfig >( fact.key );
   list->entriesIs( fact.entries );
   tree_.aclCliConfig->aclConfigIs( fact.key, list );
   return verdict;
}

ChangeResult AclBook::listDel( const Gant::String & name ) {
   const auto at = lists_.find( name );
   if ( at == lists_.end() ) return notFound( listObject( name ) + " does not exist" );
   if ( const auto user = listUser( name ); !user.empty() ) return refused( listObject( name ) + ": " + user );
   tree_.aclCliConfig->aclConfigDel( at->second.fact.key );
   lists_.erase( at );
   return done();
}

// Why it cannot be matched or applied; empty when it can.
Gant::String AclBook::wrongList( const Gant::String & name ) const {
   const auto at = lists_.find( name );
   if ( at == lists_.end() ) return "there is no " + listObject( name );
   if ( at->second.fact.key.type() == Acl::mac )
      return listObject( name ) + " is a MAC list, which this data plane does not apply";
   return {};
}

ChangeResult AclBook::classMapIs( const ClassMapFact & fact, Teller teller ) {
   const auto object = classObject( fact.name ) + ": ";
   if ( fact.name == Qos::classDefault ) return invalid( object + "the name is that of what no other class matches" );
   auto verdict = verdictOn( Qos::validate( fact.name, fact.config ) );
   if ( !isDone( verdict ) ) return verdict;
   for ( const auto & name : fact.config.accessLists )
      if ( const auto text = wrongList( name ); !text.empty() ) return refused( object + text );
   for ( const auto & name : fact.config.accessLists ) noteDenies( fact, name, verdict );
   classMaps_[ fact.name ] = { fact, teller };
   tree_.qosStatus->classMapIs( fact.name, fact.config );
   return verdict;
}

ChangeResult AclBook::classMapDel( const Gant::String & name ) {
   const auto at = classMaps_.find( name );
   if ( at == classMaps_.end() ) return notFound( classObject( name ) + " does not exist" );
   for ( const auto & [ policy, told ] : policyMaps_ )
      if ( std::ranges::count( told.fact.config.classes, name, &Qos::PolicyClass::name ) != 0 )
         return refused( classObject( name ) + ": " + policyObject( policy ) + " has it" );
   tree_.qosStatus->classMapDel( name );
   classMaps_.erase( at );
   return done();
}

ChangeResult AclBook::policyMapIs( const PolicyMapFact & fact, Teller teller ) {
   auto verdict = verdictOn( Qos::validate( fact.name, fact.config, *tree_.qosStatus, *tree_.aclCliConfig ) );
   // It may be for want of a class.
   if ( !isDone( verdict ) ) return refused( std::move( verdict.message ) );
   policyMaps_[ fact.name ] = { fact, teller };
   tree_.qosStatus->policyMapIs( fact.name, fact.config );
   return verdict;
}

ChangeResult AclBook::policyMapDel( const Gant::String & name ) {
   const auto at = policyMaps_.find( name );
   if ( at == policyMaps_.end() ) return notFound( policyObject( name ) + " does not exist" );
   for ( const auto & [ intfId, told ] : intfs_.intfs() )
      if ( told.fact.filters.policyIn == name )
         return refused( policyObject( name ) + ": interface " + intfId.stringValue() + " has it" );
   tree_.qosStatus->policyMapDel( name );
   policyMaps_.erase( at );
   return done();
}

size_t AclBook::tablesWith( const IntfFact & fact ) const {
   std::set< Gant::String > tables;
   addTables( fact.filters, tables );
   for ( const auto & [ intfId, told ] : intfs_.intfs() )
      if ( intfId != fact.intfId ) addTables( told.fact.filters, tables );
   return tables.size();
}

Gant::String AclBook::wrong( const IntfFact & fact ) const {
   const auto & filters = fact.filters;
   for ( const auto & name : { filters.aclIn, filters.aclOut } )
      if ( !name.empty() )
         if ( auto text = wrongList( name ); !text.empty() ) return text;
   if ( !filters.policyIn.empty() && !policyMaps_.contains( filters.policyIn ) )
      return "there is no " + policyObject( filters.policyIn );
   if ( filters == IntfFilters() ) return {};
   // The control plane's policy has one.
   constexpr size_t tablesMax = Vex::KyAclDb::maxAcls() - 1;
   if ( tablesWith( fact ) > tablesMax )
      return Gant::textsOf( "its filters are one more than the ", tablesMax,
                            " access lists and policies that the data plane has room for" );
   return {};
}

} // namespace Host
