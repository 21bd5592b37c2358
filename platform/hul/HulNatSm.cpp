#include "HulNatSm.h"

#include "HulCommonSmData.h"

#include <algorithm>

namespace HulHelper {

bool HulHelperNat::addStaticIpTranslations( const IpAndPort & original, const IpAndPort & translated,
                                            const Filter & filter, U8 protocol, U16 vlan, const StaticKey & key,
                                            NextHopInfo nextHop ) {
   return addStaticSrcIpTranslation( original, translated, filter, protocol, vlan, key ) &&
          addStaticDstIpTranslation( translated, original, filter, protocol, vlan, key, std::move( nextHop ) );
}

bool HulHelperNat::updateStaticDstIpTranslations( const IpAndPort & original, const IpAndPort & translated,
                                                  const Filter & filter, U8 protocol, U16 vlan, const StaticKey & key,
                                                  NextHopInfo nextHop ) {
   return updateStaticDstIpTranslation( original, translated, filter, protocol, vlan, key, std::move( nextHop ) );
}

bool HulHelperNat::deleteStaticIpTranslations( U16 vlan, const StaticKey & key ) {
   const bool source = deleteStaticSrcIpTranslation( vlan, key );
   return deleteStaticDstIpTranslation( vlan, key ) && source;
}

} // namespace HulHelper

namespace Hul {

using Ip::Nat::DynamicKey;
using Ip::Nat::NatTarget;
using Ip::Nat::StaticConnection;
using Ip::Nat::StaticKey;

struct NatSm::GantNatStatus : Ip::Nat::Status::Notifiee {
   explicit GantNatStatus( NatSm * owner ) : Notifiee( owner, owner->args_.natStatus ), owner( owner ) {}
   void onStaticConnection( const StaticKey & key ) override { owner->handleStaticConnection( key ); }
   void onDynamicRule( const DynamicKey & key ) override { owner->handleDynamicRule( key ); }
   void onRenotify() override { owner->review(); }
   NatSm * owner;
};

struct NatSm::GantNextHops : NextHopMapStatus::Notifiee {
   explicit GantNextHops( NatSm * owner ) : Notifiee( owner, owner->args_.nhMapStatus ), owner( owner ) {}
   void onNextHop( const Kynet::IpAddr & addr ) override { owner->handleNextHop( addr ); }
   void onRenotify() override {
      for ( const auto & addr : owner->args_.nhMapConfig->routeResolverRequestKeys() ) owner->handleNextHop( addr );
   }
   NatSm * owner;
};

struct NatSm::GantVerifyData : VerifyData::Notifiee {
   explicit GantVerifyData( NatSm * owner ) :
        Notifiee( owner, owner->args_.vexcsd ? owner->args_.vexcsd->verifyData() : nullptr ), owner( owner ) {}
   void onVerify() override { owner->handleVerify(); }
   void onRenotify() override { onVerify(); }
   NatSm * owner;
};

NatSm::NatSm( Args args ) :
     args_( std::move( args ) ), natReactor_( std::make_unique< GantNatStatus >( this ) ),
     nextHopReactor_( std::make_unique< GantNextHops >( this ) ),
     verifyReactor_( std::make_unique< GantVerifyData >( this ) ) {
   if ( !args_.natStatus ) args_.natStatus = Gant::make< Ip::Nat::Status >();
   if ( !args_.natHwStatus ) args_.natHwStatus = Gant::make< Ip::Nat::HwStatus >();
   if ( !args_.nhMapConfig ) args_.nhMapConfig = Gant::make< NextHopMapConfig >();
   if ( !args_.nhMapStatus ) args_.nhMapStatus = Gant::make< NextHopMapStatus >();
}

NatSm::~NatSm() = default;

void NatSm::startIs( bool start ) {
   if ( start_ == start ) return;
   if ( !args_.natHelper ) {
      start_ = start;
   } else if ( start ) {
      start_ = true;
      // What a former agent was told.
      args_.natHwStatus->staticConnectionDelAll();
      args_.natHwStatus->dynamicRuleDelAll();
      args_.natHelper->hwInit();
      review();
   } else {
      withdraw();
      args_.natHelper->hwCleanup();
      start_ = false;
   }
}

void NatSm::review() {
   for ( const auto & key : args_.natHwStatus->staticConnectionKeys() ) handleStaticConnection( key );
   for ( const auto & key : args_.natStatus->staticConnectionKeys() ) handleStaticConnection( key );
   for ( const auto & key : args_.natHwStatus->dynamicRuleKeys() ) handleDynamicRule( key );
   for ( const auto & key : args_.natStatus->dynamicRuleKeys() ) handleDynamicRule( key );
}

void NatSm::withdraw() {
   for ( const auto & key : args_.natHwStatus->staticConnectionKeys() ) del( key );
   for ( const auto & key : args_.natHwStatus->dynamicRuleKeys() ) {
      args_.natHelper->delAddrOnlyAclSliceRule( key.vlan(), key.acl() );
      args_.natHwStatus->dynamicRuleDel( key );
   }
   args_.natHelper->commitHwTranslations();
   args_.natHelper->commitAddrOnlyAclSliceRules();
}

void NatSm::handleStaticConnection( const StaticKey & key ) {
   if ( !calling() ) return;
   const bool wanted = args_.natStatus->staticConnectionHas( key );
   const auto & connection = args_.natStatus->staticConnection( key );
   const auto told = args_.natHwStatus->staticConnection( key );
   if ( told ? wanted && told->connection() == connection : !wanted ) return;
   if ( told ) del( key );
   if ( wanted ) {
      const auto hw = args_.natHwStatus->staticConnectionIs( key );
      hw->connectionIs( connection );
      hw->acceptedIs( add( key, connection ) );
   }
   args_.natHelper->commitHwTranslations();
}

bool NatSm::add( const StaticKey & key, const StaticConnection & connection ) {
   if ( key.target() == NatTarget::source_ )
      return args_.natHelper->addStaticSrcIpTranslation( key.original(), connection.translated(), connection.filter(),
                                                         key.protocol(), connection.vlan(), key );
   const auto translated = connection.translated().ip();
   requestIs( translated );
   return args_.natHelper->addStaticDstIpTranslation( key.original(), connection.translated(), connection.filter(),
                                                      key.protocol(), connection.vlan(), key,
                                                      args_.nhMapStatus->nextHop( translated ) );
}

void NatSm::del( const StaticKey & key ) {
   const auto told = args_.natHwStatus->staticConnectionDel( key );
   const auto & connection = told->connection();
   if ( key.target() == NatTarget::source_ ) {
      args_.natHelper->deleteStaticSrcIpTranslation( connection.vlan(), key );
      return;
   }
   args_.natHelper->deleteStaticDstIpTranslation( connection.vlan(), key );
   requestIs( connection.translated().ip() );
}

// An address is asked for while a translated destination has it.
void NatSm::requestIs( Kynet::IpAddr addr ) {
   const bool wanted = std::ranges::any_of( args_.natHwStatus->staticConnectionIterator(), [ & ]( const auto & entry ) {
      return entry.first.target() == NatTarget::destination_ && entry.second->connection().translated().ip() == addr;
   } );
   args_.nhMapConfig->routeResolverRequestIs( addr, wanted );
}

void NatSm::handleNextHop( Kynet::IpAddr addr ) {
   if ( !calling() ) return;
   bool changed = false;
   for ( const auto & [ key, told ] : args_.natHwStatus->staticConnectionIterator() ) {
      const auto & connection = told->connection();
      if ( key.target() != NatTarget::destination_ || connection.translated().ip() != addr ) continue;
      told->acceptedIs( args_.natHelper->updateStaticDstIpTranslation(
           key.original(), connection.translated(), connection.filter(), key.protocol(), connection.vlan(), key,
           args_.nhMapStatus->nextHop( addr ) ) );
      changed = true;
   }
   if ( changed ) args_.natHelper->commitHwTranslations();
}

void NatSm::handleDynamicRule( const DynamicKey & key ) {
   if ( !calling() ) return;
   const bool told = args_.natHwStatus->dynamicRuleHas( key );
   if ( told ) {
      args_.natHelper->delAddrOnlyAclSliceRule( key.vlan(), key.acl() );
      args_.natHwStatus->dynamicRuleDel( key );
   }
   if ( args_.natStatus->dynamicRuleHas( key ) ) {
      const auto & rule = args_.natStatus->dynamicRule( key );
      args_.natHwStatus->dynamicRuleIs(
           key, args_.natHelper->addAddrOnlyDenyAllAcl( key.vlan(), key.acl(), rule.priority(), rule.target() ) );
   } else if ( !told ) {
      return;
   }
   args_.natHelper->commitAddrOnlyAclSliceRules();
}

void NatSm::handleVerify() {
   if ( !calling() ) return;
   args_.natHelper->handleVerifyInit();
   for ( const auto & [ key, told ] : args_.natHwStatus->staticConnectionIterator() ) {
      const auto & connection = told->connection();
      args_.natHelper->verifyStaticNat( key, key.target(), key.original(), connection.translated(), connection.filter(),
                                        key.protocol(), connection.vlan(), told->accepted() );
   }
   args_.natHelper->verifyDynamicNat( args_.natStatus, args_.natHwStatus );
}

void NatSm::pollCounters() {
   if ( !calling() ) return;
   for ( const auto & [ key, told ] : args_.natHwStatus->staticConnectionIterator() ) {
      const U64 packets = key.target() == NatTarget::source_
                               ? args_.natHelper->getStaticSrcCountersSinceLastPoll( told )
                               : args_.natHelper->getStaticDstCountersSinceLastPoll( told );
      told->packetsIs( told->packets() + packets );
   }
}

} // namespace Hul
