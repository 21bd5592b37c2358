#include "StateAcl.h"

#include <algorithm>

namespace Acl {

UniqueId newUniqueId() {
   static U64 last = 0;
   ++last;
   return UniqueId( static_cast< U32 >( last ), static_cast< U16 >( last >> 32 ), 1 );
}

RangeSpec::Ranges RangeSpec::ranges() const {
   const auto first = values_.empty() ? U16( 0 ) : values_.front();
   switch ( oper_ ) {
   case RangeOper::any_: return { { 0, 65535 } };
   case RangeOper::gt_: return first == 65535 ? Ranges{} : Ranges{ { static_cast< U16 >( first + 1 ), 65535 } };
   case RangeOper::lt_: return first == 0 ? Ranges{} : Ranges{ { 0, static_cast< U16 >( first - 1 ) } };
   case RangeOper::range_:
      return values_.size() != 2 || values_[ 0 ] > values_[ 1 ] ? Ranges{} : Ranges{ { values_[ 0 ], values_[ 1 ] } };
   case RangeOper::eq_:
   case RangeOper::neq_: break;
   }
   auto sorted = values_;
   std::ranges::sort( sorted );
   Ranges out;
   if ( oper_ == RangeOper::eq_ ) {
      for ( const auto value : sorted )
         if ( !out.empty() && value <= out.back().second + 1 )
            out.back().second = value;
         else
            out.emplace_back( value, value );
      return out;
   }
   U32 begin = 0;
   for ( const auto value : sorted ) {
      if ( value > begin ) out.emplace_back( begin, value - 1 );
      begin = value + 1u;
   }
   if ( begin <= 65535 ) out.emplace_back( begin, 65535 );
   return out;
}

size_t RangeSpec::hash() const {
   Gant::Hash hash;
   hash << oper_;
   for ( const auto value : values_ ) hash << value;
   return hash.value();
}

Gant::String RangeSpec::stringValue() const {
   auto out = oper_.stringValue();
   for ( const auto value : values_ ) out += " " + std::to_string( value );
   return out;
}

void RangeSpec::strepIs( Gant::StrepReader & in ) {
   const auto text = in.quoted();
   std::string_view rest = text;
   const auto word = [ &rest ] {
      const auto end = rest.find( ' ' );
      const auto found = rest.substr( 0, end );
      rest.remove_prefix( end == std::string::npos ? rest.size() : end + 1 );
      return found;
   };
   Gant::StrepReader oper( word() );
   oper_.strepIs( oper );
   values_.clear();
   while ( !rest.empty() ) values_.push_back( Gant::StrepReader( word() ).number< U16 >() );
}

namespace {

bool sameEntry( const Entry & a, const Entry & b ) {
   return a.isRemark == b.isRemark && a.rule == b.rule && a.remark == b.remark;
}

// The identities of the old entries that the new ones have not taken yet, by what they say.
class Identities {
 public:
   explicit Identities( const Entries & old ) {
      for ( const auto & [ sequence, entry ] : old )
         if ( !entry.isRemark ) ids_.emplace( entry.rule, entry.uniqueId );
   }
   void take( const Entry & entry ) {
      const auto [ begin, end ] = ids_.equal_range( entry.rule );
      const auto at = std::find_if( begin, end, [ & ]( const auto & id ) { return id.second == entry.uniqueId; } );
      if ( at != end ) ids_.erase( at );
   }
   UniqueId takeEqual( const RuleConfig & rule ) {
      const auto at = ids_.find( rule );
      if ( at == ids_.end() ) return newUniqueId();
      const auto id = at->second;
      ids_.erase( at );
      return id;
   }

 private:
   std::unordered_multimap< RuleConfig, UniqueId, Gant::Hasher > ids_;
};

} // namespace

void AclConfig::entriesIs( Entries entries ) {
   GANT_ON_LOOP();
   Identities free( entries_ );
   for ( auto & [ sequence, entry ] : entries ) {
      entry.uniqueId = UniqueId();
      const auto at = entries_.find( sequence );
      if ( entry.isRemark || at == entries_.end() || !sameEntry( at->second, entry ) ) continue;
      entry.uniqueId = at->second.uniqueId;
      free.take( entry );
   }
   for ( auto & [ sequence, entry ] : entries )
      if ( !entry.isRemark && entry.uniqueId == UniqueId() ) entry.uniqueId = free.takeEqual( entry.rule );
   if ( entries == entries_ ) return;
   entries_ = std::move( entries );
   version_ = newUniqueId();
   notifiees_.tell( &Notifiee::onVersion );
}

struct AclConfigAggregatorSm::GantInput : ConfigBase::Notifiee {
   GantInput( AclConfigAggregatorSm * owner, Gant::Ptr< const ConfigBase > input ) :
        Notifiee( owner, std::move( input ) ), owner( owner ) {}
   void onAclConfig( const ListKey & key ) override { owner->review( key ); }
   void onRenotify() override { owner->reviewAll(); }
   AclConfigAggregatorSm * owner;
};

struct AclConfigAggregatorSm::GantInputDir : Gant::Dir::Notifiee {
   explicit GantInputDir( AclConfigAggregatorSm * owner ) :
        Notifiee( owner, owner->args_.aclInputConfig ), owner( owner ) {}
   void onEntity( const Gant::Name & name ) override { owner->reviewInput( name ); }
   void onRenotify() override { owner->reviewAll(); }
   AclConfigAggregatorSm * owner;
};

AclConfigAggregatorSm::AclConfigAggregatorSm( Args args ) : args_( std::move( args ) ) {
   if ( !args_.aclConfig || ( !args_.aclCliConfig && !args_.aclInputConfig ) ) return;
   cliReactor_ = std::make_unique< GantInput >( this, args_.aclCliConfig );
   dirReactor_ = std::make_unique< GantInputDir >( this );
   reviewAll();
}

AclConfigAggregatorSm::~AclConfigAggregatorSm() = default;

void AclConfigAggregatorSm::reviewAll() {
   for ( const auto & name : Gant::keysOf( inputReactors_ ) ) reviewInput( name );
   if ( args_.aclInputConfig )
      for ( const auto & name : args_.aclInputConfig->entityKeys() ) reviewInput( name );
   for ( const auto & key : args_.aclConfig->aclConfigKeys() ) review( key );
   if ( args_.aclCliConfig )
      for ( const auto & key : args_.aclCliConfig->aclConfigKeys() ) review( key );
}

void AclConfigAggregatorSm::reviewInput( const Gant::Name & name ) {
   const Gant::Ptr< const Input::Config > input(
        dynamic_cast< const Input::Config * >( args_.aclInputConfig->entity( name ).get() ) );
   const auto at = inputReactors_.find( name );
   Gant::OrderedSet< ListKey > keys;
   const auto add = [ &keys ]( const ConfigBase & config ) {
      for ( const auto & key : config.aclConfigKeys() ) keys.insert( key );
   };
   if ( at != inputReactors_.end() ) {
      add( *at->second->notifier() );
      inputReactors_.erase( at );
   }
   if ( input ) {
      add( *input );
      inputReactors_[ name ] = std::make_unique< GantInput >( this, input );
   }
   for ( const auto & key : keys ) review( key );
}

void AclConfigAggregatorSm::review( const ListKey & key ) {
   auto list = args_.aclCliConfig ? args_.aclCliConfig->aclConfig( key ) : nullptr;
   for ( const auto & [ name, reactor ] : inputReactors_ )
      if ( !list ) list = reactor->notifier()->aclConfig( key );
   if ( list )
      args_.aclConfig->aclConfigIs( key, list );
   else
      args_.aclConfig->aclConfigDel( key );
}

} // namespace Acl
