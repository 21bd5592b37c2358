#include "HulQosAclSm.h"

#include "HulAclLists.h"
#include "HulAclPending.h"
#include "HulAclSubrules.h"
#include "HulCommonSmData.h"
#include "HulPosted.h"
#include "HulQosHelper.h"

#include <algorithm>

namespace Hul {

struct QosAclSm::GantStatus : Qos::Status::Notifiee {
   explicit GantStatus( QosAclSm * owner ) : Notifiee( owner, owner->args_.qosStatus ), owner( owner ) {}
   void onClassMap( const Gant::String & name ) override { owner->reviewClassMap( name ); }
   void onPolicyMap( const Gant::String & name ) override { owner->reviewPolicy( name ); }
   void onServicePolicy( const Qos::ServicePolicyKey & key ) override { owner->reviewIntf( key.intfId() ); }
   void onRenotify() override { owner->reviewAll(); }
   QosAclSm * owner;
};

struct QosAclSm::GantCommon : HulCommonSmData::Notifiee {
   explicit GantCommon( QosAclSm * owner ) : Notifiee( owner, owner->args_.vexcsd ), owner( owner ) {}
   void onPort( const Kynet::IntfId & intfId ) override { owner->portIs( intfId ); }
   void onAclRoom() override {
      for ( const auto & name : Names( owner->refusals_ ) ) owner->reviewPolicy( name );
   }
   void onRenotify() override { owner->reviewAll(); }
   QosAclSm * owner;
};

// What is programmed together.
struct QosAclSm::Batch {
   struct Move {
      Kynet::IntfId intfId;
      Gant::String from; // empty: none
      Gant::String to;
   };
   std::vector< Move > moves;
   Names built;
   // What was programmed of those before.
   Gant::OrderedMap< Gant::String, std::vector< QosClassDataPtr > > oldClasses;
};

namespace {

using MatchOption = Qos::ClassMapMatchOption;
constexpr auto matchOption = MatchOption::matchIpAccessGroup_;

AclKey aclKeyOf( const Gant::String & name ) { return AclKey( name, Acl::ip, Acl::in, 0 ); }

QosPolicyMapKey keyOf( const Gant::String & policyMap ) {
   return QosPolicyMapKey( policyMap, Qos::MapType::mapQos(), Qos::Direction::input(), "Default" );
}

Qos::IntfPairKey pairOf( Kynet::IntfId intfId ) { return Qos::IntfPairKey( intfId, Kynet::IntfId() ); }

bool isDefault( const QosClassData & classData ) { return classData.key().cmapName() == Qos::classDefault; }

// Calls `each` with every class and list, in the order of matching.
template < typename Each >
void forEachList( const std::vector< QosClassDataPtr > & classes, const Each & each ) {
   for ( const auto & classData : classes )
      for ( const auto & key : classData->matchData( matchOption )->aclDataKeys() ) each( classData, key );
}

bool hasList( const std::vector< QosClassDataPtr > & classes, const QosClassDataKey & classKey, const AclKey & key ) {
   return std::ranges::any_of( classes, [ & ]( const QosClassDataPtr & classData ) {
      return classData->key() == classKey && classData->matchData( matchOption )->aclDataHas( key );
   } );
}

} // namespace

QosAclSm::QosAclSm( Args args ) :
     args_( std::move( args ) ), answers_( this, args_.vexcsd ? args_.vexcsd->progress() : Gant::make< Progress >() ),
     posted_( std::make_unique< Posted >( [ this ] { program(); } ) ) {}

QosAclSm::~QosAclSm() = default;

void QosAclSm::startIs( bool start ) {
   if ( start == start_ || !args_.qosAclHwStatus ) return;
   start_ = start;
   if ( !start ) {
      for ( const auto & [ intfId, name ] : std::exchange( applied_, {} ) ) intfIs( states_[ name ], intfId, false );
      Batch none;
      cleanUp( none );
      return;
   }
   args_.qosAclHelper->hwInit();
   if ( !args_.qosStatus || !args_.aclConfig ) return;
   statusReactor_ = std::make_unique< GantStatus >( this );
   lists_ = std::make_unique< AclLists >( this, args_.aclConfig,
                                          [ this ]( const Acl::ListKey & key ) { reviewList( key ); } );
   commonReactor_ = std::make_unique< GantCommon >( this );
   reviewAll();
   program();
}

void QosAclSm::reviewAll() {
   lists_->reviewAll();
   for ( const auto & name : Gant::keysOf( states_ ) ) reviewPolicy( name );
   for ( const auto & intfId : Gant::keysOf( applied_ ) ) portIs( intfId );
   for ( const auto & key : args_.qosStatus->servicePolicyKeys() ) reviewIntf( key.intfId() );
}

void QosAclSm::reviewList( const Acl::ListKey & key ) {
   for ( const auto & [ name, classMap ] : args_.qosStatus->classMapIterator() )
      if ( std::ranges::find( classMap.accessLists, key.name() ) != classMap.accessLists.end() ) reviewClassMap( name );
}

void QosAclSm::reviewClassMap( const Gant::String & name ) {
   for ( const auto & [ policyName, policyMap ] : args_.qosStatus->policyMapIterator() )
      if ( std::ranges::find( policyMap.classes, name, &Qos::PolicyClass::name ) != policyMap.classes.end() )
         reviewPolicy( policyName );
}

void QosAclSm::reviewPolicy( const Gant::String & name ) {
   changedPolicies_.insert( name );
   posted_->post();
}

void QosAclSm::reviewIntf( Kynet::IntfId intfId ) {
   changedIntfs_.insert( intfId );
   posted_->post();
}

// The policy leaves a port while the port still stands.
void QosAclSm::portIs( Kynet::IntfId intfId ) {
   if ( !args_.vexcsd->portHas( intfId ) )
      if ( const auto at = applied_.find( intfId ); at != applied_.end() ) {
         intfIs( states_[ at->second ], intfId, false );
         applied_.erase( at );
      }
   reviewIntf( intfId );
}

Gant::String QosAclSm::wantedPolicy( Kynet::IntfId intfId ) const {
   if ( !args_.vexcsd->portHas( intfId ) ) return {};
   return args_.qosStatus->servicePolicy( Qos::ServicePolicyKey( intfId, Qos::Direction::input() ) );
}

// Whether it can be programmed; otherwise what is wrong stays in errors_.
bool QosAclSm::check( const Gant::String & policyMap ) {
   errors_.erase( policyMap );
   refusals_.erase( policyMap );
   if ( !args_.qosStatus->policyMapHas( policyMap ) ) return false;
   auto errors = errorsOf(
        Qos::validate( policyMap, args_.qosStatus->policyMap( policyMap ), *args_.qosStatus, *args_.aclConfig ) );
   if ( errors.empty() ) return true;
   errors_[ policyMap ] = std::move( errors );
   return false;
}

void QosAclSm::plan( Batch & batch ) {
   for ( const auto & name : std::exchange( changedPolicies_, {} ) ) {
      if ( check( name ) && states_.contains( name ) ) batch.built.insert( name );
      for ( const auto & [ key, policyMap ] : args_.qosStatus->servicePolicyIterator() )
         if ( policyMap == name ) changedIntfs_.insert( key.intfId() );
   }
   for ( const auto & intfId : std::exchange( changedIntfs_, {} ) ) planMove( batch, intfId );
}

void QosAclSm::planMove( Batch & batch, Kynet::IntfId intfId ) {
   const auto from = Gant::valueOf( applied_, intfId );
   auto to = wantedPolicy( intfId );
   if ( !to.empty() && !args_.qosStatus->policyMapHas( to ) )
      to = from == to ? Gant::String() : from;
   else if ( !to.empty() && !states_.contains( to ) && !check( to ) )
      to = from;
   if ( from == to ) return;
   batch.moves.push_back( { intfId, from, to } );
   if ( !to.empty() && !states_.contains( to ) ) batch.built.insert( to );
}

std::vector< QosClassDataPtr > QosAclSm::classesOf( const Gant::String & policyMap ) const {
   std::vector< QosClassDataPtr > classes;
   for ( const auto & policyClass : args_.qosStatus->policyMap( policyMap ).classes ) {
      constexpr auto type = Qos::MapType::mapQos();
      const auto classData = Gant::make< QosClassData >( QosClassDataKey( policyMap, type, policyClass.name, type ) );
      for ( const auto & [ action, value ] : policyClass.actions )
         classData->actionDataIs( U32( action.value() ), QosActionData( value ) );
      const auto & matchData = classData->matchDataIs( matchOption, Gant::make< QosClassMatchData >() );
      auto lists = args_.qosStatus->classMap( policyClass.name ).accessLists;
      // What is left of the traffic has a list of its own, without rules.
      if ( isDefault( *classData ) ) lists = { Qos::classDefault };
      for ( const auto & name : lists )
         matchData->aclDataIs( aclKeyOf( name ), Gant::make< AclData >( aclKeyOf( name ) ) );
      classes.emplace_back( classData );
   }
   std::stable_partition( classes.begin(), classes.end(),
                          []( const auto & classData ) { return !isDefault( *classData ); } );
   return classes;
}

void QosAclSm::build( Batch & batch ) {
   for ( const auto & name : Names( batch.built ) ) {
      auto & state = states_[ name ];
      if ( !state ) state = Gant::make< QosPolicyMapState >( keyOf( name ) );
      auto old = state->classData();
      state->classDataIs( classesOf( name ) );
      answers_.begin( name );
      if ( answers_.asked( name, [ & ] { return buildPolicy( state ); } ) == aclCreateErrorNone ) {
         state->versionInc();
         batch.oldClasses[ name ] = std::move( old );
      } else {
         state->classDataIs( std::move( old ) );
         refuse( batch, name );
      }
   }
}

// An answer other than aclCreateErrorNone: nothing of it was built.
AclCreateError QosAclSm::buildPolicy( const StatePtr & state ) {
   AclCreateError result;
   forEachList( state->classData(), [ & ]( const QosClassDataPtr & classData, const AclKey & key ) {
      if ( result != aclCreateErrorNone ) return;
      result = args_.qosAclHelper->precreateAcl( state, classData, matchOption, key );
      if ( result == aclCreateErrorNone ) buildRules( state, classData, key );
   } );
   return result;
}

void QosAclSm::buildRules( const StatePtr & state, const QosClassDataPtr & classData, const AclKey & key ) {
   auto & helper = *args_.qosAclHelper;
   if ( isDefault( *classData ) ) {
      helper.createDefaultRule( state, classData, matchOption, key );
      return;
   }
   for ( const auto & [ sequence, entry ] :
         args_.aclConfig->aclConfig( Acl::ListKey( key.type(), key.name() ) )->entries() ) {
      if ( entry.isRemark ) continue;
      if ( entry.rule.filter().fragments() ) {
         helper.createIpFragRule( state, classData, key, entry.rule, entry.uniqueId, sequence, 0 );
         continue;
      }
      U32 subruleNum = 0;
      for ( const auto & match : subrulesOf( entry.rule.filter() ) )
         helper.createIpAclSubrule( key.type(), entry.rule, entry.uniqueId, state, classData, key, sequence,
                                    subruleNum++, match );
   }
}

// Interfaces that were to come to the policy stay where they are.
void QosAclSm::refuse( Batch & batch, const Gant::String & policyMap ) {
   refusals_.insert( policyMap );
   batch.built.erase( policyMap );
   if ( states_[ policyMap ]->classData().empty() ) states_.erase( policyMap );
   std::erase_if( batch.moves, [ & ]( const Batch::Move & move ) { return move.to == policyMap; } );
}

void QosAclSm::intfIs( const StatePtr & state, Kynet::IntfId intfId, bool applied ) {
   const auto & classData = state->classData().front();
   const auto key = classData->matchData( matchOption )->aclDataIterator().begin()->first;
   state->activeIntfIs( pairOf( intfId ), applied );
   answers_.asked( state->key().name(), [ & ] {
      args_.qosAclHelper->updatePortForAcl( state, classData, matchOption, key, pairOf( intfId ), applied );
   } );
}

// An interface has one policy module, so it leaves the old policy before it comes to the new one.
void QosAclSm::moveIntfs( Batch & batch ) {
   for ( const auto & move : batch.moves ) {
      if ( !move.from.empty() ) intfIs( states_[ move.from ], move.intfId, false );
      if ( move.to.empty() )
         applied_.erase( move.intfId );
      else
         applied_[ move.intfId ] = move.to;
      if ( batch.built.contains( move.to ) )
         states_[ move.to ]->activeIntfIs( pairOf( move.intfId ), true );
      else if ( !move.to.empty() )
         intfIs( states_[ move.to ], move.intfId, true );
   }
}

void QosAclSm::commit( Batch & batch ) {
   auto & helper = *args_.qosAclHelper;
   if ( batch.built.empty() ) return;
   helper.prepareToCommit();
   for ( const auto & name : batch.built ) {
      const auto & state = states_[ name ];
      answers_.asked( name, [ & ] {
         forEachList( state->classData(), [ & ]( const QosClassDataPtr & classData, const AclKey & key ) {
            helper.commitAcl( classData, matchOption, key );
         } );
         helper.batchCommitAcls( state );
      } );
   }
}

// Takes away the lists that have left their policy, and the policies that no interface has any more.
void QosAclSm::cleanUp( Batch & batch ) {
   const auto remove = [ this ]( const StatePtr & state, const QosClassDataPtr & classData, const AclKey & key ) {
      args_.qosAclHelper->destroyAcl( state, classData, matchOption, key );
      args_.qosAclHelper->cleanupAcl( state, classData, matchOption, key );
   };
   for ( const auto & [ name, oldClasses ] : batch.oldClasses ) {
      const auto & state = states_[ name ];
      forEachList( oldClasses, [ & ]( const QosClassDataPtr & classData, const AclKey & key ) {
         if ( !hasList( state->classData(), classData->key(), key ) ) remove( state, classData, key );
      } );
   }
   bool removed = false;
   for ( auto at = states_.begin(); at != states_.end(); ) {
      const auto state = at->second;
      if ( state->activeIntfs() != 0 ) {
         ++at;
         continue;
      }
      forEachList( state->classData(), [ & ]( const QosClassDataPtr & classData, const AclKey & key ) {
         remove( state, classData, key );
      } );
      answers_.forget( at->first );
      at = states_.erase( at );
      removed = true;
   }
   if ( removed ) args_.vexcsd->aclRoomIs( args_.vexcsd->aclRoom() + 1 );
}

void QosAclSm::program() {
   Batch batch;
   plan( batch );
   build( batch );
   moveIntfs( batch );
   commit( batch );
   cleanUp( batch );
}

Pendings QosAclSm::pending() const {
   Pendings out;
   for ( const auto & [ name, errors ] : errors_ ) out.insert( out.end(), errors.begin(), errors.end() );
   for ( const auto & name : refusals_ )
      out.push_back( { "policy-map " + name, "the data plane has no room for another rule table" } );
   for ( const auto & [ name, state ] : states_ )
      if ( auto said = answers_.state( name ); said.progress != RouteProgress::programmed_ )
         out.push_back( { "policy-map " + name, std::move( said.reason ) } );
   if ( !args_.qosStatus ) return out;
   for ( const auto & [ key, name ] : args_.qosStatus->servicePolicyIterator() ) {
      const auto object = Gant::textsOf( "interface ", key.intfId(), ", service-policy ", key.direction(), " ", name );
      if ( key.direction() == Qos::Direction::output_ )
         out.push_back( { object, "this data plane has no output policies" } );
      else if ( Gant::valueOf( applied_, key.intfId() ) == name )
         continue;
      else if ( !args_.vexcsd->portHas( key.intfId() ) )
         out.push_back( { object, "there is no such interface" } );
      else
         out.push_back( { object, args_.qosStatus->policyMapHas( name ) ? "the policy-map is not programmed"
                                                                        : "there is no such policy-map" } );
   }
   return out;
}

RouteState QosAclSm::state( const Gant::String & policyMap ) const {
   return states_.contains( policyMap ) ? answers_.state( policyMap )
                                        : RouteState{ RouteProgress::pending(), "it is not applied" };
}

std::vector< std::pair< Gant::String, U64 > > QosAclSm::counts( const Gant::String & policyMap ) const {
   std::vector< std::pair< Gant::String, U64 > > out;
   const auto state = Gant::valueOf( states_, policyMap );
   if ( !state ) return out;
   for ( const auto & classData : state->classData() ) {
      U64 packets = 0;
      for ( const auto & key : classData->matchData( matchOption )->aclDataKeys() )
         packets += args_.qosAclHelper->counterUpdateRequest( classData, key ).pktHits();
      out.emplace_back( classData->key().cmapName(), packets );
   }
   return out;
}

} // namespace Hul
