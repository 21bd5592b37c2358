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

// Bytes of an ESP packet's pieces, by the names of the algorithms.
struct EspSizes {
   U32 iv, block, icv;
};

EspSizes sizesOf( const Ipsec::Ike::SecurityAssociation & sa ) {
   if ( sa.cryptoAlgo() == "rfc4106(gcm(aes))" ) return { 8, 4, sa.icvLen() == 0 ? 16u : sa.icvLen() / 8u }; // RFC 4106
   const U32 icv = sa.authAlgo() == "sha1" ? 12 : sa.authAlgo() == "hmac(sha256)" ? 16 : 0; // RFC 2404, 4868
   return sa.cryptoAlgo() == "aes" ? EspSizes{ 16, 16, icv } : EspSizes{ 0, 4, icv };       // RFC 3602, 2410
}

// The largest packet that leaves whole once it is protected (RFC 4303).
U32 packetMost( const Connection & connection ) {
   constexpr U32 ipHeader = 20, udpHeader = 8, espHeader = 8, trailer = 2;
   const auto & sa = connection.outSa();
   if ( !sa ) return IntfBook::underlayMtu;
   const auto [ iv, block, icv ] = sizesOf( *sa );
   const auto room = IntfBook::underlayMtu - ipHeader - ( sa->encapType() != 0 ? udpHeader : 0 ) - espHeader - iv - icv;
   const auto protectedMost = room / block * block - trailer;
   return sa->mode() == Ipsec::Ike::SaMode::IPSEC_TUNNEL_MODE_ ? protectedMost : ipHeader + protectedMost;
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
      if ( !fact.connection.intfList().intf( intfId ) ) intfs_.ipsecIs( intfId, 0 );
   for ( const auto intfId : fact.connection.intfList() )
      intfs_.ipsecIs( intfId, fact.key.encapId().reqid(), packetMost( fact.connection ) );
   return done();
}

ChangeResult IpsecBook::connectionDel( const Gant::Name & name ) {
   const auto at = connections_.find( name );
   if ( at == connections_.end() ) return notFound( "IPsec connection " + name + " does not exist" );
   remove( at->second.fact );
   for ( const auto intfId : at->second.fact.connection.intfList() ) intfs_.ipsecIs( intfId, 0 );
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
