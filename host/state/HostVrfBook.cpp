#include "HostVrfBook.h"

#include "StateIp.h"

namespace Host {

VrfBook::VrfBook( Gant::Ptr< Ip::AllVrfStatusLocal > allVrfStatusLocal ) :
     allVrfStatusLocal_( std::move( allVrfStatusLocal ) ) {
   vrfIs( { L3::VrfName::defaultVrf(), 0 }, Teller::none() );
}

ChangeResult VrfBook::vrfIs( const VrfFact & fact, Teller teller ) {
   const auto object = textOf( fact.name ) + ": ";
   if ( const auto at = vrfs_.find( fact.name ); at != vrfs_.end() ) {
      const auto present = *at->second.fact.id;
      if ( fact.id && *fact.id != present )
         return refused( object + "its id is " + std::to_string( present ) + " and stays while it is there" );
      // The default VRF is nobody's, unless something is told of it.
      at->second.teller = present != 0 || !fact.netns.empty() ? teller : Teller();
      at->second.fact.netns = fact.netns;
      return done();
   }
   if ( fact.id ) {
      const auto holder = names_.find( *fact.id );
      if ( holder != names_.end() )
         return refused( object + "id " + std::to_string( *fact.id ) + " belongs to " + textOf( holder->second ) );
   }
   const U32 id = fact.id ? *fact.id : freeId();
   vrfs_.insert( { fact.name, { { fact.name, id, fact.netns }, teller } } );
   names_[ id ] = fact.name;
   allVrfStatusLocal_->vrfStatusIs( fact.name, Ip::VrfStatus( id, true ) );
   return done();
}

ChangeResult VrfBook::vrfDel( const L3::VrfName & name ) {
   const auto at = vrfs_.find( name );
   if ( at == vrfs_.end() ) return notFound( textOf( name ) + " does not exist" );
   if ( name == L3::VrfName::defaultVrf() ) {
      if ( at->second.fact.netns.empty() ) return refused( textOf( name ) + ": the default VRF stays" );
      at->second = { { name, 0 }, Teller::none() };
      return done();
   }
   allVrfStatusLocal_->vrfStatusDel( name );
   names_.erase( *at->second.fact.id );
   vrfs_.erase( at );
   return done();
}

std::optional< U32 > VrfBook::id( const L3::VrfName & name ) const {
   const auto at = vrfs_.find( name );
   return at == vrfs_.end() ? std::nullopt : at->second.fact.id;
}

const Gant::String & VrfBook::netns( const L3::VrfName & name ) const {
   static const Gant::String none;
   const auto at = vrfs_.find( name );
   return at == vrfs_.end() ? none : at->second.fact.netns;
}

const L3::VrfName & VrfBook::name( U32 id ) const {
   static const L3::VrfName none;
   const auto at = names_.find( id );
   return at == names_.end() ? none : at->second;
}

U32 VrfBook::freeId() const {
   U32 id = 1;
   while ( names_.contains( id ) ) ++id;
   return id;
}

} // namespace Host
