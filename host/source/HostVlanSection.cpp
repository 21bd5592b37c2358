// vlans: VLANs with their member ports.
#include "HostSection.h"

namespace Host {

namespace {

class VlanSection : public Section {
 public:
   const char * name() const override { return "vlans"; }
   const char * kind() const override { return "vlan"; }
   std::string key( const Entry & entry ) const override { return textOf( idOf( entry ) ); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.vlanBook().vlans().contains( idOf( entry ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "id", "members" } );
      VlanFact fact{ idOf( entry ) };
      for ( const auto & member : entry.list( "members" ) )
         fact.members.insert( member.value< Kynet::IntfId >( "an interface name" ) );
      return state.vlanIs( fact, teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      return state.vlanDel( idOf( entry ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      for ( const auto vlanId : untold( state.vlanBook().vlans(), teller, keys, textOf ) ) state.vlanDel( vlanId );
      return {};
   }

 private:
   static Bridging::VlanId idOf( const Entry & entry ) {
      return Bridging::VlanId( static_cast< U16 >( entry.at( "id" ).number( "id", 1, 4094 ) ) );
   }
   static std::string textOf( Bridging::VlanId vlanId ) { return std::to_string( vlanId.value() ); }
};

} // namespace

std::unique_ptr< const Section > vlanSection() { return std::make_unique< VlanSection >(); }

} // namespace Host
