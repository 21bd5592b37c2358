// virtual-macs: the MACs of virtual routers, to which the router answers on an interface.
#include "HostSection.h"

namespace Host {

namespace {

class VirtualMacSection : public Section {
 public:
   const char * name() const override { return "virtual-macs"; }
   const char * kind() const override { return "virtual-mac"; }
   std::string key( const Entry & entry ) const override { return textOf( keyOf( entry ) ); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      return state.virtualMacBook().virtualMacs().contains( keyOf( entry ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "interface", "mac" } );
      return state.virtualMacIs( factOf( keyOf( entry ) ), teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      return state.virtualMacDel( factOf( keyOf( entry ) ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      for ( const auto & key : untold( state.virtualMacBook().virtualMacs(), teller, keys, textOf ) )
         state.virtualMacDel( factOf( key ) );
      return {};
   }

 private:
   using Key = VirtualMacBook::Key;
   static Key keyOf( const Entry & entry ) {
      return { entry.intf( "interface" ), entry.at( "mac" ).value< Kynet::EthAddr >( "a MAC address" ) };
   }
   static VirtualMacFact factOf( const Key & key ) { return { key.first, key.second }; }
   static std::string textOf( const Key & key ) { return key.second.stringValue() + " on " + key.first.stringValue(); }
};

} // namespace

std::unique_ptr< const Section > virtualMacSection() { return std::make_unique< VirtualMacSection >(); }

} // namespace Host
