// neighbors: static ARP and neighbour-discovery entries.
#include "HostSection.h"

#include "HostVerdict.h"

namespace Host {

namespace {

class NeighborSection : public Section {
 public:
   const char * name() const override { return "neighbors"; }
   const char * kind() const override { return "neighbor"; }
   std::string key( const Entry & entry ) const override { return textOf( keyOf( entry ) ); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      const auto teller = tellerOf( state, keyOf( entry ) );
      // What the kernel has resolved does not stand in the way of what is told.
      return teller != Teller::none_ && teller != Teller::kernel_;
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "interface", "address", "mac" } );
      const auto key = keyOf( entry );
      return state.neighborIs( { key.first, key.second, entry.at( "mac" ).value< Kynet::EthAddr >( "a MAC address" ) },
                               teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      const auto key = keyOf( entry );
      if ( tellerOf( state, key ) == Teller::kernel_ )
         return refused( "neighbor " + textOf( key ) + ": the kernel has resolved it" );
      return state.neighborDel( key.first, key.second );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      std::vector< IntfBook::NeighborKey > gone;
      for ( const auto & [ key, told ] : state.intfBook().neighbors() )
         if ( told.teller == teller && !keys.contains( textOf( key ) ) ) gone.push_back( key );
      for ( const auto & key : gone ) state.neighborDel( key.first, key.second );
      return {};
   }

 private:
   static IntfBook::NeighborKey keyOf( const Entry & entry ) {
      return { entry.intf( "interface" ), entry.at( "address" ).value< Kynet::IpGenAddr >( "an IP address" ) };
   }
   static Teller tellerOf( const RouterState & state, const IntfBook::NeighborKey & key ) {
      const auto at = state.intfBook().neighbors().find( key );
      return at == state.intfBook().neighbors().end() ? Teller() : at->second.teller;
   }
   static std::string textOf( const IntfBook::NeighborKey & key ) {
      return key.second.stringValue() + " on " + key.first.stringValue();
   }
};

} // namespace

std::unique_ptr< const Section > neighborSection() { return std::make_unique< NeighborSection >(); }

} // namespace Host
