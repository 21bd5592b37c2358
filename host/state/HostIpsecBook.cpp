#include "HostIpsecBook.h"

#include "GantActivity.h"
#include "StateIpsecCheck.h"
#include "VexL3Mounts.h"

namespace Host {

namespace {

using Ipsec::Ike::Connection;
using Ipsec::Ike::SecurityAssociationQueue;

// Agreed upon now, unless `former` has them already.
void stamp( Connection & connection, const Connection & former ) {
   const auto now = Gant::activityManager()->now();
   SecurityAssociationQueue saq;
   for ( auto sa : connection.inSaq() ) {
      sa.agreedAtIs( now );
      saq.saqEnq( sa );
   }
   connection.inSaqIs( saq );
   if ( auto sa = connection.outSa() ) {
      sa->agreedAtIs( now );
      connection.outSaIs( sa );
   }
   connection.agesFrom( former );
}

} // namespace

Gant::String IpsecBook::wrong( const IpsecFact & fact ) const {
   const auto & table = tree_.ipsecMounts->connectionTable();
   const auto at = connections_.find( fact.connection.name() );
   const bool replacing = at != connections_.end() && at->second.fact.key == fact.key;
   const Ipsec::Ike::CheckScope scope{ table, tree_.allVrfStatusLocal, tree_.tunnelIntfStatusDir };
   if ( replacing || at == connections_.end() )
      return Ipsec::Ike::refusalOf( fact.key, fact.connection, scope, replacing );
   // It moves to another key: what it is to be is checked beside the others.
   const auto others = Gant::make< Ipsec::Ike::ConnectionTable >();
   for ( const auto & [ key, connection ] : table->connectionIterator() )
      if ( key != at->second.fact.key ) others->connectionIs( key, connection );
   return Ipsec::Ike::refusalOf( fact.key, fact.connection,
                                 { others, tree_.allVrfStatusLocal, tree_.tunnelIntfStatusDir }, false );
}

ChangeResult IpsecBook::connectionIs( const IpsecFact & given, Teller teller ) {
   if ( !keysRefused_.empty() ) return refused( "ipsec " + given.connection.name() + ": " + keysRefused_ );
   if ( auto text = wrong( given ); !text.empty() ) return refused( std::move( text ) );
   auto fact = given;
   const auto at = connections_.find( fact.connection.name() );
   const auto former = at == connections_.end() ? IpsecFact() : at->second.fact;
   stamp( fact.connection, former.connection );
   if ( at != connections_.end() && former.key != fact.key ) remove( former );
   connections_[ fact.connection.name() ] = { fact, teller };
   // The connection first: a tunnel that is rebuilt finds its modules.
   tree_.ipsecMounts->connectionTable()->connectionIs( fact.key, fact.connection );
   for ( const auto intfId : former.connection.intfList() )
      if ( !fact.connection.intfList().intf( intfId ) ) intfs_.ipsecEncapIdIs( intfId, 0 );
   for ( const auto intfId : fact.connection.intfList() ) intfs_.ipsecEncapIdIs( intfId, fact.key.encapId().reqid() );
   return done();
}

ChangeResult IpsecBook::connectionDel( const Gant::Name & name ) {
   const auto at = connections_.find( name );
   if ( at == connections_.end() ) return notFound( "IPsec connection " + name + " does not exist" );
   remove( at->second.fact );
   for ( const auto intfId : at->second.fact.connection.intfList() ) intfs_.ipsecEncapIdIs( intfId, 0 );
   connections_.erase( at );
   return done();
}

void IpsecBook::remove( const IpsecFact & fact ) { tree_.ipsecMounts->connectionTable()->connectionDel( fact.key ); }

Gant::String IpsecBook::keeps( Kynet::IntfId intfId ) const {
   for ( const auto & [ name, told ] : connections_ )
      if ( told.fact.connection.intfList().intf( intfId ) ) return "IPsec connection " + name + " has it";
   return {};
}

Gant::String IpsecBook::keeps( const L3::VrfName & vrf ) const {
   for ( const auto & [ name, told ] : connections_ )
      if ( told.fact.key.vrfName().value() == vrf.value() ) return "IPsec connection " + name + " is in it";
   return {};
}

} // namespace Host
