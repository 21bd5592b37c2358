#include "HulAclSm.h"

#include "HulAclHelper.h"
#include "HulAclLists.h"
#include "HulAclPending.h"
#include "HulAclSubrules.h"
#include "HulCommonSmData.h"
#include "HulPosted.h"

#include <algorithm>

namespace Hul {

struct AclSm::GantIntfConfig : Acl::IntfConfig::Notifiee {
   GantIntfConfig( AclSm * owner, Gant::Ptr< const Acl::IntfConfig > config ) :
        Notifiee( owner, std::move( config ) ), owner( owner ) {}
   void onAclName( const Acl::IntfAclKey & key ) override { owner->reviewBinding( key ); }
   void onRenotify() override { owner->reviewAll(); }
   AclSm * owner;
};

struct AclSm::GantIntfConfigDir : Gant::Dir::Notifiee {
   explicit GantIntfConfigDir( AclSm * owner ) : Notifiee( owner, owner->args_.aclIntfConfigDir ), owner( owner ) {}
   void onEntity( const Gant::Name & name ) override { owner->reviewIntfConfig( name ); }
   void onRenotify() override { owner->reviewAll(); }
   AclSm * owner;
};

struct AclSm::GantCommon : HulCommonSmData::Notifiee {
   explicit GantCommon( AclSm * owner ) : Notifiee( owner, owner->args_.vexcsd ), owner( owner ) {}
   void onPort( const Kynet::IntfId & intfId ) override { owner->portIs( intfId ); }
   void onAclRoom() override { owner->reviewRefused(); }
   void onRenotify() override { owner->reviewRefused(); }
   AclSm * owner;
};

// What is programmed together.
struct AclSm::Batch {
   struct Move {
      Acl::IntfAclKey binding;
      Gant::String from; // empty: none
      Gant::String to;
   };
   std::vector< Move > moves;
   Gant::OrderedMap< AclKey, AclData::Intfs > gained;
   Gant::OrderedMap< AclKey, AclData::Intfs > leaving;
   Gant::OrderedSet< AclKey > changed; // in use with older rules
   Gant::OrderedSet< AclKey > built;
};

namespace {

AclKey keyOf( const Acl::IntfAclKey & binding, const Gant::String & name ) {
   return AclKey( name, binding.type(), binding.direction(), 0 );
}

Acl::ListKey listOf( const AclKey & key ) { return Acl::ListKey( key.type(), key.name() ); }

// Each key that a list may have.
std::array< AclKey, 2 > keysOf( const Acl::ListKey & list ) {
   return { AclKey( list.name(), list.type(), Acl::in, 0 ), AclKey( list.name(), list.type(), Acl::out, 0 ) };
}

Gant::String objectOf( const Acl::ListKey & list ) { return "access-list " + list.name(); }

Gant::String reasonOf( AclCreateError error ) {
   return error == aclCreateErrorTooManyAcls ? "the data plane has no room for another list" : error.stringValue();
}

} // namespace

AclSm::AclSm( Args args ) :
     args_( std::move( args ) ), answers_( this, args_.vexcsd ? args_.vexcsd->progress() : Gant::make< Progress >() ),
     posted_( std::make_unique< Posted >( [ this ] { program(); } ) ) {}

AclSm::~AclSm() = default;

void AclSm::startIs( bool start ) {
   if ( start == start_ ) return;
   start_ = start;
   if ( !start ) {
      for ( const auto & [ binding, name ] : std::exchange( applied_, {} ) ) leave( binding, name, false );
      args_.aclHelper->batchCommitAcls();
      return;
   }
   args_.aclHelper->hwInit();
   if ( !args_.aclConfig ) return;
   lists_ = std::make_unique< AclLists >( this, args_.aclConfig,
                                          [ this ]( const Acl::ListKey & key ) { reviewList( key ); } );
   cliReactor_ = std::make_unique< GantIntfConfig >( this, args_.aclIntfConfigCli );
   dirReactor_ = std::make_unique< GantIntfConfigDir >( this );
   commonReactor_ = std::make_unique< GantCommon >( this );
   reviewAll();
   // Before the first interface stands: none is open for a while.
   program();
}

void AclSm::reviewAll() {
   lists_->reviewAll();
   for ( const auto & name : Gant::keysOf( intfReactors_ ) ) reviewIntfConfig( name );
   if ( args_.aclIntfConfigDir )
      for ( const auto & name : args_.aclIntfConfigDir->entityKeys() ) reviewIntfConfig( name );
   for ( const auto & key : Gant::keysOf( wanted_ ) ) reviewBinding( key );
   if ( args_.aclIntfConfigCli )
      for ( const auto & key : args_.aclIntfConfigCli->aclNameKeys() ) reviewBinding( key );
}

void AclSm::reviewList( const Acl::ListKey & key ) {
   changedLists_.insert( key );
   posted_->post();
}

void AclSm::reviewIntfConfig( const Gant::Name & name ) {
   const auto at = intfReactors_.find( name );
   IntfAclKeys keys;
   const auto add = [ &keys ]( const Acl::IntfConfig & config ) {
      for ( const auto & key : config.aclNameKeys() ) keys.insert( key );
   };
   if ( at != intfReactors_.end() ) {
      add( *at->second->notifier() );
      intfReactors_.erase( at );
   }
   const Gant::Ptr< const Acl::IntfConfig > config(
        dynamic_cast< const Acl::IntfConfig * >( args_.aclIntfConfigDir->entity( name ).get() ) );
   if ( config ) {
      add( *config );
      intfReactors_[ name ] = std::make_unique< GantIntfConfig >( this, config );
   }
   for ( const auto & key : keys ) reviewBinding( key );
}

// The command line's, or else that of the first other source that has one.
Gant::String AclSm::wantedList( const Acl::IntfAclKey & key ) const {
   Gant::String name = args_.aclIntfConfigCli ? args_.aclIntfConfigCli->aclName( key ) : Gant::String();
   for ( const auto & [ source, reactor ] : intfReactors_ )
      if ( name.empty() ) name = reactor->notifier()->aclName( key );
   return name;
}

void AclSm::reviewBinding( const Acl::IntfAclKey & binding ) {
   const auto key = binding;
   const auto wanted = wantedList( key );
   const auto old = Gant::valueOf( wanted_, key );
   if ( wanted == old ) return;
   if ( const auto at = wantedBy_.find( Acl::ListKey( key.type(), old ) ); at != wantedBy_.end() ) {
      at->second.erase( key );
      if ( at->second.empty() ) wantedBy_.erase( at );
   }
   if ( wanted.empty() ) {
      wanted_.erase( key );
   } else {
      wanted_[ key ] = wanted;
      wantedBy_[ Acl::ListKey( key.type(), wanted ) ].insert( key );
   }
   changedBindings_.insert( key );
   posted_->post();
}

void AclSm::portIs( Kynet::IntfId intfId ) {
   const auto at = changedBindings_.lower_bound( Acl::IntfAclKey( intfId, Acl::ip, Acl::in ) );
   if ( args_.vexcsd->portHas( intfId ) && at != changedBindings_.end() && at->intfId() == intfId ) program();
}

void AclSm::reviewRefused() {
   if ( refusals_.empty() ) return;
   for ( const auto & [ key, error ] : refusals_ ) changedLists_.insert( key );
   posted_->post();
}

AclData * AclSm::data( const AclKey & key ) const { return Gant::valueOf( data_, key ).get(); }

void AclSm::checkList( const Acl::ListKey & key ) {
   listErrors_.erase( key );
   refusals_.erase( key );
   const auto & config = args_.aclConfig->aclConfig( key );
   if ( !config ) return;
   auto errors = errorsOf( Acl::validate( key, config->entries() ) );
   if ( key.type() == Acl::mac )
      errors.push_back(
           { objectOf( key ), "MAC rules match nothing in this data plane, so the list can't be applied" } );
   if ( !errors.empty() ) listErrors_[ key ] = std::move( errors );
}

void AclSm::plan( Batch & batch ) {
   for ( const auto & list : std::exchange( changedLists_, {} ) ) {
      checkList( list );
      if ( const auto at = wantedBy_.find( list ); at != wantedBy_.end() )
         changedBindings_.insert( at->second.begin(), at->second.end() );
      const auto & config = args_.aclConfig->aclConfig( list );
      if ( !config || listErrors_.contains( list ) ) continue;
      for ( const auto & key : keysOf( list ) )
         if ( data( key ) != nullptr && data( key )->version() != config->version() ) batch.changed.insert( key );
   }
   for ( const auto & binding : std::exchange( changedBindings_, {} ) ) planMove( batch, binding );
}

void AclSm::planMove( Batch & batch, const Acl::IntfAclKey & binding ) {
   const auto from = Gant::valueOf( applied_, binding );
   auto to = Gant::valueOf( wanted_, binding );
   const Acl::ListKey wanted( binding.type(), to );
   if ( !to.empty() && !args_.aclConfig->aclConfigHas( wanted ) )
      to = from == to ? Gant::String() : from;
   else if ( listErrors_.contains( wanted ) )
      to = from;
   if ( from == to ) return;
   batch.moves.push_back( { binding, from, to } );
   if ( !from.empty() ) batch.leaving[ keyOf( binding, from ) ].insert( binding.intfId() );
   if ( to.empty() ) return;
   const auto key = keyOf( binding, to );
   batch.gained[ key ].insert( binding.intfId() );
   if ( data( key ) == nullptr ) batch.built.insert( key );
}

// The lists that come first: who leaves the others is known once it is known which of the new ones have room.
void AclSm::build( Batch & batch ) {
   for ( const auto & [ key, intfs ] : batch.gained )
      if ( data( key ) != nullptr )
         for ( const auto & intf : intfs ) data( key )->activeIntfIs( intf, true );
   for ( const auto & key : std::vector( batch.built.begin(), batch.built.end() ) ) {
      const auto aclData = Gant::make< AclData >( key );
      for ( const auto & intf : batch.gained[ key ] ) aclData->activeIntfIs( intf, true );
      const auto error = buildVersion( aclData );
      if ( error != aclCreateErrorNone )
         refuse( batch, key, error );
      else
         data_[ key ] = aclData;
   }
   for ( const auto & key : batch.changed ) {
      const auto aclData = data_[ key ];
      // What nobody uses any more is not built for the last time.
      if ( aclData->activeIntfs() == Gant::valueOf( batch.leaving, key ).size() ) continue;
      const auto error = buildVersion( aclData );
      if ( error != aclCreateErrorNone )
         refusals_[ listOf( key ) ] = error;
      else
         batch.built.insert( key );
   }
}

// Builds the list as it is configured. Refused, it keeps the version that it has.
AclCreateError AclSm::buildVersion( const Gant::Ptr< AclData > & aclData ) {
   const auto oldVersion = aclData->version();
   aclData->versionIs( args_.aclConfig->aclConfig( listOf( aclData->key() ) )->version() );
   answers_.begin( aclData->key() );
   const auto error = answers_.asked( aclData->key(), [ & ] { return buildList( *aclData, aclData ); } );
   if ( error != aclCreateErrorNone ) aclData->versionIs( oldVersion );
   return error;
}

// An answer other than aclCreateErrorNone: nothing of it was built.
AclCreateError AclSm::buildList( const AclData & data, const AclDataPtr & aclData ) {
   auto & helper = *args_.aclHelper;
   const auto status = Gant::make< AclDataStatus >();
   status->errorIs( helper.precreateAcl( aclData, status ) );
   if ( status->error() != aclCreateErrorNone ) return status->error();
   const auto list = listOf( data.key() );
   const auto check = [ & ]( U32 sequence, AclCreateError error ) {
      if ( error != aclCreateErrorNone )
         listErrors_[ list ].push_back(
              { Gant::textsOf( objectOf( list ), ", sequence ", sequence ), "left out: " + reasonOf( error ) } );
   };
   for ( const auto & [ sequence, entry ] : args_.aclConfig->aclConfig( list )->entries() ) {
      if ( entry.isRemark ) continue;
      if ( entry.rule.filter().fragments() ) {
         check( sequence, helper.createIpFragRule( aclData, entry.rule, entry.uniqueId, sequence, 0 ) );
         continue;
      }
      U32 subruleNum = 0;
      for ( const auto & match : subrulesOf( entry.rule.filter() ) )
         check( sequence, helper.createIpAclSubrule( list.type(), entry.rule, entry.uniqueId, aclData, sequence,
                                                     subruleNum++, match, 0, 0 ) );
   }
   check( 0, helper.createFinalAclRule( list.type(), aclData, 0 ) );
   return aclCreateErrorNone;
}

// Interfaces that were to come to the list stay where they are.
void AclSm::refuse( Batch & batch, const AclKey & key, AclCreateError error ) {
   refusals_[ listOf( key ) ] = error;
   batch.built.erase( key );
   batch.gained.erase( key );
   std::erase_if( batch.moves, [ & ]( const Batch::Move & move ) {
      if ( move.to.empty() || keyOf( move.binding, move.to ) != key ) return false;
      if ( !move.from.empty() ) batch.leaving[ keyOf( move.binding, move.from ) ].erase( move.binding.intfId() );
      return true;
   } );
}

// Points the interfaces at what was built.
void AclSm::bind( Batch & batch ) {
   auto & helper = *args_.aclHelper;
   const auto status = Gant::make< AclDataStatus >();
   auto touched = batch.built;
   for ( const auto & [ key, intfs ] : batch.gained ) touched.insert( key );
   for ( const auto & key : touched ) {
      const auto & leaving = Gant::valueOf( batch.leaving, key );
      for ( const auto & intf : batch.built.contains( key ) ? data( key )->activeIntfIterator() : batch.gained[ key ] )
         if ( !leaving.contains( intf ) )
            answers_.asked( key, [ & ] { helper.addIntfToAcl( intf, data_[ key ], status ); } );
   }
   if ( touched.empty() ) return;
   helper.prepareToCommit();
   for ( const auto & key : touched ) answers_.asked( key, [ & ] { helper.commitAcl( data_[ key ] ); } );
   const auto before = args_.vexcsd->progress()->told();
   helper.batchCommitAcls();
   for ( const auto & key : touched ) answers_.note( key, before );
   for ( const auto & key : touched ) args_.aclStatusDp->programmedVersionIs( listOf( key ), data( key )->version() );
}

// Takes the interfaces from the lists that they left, and the lists that have none any more.
void AclSm::release( Batch & batch ) {
   bool destroyed = false;
   for ( const auto & move : batch.moves ) {
      if ( move.to.empty() ) {
         applied_.erase( move.binding );
         args_.aclStatusDp->appliedNameDel( move.binding );
      } else {
         applied_[ move.binding ] = move.to;
         args_.aclStatusDp->appliedNameIs( move.binding, move.to );
      }
      if ( !move.from.empty() && leave( move.binding, move.from, !move.to.empty() ) ) destroyed = true;
   }
   if ( !destroyed ) return;
   args_.aclHelper->batchCommitAcls();
   args_.vexcsd->aclRoomIs( args_.vexcsd->aclRoom() + 1 );
}

// True: nobody used the list any more, and the next batch takes it away.
bool AclSm::leave( const Acl::IntfAclKey & binding, const Gant::String & name, bool appliedToAnother ) {
   const auto key = keyOf( binding, name );
   const auto aclData = data_[ key ];
   args_.aclHelper->removeIntfFromAcl( binding.intfId(), aclData, appliedToAnother );
   aclData->activeIntfDel( binding.intfId() );
   if ( aclData->activeIntfs() != 0 ) return false;
   args_.aclHelper->destroyAcl( aclData );
   data_.erase( key );
   answers_.forget( key );
   const auto list = listOf( key );
   if ( data( keysOf( list )[ 0 ] ) != nullptr || data( keysOf( list )[ 1 ] ) != nullptr ) return true;
   counted_.erase( list );
   args_.aclStatusDp->programmedVersionDel( list );
   return true;
}

// Gives the lists, which wait for room, that of the lists which only interfaces have that are to go over to them. These
// interfaces let nothing through from here until the new lists stand. False: that would not be room enough.
bool AclSm::exchange( const Gant::OrderedSet< Acl::ListKey > & lists ) {
   Gant::OrderedMap< AclKey, std::vector< Acl::IntfAclKey > > going;
   for ( const auto & list : lists )
      for ( const auto & binding : Gant::valueOf( wantedBy_, list ) )
         if ( const auto & from = Gant::valueOf( applied_, binding ); !from.empty() )
            going[ keyOf( binding, from ) ].push_back( binding );
   const auto isFree = [ & ]( const AclKey & key ) {
      return data( key ) == nullptr || data( key )->activeIntfs() == Gant::valueOf( going, key ).size();
   };
   Gant::OrderedSet< Acl::ListKey > freed;
   for ( const auto & [ key, bindings ] : going )
      if ( std::ranges::all_of( keysOf( listOf( key ) ), isFree ) ) freed.insert( listOf( key ) );
   if ( freed.size() < lists.size() ) return false;
   for ( const auto & [ key, bindings ] : going ) {
      if ( !freed.contains( listOf( key ) ) ) continue;
      for ( const auto & binding : bindings ) {
         leave( binding, key.name(), true );
         applied_.erase( binding );
         args_.aclStatusDp->appliedNameDel( binding );
      }
   }
   args_.aclHelper->batchCommitAcls();
   changedLists_.insert( lists.begin(), lists.end() );
   if ( freed.size() > lists.size() ) args_.vexcsd->aclRoomIs( args_.vexcsd->aclRoom() + 1 );
   return true;
}

// Each list that waits by itself, or else all of them together.
bool AclSm::exchangeRefused() {
   Gant::OrderedSet< Acl::ListKey > refused;
   for ( const auto & [ list, error ] : refusals_ )
      if ( error == aclCreateErrorTooManyAcls ) refused.insert( list );
   const auto exchanged = std::erase_if( refused, [ & ]( const auto & list ) { return exchange( { list } ); } );
   return exchanged != 0 || ( refused.size() > 1 && exchange( refused ) );
}

void AclSm::program() {
   programChanges();
   std::erase_if( refusals_, [ & ]( const auto & refusal ) { return !wantedBy_.contains( refusal.first ); } );
   // A list that went made room: the next turn has it.
   if ( changedLists_.empty() && exchangeRefused() ) programChanges();
}

void AclSm::programChanges() {
   Batch batch;
   plan( batch );
   build( batch );
   bind( batch );
   release( batch );
}

RouteState AclSm::state( const Acl::ListKey & list ) const {
   RouteState out{ RouteProgress::pending(), "it is not applied" };
   for ( const auto & key : keysOf( list ) ) {
      if ( data( key ) == nullptr ) continue;
      out = answers_.state( key );
      if ( out.progress != RouteProgress::programmed_ ) break;
   }
   return out;
}

Pendings AclSm::pending() const {
   Pendings out;
   for ( const auto & [ list, errors ] : listErrors_ ) out.insert( out.end(), errors.begin(), errors.end() );
   for ( const auto & [ list, error ] : refusals_ ) out.push_back( { objectOf( list ), reasonOf( error ) } );
   for ( const auto & [ key, aclData ] : data_ )
      if ( auto said = answers_.state( key ); said.progress != RouteProgress::programmed_ )
         out.push_back( { objectOf( listOf( key ) ), std::move( said.reason ) } );
   for ( const auto & [ binding, name ] : wanted_ ) {
      if ( Gant::valueOf( applied_, binding ) == name ) continue;
      const auto object =
           Gant::textsOf( "interface ", binding.intfId(), ", access-list ", name, " ", binding.direction() );
      const bool there = args_.aclConfig->aclConfigHas( Acl::ListKey( binding.type(), name ) );
      out.push_back( { object, there ? "the list is not programmed" : "there is no such access-list" } );
   }
   return out;
}

std::vector< AclRuleCount > AclSm::counts( const Acl::ListKey & list ) {
   std::vector< AclRuleCount > out;
   AclDataPtr aclData;
   for ( const auto & key : keysOf( list ) )
      if ( !aclData ) aclData = Gant::valueOf( data_, key );
   const auto config = args_.aclConfig ? args_.aclConfig->aclConfig( list ) : nullptr;
   if ( !aclData || !config ) return out;
   const auto now = args_.clock ? args_.clock->now() : 0;
   auto & before = counted_[ list ];
   Counted counted{ {}, now };
   const auto seconds = before.rules.empty() ? 0 : now - before.at;
   const auto count = [ & ]( U32 sequence, const Acl::UniqueId & uniqueId ) {
      auto & rule = counted.rules[ uniqueId ];
      rule.sequence = sequence;
      rule.recentPackets = args_.aclHelper->aclRuleCountersSinceLastPoll( aclData, sequence, uniqueId );
      rule.recentSeconds = seconds;
      rule.packets = Gant::valueOf( before.rules, uniqueId ).packets + rule.recentPackets;
      out.push_back( rule );
   };
   for ( const auto & [ sequence, entry ] : config->entries() )
      if ( !entry.isRemark ) count( sequence, entry.uniqueId );
   count( 0, Acl::UniqueId::allOnes() );
   before = std::move( counted );
   return out;
}

} // namespace Hul
