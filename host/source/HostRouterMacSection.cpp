// router: what belongs to the router as a whole. One entry, which is a map.
#include "HostSection.h"

#include "HostVerdict.h"

namespace Host {

namespace {

class RouterMacSection : public Section {
 public:
   const char * name() const override { return "router"; }
   const char * kind() const override { return "router"; }
   std::string key( const Entry & ) const override { return "router"; }
   bool has( const RouterState & state, const Entry & ) const override {
      return !!state.intfBook().routerMac() || !state.intfBook().kernel();
   }

   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      entry.only( { "mac", "bridge-mac", "kernel" } );
      const bool kernel = entry.flag( "kernel", true );
      const auto mac = entry.value< Kynet::EthAddr >( "mac", "a MAC address", {} );
      const auto bridgeMac = entry.value< Kynet::EthAddr >( "bridge-mac", "a MAC address", mac );
      if ( bridgeMac != mac )
         entry.at( "bridge-mac" )
              .fail( "bridge-mac " + bridgeMac.stringValue() + " is not the router's own MAC" +
                     ( !mac ? ", of which there is none" : ", " + mac.stringValue() ) );
      auto result = state.routerMacIs( mac, teller );
      if ( isDone( result ) ) state.kernelIs( kernel, teller );
      return result;
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      if ( !has( state, entry ) ) return notFound( "router: there is no MAC" );
      state.kernelIs( true, Teller::none() );
      return state.routerMacIs( {}, Teller::none() );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      if ( !keys.empty() ) return {};
      if ( state.intfBook().routerMacTeller() == teller ) state.routerMacIs( {}, Teller::none() );
      if ( state.intfBook().kernelTeller() == teller ) state.kernelIs( true, Teller::none() );
      return {};
   }
};

} // namespace

std::unique_ptr< const Section > routerMacSection() { return std::make_unique< RouterMacSection >(); }

} // namespace Host
