// vrfs: the VRFs beside the default one.
#include "HostSection.h"

#include "HostVerdict.h"

namespace Host {

namespace {

class VrfSection : public Section {
 public:
   const char * name() const override { return "vrfs"; }
   const char * kind() const override { return "vrf"; }
   std::string key( const Entry & entry ) const override { return nameOf( entry ).value(); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.vrfBook().id( nameOf( entry ) ).has_value();
   }

   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      VrfFact fact{ nameOf( entry ) };
      if ( !entry.node().IsScalar() ) {
         entry.only( { "name", "id", "netns" } );
         if ( entry.has( "id" ) ) fact.id = entry.number( "id", 0, 65535, 0 );
         if ( entry.has( "netns" ) ) fact.netns = entry.name( "netns", "network namespace" );
      }
      return state.vrfIs( fact, teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      return state.vrfDel( nameOf( entry ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      std::vector< L3::VrfName > gone;
      for ( const auto & [ name, told ] : state.vrfBook().vrfs() )
         if ( told.teller == teller && !keys.contains( name.value() ) ) gone.push_back( name );
      std::vector< ChangeResult > refusals;
      for ( const auto & name : gone )
         if ( auto result = state.vrfDel( name ); !isDone( result ) ) refusals.push_back( std::move( result ) );
      return refusals;
   }

 private:
   // A VRF without an id of its own may be a plain name.
   static L3::VrfName nameOf( const Entry & entry ) {
      if ( !entry.node().IsScalar() ) {
         entry.at( "name" );
         return entry.vrf( "name" );
      }
      const auto name = entry.text( "a VRF name" );
      if ( const auto wrong = wrongVrfName( name ); !wrong.empty() ) entry.fail( wrong );
      return L3::VrfName( name );
   }
};

} // namespace

std::unique_ptr< const Section > vrfSection() { return std::make_unique< VrfSection >(); }

} // namespace Host
