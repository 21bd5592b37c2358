#include "HostVirtualMacBook.h"

#include "StateFhrp.h"

namespace Host {

Gant::String VirtualMacBook::nameOf( const VirtualMacFact & fact ) {
   return "virtual MAC " + fact.mac.stringValue() + " on " + fact.intfId.stringValue();
}

void VirtualMacBook::announce( const VirtualMacFact & fact, bool present ) {
   const Routing::Fhrp::VirtualRouterMac key( fact.intfId, fact.mac );
   if ( present )
      tree_.virtualMacStatus->vrrpVirtualMacIs( key, true );
   else
      tree_.virtualMacStatus->vrrpVirtualMacDel( key );
}

ChangeResult VirtualMacBook::virtualMacIs( const VirtualMacFact & fact, Teller teller ) {
   const auto name = nameOf( fact ) + ": ";
   if ( !fact.mac ) return invalid( name + "the MAC is zero" );
   if ( fact.mac.multicast() ) return invalid( name + "it is a multicast address" );
   const auto intf = intfs_.intfs().find( fact.intfId );
   if ( intf == intfs_.intfs().end() ) return refused( name + "the interface does not exist" );
   if ( intf->second.fact.tunnel ) return refused( name + "a tunnel has no MACs" );
   virtualMacs_[ { fact.intfId, fact.mac } ] = { fact, teller };
   announce( fact, true );
   return done();
}

ChangeResult VirtualMacBook::virtualMacDel( const VirtualMacFact & fact ) {
   if ( virtualMacs_.erase( { fact.intfId, fact.mac } ) == 0 ) return notFound( nameOf( fact ) + " does not exist" );
   announce( fact, false );
   return done();
}

std::vector< VirtualMacFact > VirtualMacBook::macsOf( Kynet::IntfId intfId ) const {
   std::vector< VirtualMacFact > facts;
   for ( auto at = virtualMacs_.lower_bound( { intfId, {} } ); at != virtualMacs_.end() && at->first.first == intfId;
         ++at )
      facts.push_back( at->second.fact );
   return facts;
}

void VirtualMacBook::intfDel( Kynet::IntfId intfId ) {
   for ( const auto & fact : macsOf( intfId ) ) virtualMacDel( fact );
}

void VirtualMacBook::rebuilt( Kynet::IntfId intfId ) {
   for ( const auto & fact : macsOf( intfId ) ) {
      announce( fact, false );
      announce( fact, true );
   }
}

} // namespace Host
