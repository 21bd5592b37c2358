// What RouteMachine watches. Not for public headers.
#pragma once

#include "HulRouteSm.h"

#include "HulCommonSmData.h"

namespace Hul {

template < typename F >
struct RouteMachine< F >::GantTable : Table::Notifiee {
   explicit GantTable( RouteMachine * owner ) : Table::Notifiee( owner, owner->args_.table ), owner( owner ) {}
   void onRoute( const Ref & ref ) override { owner->handleRoute( ref ); }
   void onFec( const U64 & fecId ) override { owner->handleFec( fecId ); }
   void onRenotify() override { owner->missed_ = true; }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantVrfDir : VrfDir::Notifiee {
   explicit GantVrfDir( RouteMachine * owner ) : Notifiee( owner, owner->args_.vrfSm->vrfDir() ), owner( owner ) {}
   void onVrfPhase( const VrfId & vrfId ) override { owner->handleVrf( vrfId ); }
   void onRenotify() override { owner->missed_ = true; }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantAdjSm : AdjSm::Notifiee {
   explicit GantAdjSm( RouteMachine * owner ) : Notifiee( owner, owner->args_.adjSm ), owner( owner ) {}
   void onCreated( const Gant::Ptr< L2Adjacency > & l2Adj ) override { owner->handleCreated( l2Adj ); }
   void onRenotify() override { owner->missed_ = true; }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantL3Status : L3Status::Notifiee {
   explicit GantL3Status( RouteMachine * owner ) : Notifiee( owner, owner->args_.hulL3Status ), owner( owner ) {}
   void onSuspendIp6RouteUpdates() override { owner->handleSuspend(); }
   void onRenotify() override { owner->missed_ = true; }
   RouteMachine * owner;
};

template < typename F >
struct RouteMachine< F >::GantProgress : Progress::Notifiee {
   explicit GantProgress( RouteMachine * owner ) : Notifiee( owner, owner->args_.common->progress() ), owner( owner ) {}
   void onRefused( const RefusedCommand & command ) override { owner->handleRefused( command ); }
   void onAcknowledged() override { owner->handleAcknowledged(); }
   void onRenotify() override {
      for ( const auto & command : notifier()->refused() ) owner->handleRefused( command );
      owner->handleAcknowledged();
   }
   RouteMachine * owner;
};

} // namespace Hul
