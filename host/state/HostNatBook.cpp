#include "HostNatBook.h"

#include "HostNatText.h"

namespace Host {

namespace {

using Ip::Nat::DynamicKey;
using Ip::Nat::StaticKey;

constexpr U8 tcp = 6, udp = 17;

// A person who tells a rule expects that packets are translated.
ChangeResult accepted() {
   auto result = done();
   result.message = "accepted; this data plane has no translation, so no packet is translated";
   return result;
}

Gant::String wrongEnd( const Kynet::IpAndPort & end ) {
   const auto first = end.ip().value() >> 24;
   return first == 0 || first >= 224 ? "address " + end.ip().stringValue() + " is not one of a host" : "";
}

} // namespace

Gant::String textOf( const StaticKey & key ) {
   auto text = "NAT of " + key.target().stringValue() + " " + textOf( key.original() );
   if ( key.protocol() != 0 ) text += " of protocol " + std::to_string( key.protocol() );
   if ( !key.acl().empty() ) text += " by list " + key.acl();
   return text + " on " + key.intfId().stringValue();
}

Gant::String textOf( const DynamicKey & key ) {
   return "NAT of list " + key.acl() + " in VLAN " + std::to_string( key.vlan() );
}

static Gant::String wrongStatic( const NatStaticFact & fact ) {
   const auto & from = fact.key.original();
   const auto & to = fact.connection.translated();
   for ( const auto & end : { from, to } )
      if ( auto text = wrongEnd( end ); !text.empty() ) return text;
   if ( from == to ) return "it is translated to itself";
   const bool port = from.port().value() != 0;
   if ( port != ( to.port().value() != 0 ) ) return "only one of the two has a port";
   if ( port && fact.key.protocol() != tcp && fact.key.protocol() != udp )
      return "ports are those of the protocol tcp or udp";
   return {};
}

ChangeResult NatBook::staticIs( const NatStaticFact & fact, Teller teller ) {
   if ( auto text = wrongStatic( fact ); !text.empty() ) return invalid( textOf( fact.key ) + ": " + text );
   if ( !intfs_.intfs().contains( fact.key.intfId() ) )
      return refused( textOf( fact.key ) + ": the interface does not exist" );
   statics_[ fact.key ] = { fact, teller };
   tree_.natStatus->staticConnectionIs( fact.key, fact.connection );
   return accepted();
}

ChangeResult NatBook::dynamicIs( const NatDynamicFact & fact, Teller teller ) {
   dynamics_[ fact.key ] = { fact, teller };
   tree_.natStatus->dynamicRuleIs( fact.key, fact.rule );
   return accepted();
}

ChangeResult NatBook::staticDel( const StaticKey & key ) {
   if ( statics_.erase( key ) == 0 ) return notFound( textOf( key ) + " does not exist" );
   tree_.natStatus->staticConnectionDel( key );
   return done();
}

ChangeResult NatBook::dynamicDel( const DynamicKey & key ) {
   if ( dynamics_.erase( key ) == 0 ) return notFound( textOf( key ) + " does not exist" );
   tree_.natStatus->dynamicRuleDel( key );
   return done();
}

void NatBook::intfDel( Kynet::IntfId intfId ) {
   std::vector< StaticKey > gone;
   for ( const auto & [ key, told ] : statics_ )
      if ( key.intfId() == intfId ) gone.push_back( key );
   for ( const auto & key : gone ) staticDel( key );
}

} // namespace Host
