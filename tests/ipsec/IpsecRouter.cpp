#include "IpsecRouter.h"

#include "GantTrace.h"

#include <algorithm>

namespace Test {

ConnectionKey connectionKey( U32 reqid, EncapIdType type, const char * vrfName ) {
   return ConnectionKey( Kynet::NamespaceName( vrfName ), EncapId( reqid, type ) );
}

SecurityAssociation aesSha1( U32 spi ) {
   using namespace Ipsec::Ike;
   SecurityAssociation sa;
   sa.sakeyIs( SaKey( SaId( spi, Kynet::IpGenAddr( ip( "198.51.100.9" ) ), 50 ), 2 ) );
   sa.saddrIs( Kynet::IpGenAddr( ip( "192.0.2.1" ) ) );
   sa.replay_windowIs( 64 );
   sa.cryptoAlgoIs( "aes" );
   sa.cryptoKeyIs( KeyMaterial( cryptoSecret ) );
   sa.cryptoKeyLenIs( 128 );
   sa.authAlgoIs( "sha1" );
   sa.authKeyIs( KeyMaterial( authSecret ) );
   sa.authKeyLenIs( 160 );
   return sa;
}

Connection connection( std::initializer_list< const char * > intfNames, std::initializer_list< U32 > inboundSpis,
                       std::optional< U32 > outboundSpi ) {
   Connection made;
   made.nameIs( "site-b" );
   HulIpsec::IntfList intfList;
   for ( const char * name : intfNames ) intfList.intfIs( intf( name ), true );
   made.intfListIs( intfList );
   HulIpsec::SecurityAssociationQueue saq;
   for ( const U32 spi : inboundSpis ) saq.saqEnq( aesSha1( spi ) );
   made.inSaqIs( saq );
   if ( outboundSpi ) made.outSaIs( aesSha1( *outboundSpi ) );
   return made;
}

void IpsecRouter::start() {
   tableSm = Gant::make< HulIpsec::HulConnectionTableSm >( HulIpsec::HulConnectionTableSm::Args{ helper, table } );
}

Lines IpsecRouter::pairs() const {
   Lines out;
   for ( const auto & [ key, pair ] : helper->outTunnelIpsecModulePairIterator() )
      out.push_back( pair->forwardOutTunnelModule()->name() + ( pair->active() ? " active" : " inactive" ) );
   std::ranges::sort( out );
   return out;
}

Lines IpsecRouter::flows() const {
   Lines out;
   for ( const auto & [ flowKey, users ] : managementSm->flowEntryIterator() ) out.push_back( flowKey.stringValue() );
   return out;
}

Lines traced( const char * unit ) {
   Lines out;
   for ( const auto & line : Gant::traceLines( 10000, unit ) ) out.push_back( line.text );
   return out;
}

} // namespace Test
