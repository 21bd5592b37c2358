#include "HostVlanBook.h"

namespace Host {

namespace {

Gant::String nameOf( Bridging::VlanId vlanId ) { return "VLAN " + std::to_string( vlanId.value() ); }

bool canBeMember( Kynet::IntfId intfId ) {
   switch ( intfId.type().value() ) {
   case Kynet::IntfType::ethernet_:
   case Kynet::IntfType::portChannel_:
   case Kynet::IntfType::cpu_: return true;
   default: return false;
   }
}

bool isPort( Kynet::IntfId intfId ) { return intfId.type() != Kynet::IntfType::cpu_; }

// Members that are there already are not told again.
template < typename SetMember, typename DelMember, typename Keys >
void bringInLine( const std::set< Kynet::IntfId > & wanted, const Keys & present, SetMember set, DelMember del ) {
   for ( const auto intfId : present )
      if ( !wanted.contains( intfId ) ) del( intfId );
   for ( const auto intfId : wanted ) set( intfId );
}

} // namespace

ChangeResult VlanBook::vlanIs( const VlanFact & fact, Teller teller ) {
   for ( const auto intfId : fact.members )
      if ( !canBeMember( intfId ) )
         return refused( nameOf( fact.vlanId ) + ": " + intfId.stringValue() +
                         " cannot be a member: members are Ethernet and Port-Channel interfaces, and Cpu" );
   vlans_[ fact.vlanId ] = { fact, teller };
   auto config = tree_.bridgingConfig->vlanConfig( fact.vlanId );
   if ( !config ) config = Gant::make< Bridging::VlanConfig >( fact.vlanId );
   bringInLine(
        fact.members, config->intfKeys(), [ & ]( auto intfId ) { config->intfIs( intfId, true ); },
        [ & ]( auto intfId ) { config->intfIs( intfId, false ); } );
   tree_.bridgingConfig->vlanConfigIs( fact.vlanId, config );

   auto status = tree_.vlanStatusDir->vlanStatus( fact.vlanId );
   if ( !status ) status = Gant::make< Bridging::VlanStatus >( fact.vlanId );
   bringInLine(
        fact.members, status->vlanPortStatusKeys(),
        [ & ]( auto intfId ) {
           if ( isPort( intfId ) )
              status->vlanPortStatusIs( intfId, Bridging::VlanPortStatus( Bridging::TrafficDirection::both(), false ) );
        },
        [ & ]( auto intfId ) { status->vlanPortStatusDel( intfId ); } );
   tree_.vlanStatusDir->vlanStatusIs( fact.vlanId, status );
   return done();
}

ChangeResult VlanBook::vlanDel( Bridging::VlanId vlanId ) {
   if ( vlans_.erase( vlanId ) == 0 ) return notFound( nameOf( vlanId ) + " does not exist" );
   tree_.vlanStatusDir->vlanStatusDel( vlanId );
   tree_.bridgingConfig->vlanConfigDel( vlanId );
   return done();
}

} // namespace Host
