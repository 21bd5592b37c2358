// router: what belongs to the router as a whole. One entry, which is a map.
#include "HostSection.h"

#include "HostVerdict.h"

namespace Host {

namespace {

class RouterSection : public Section {
 public:
   const char * name() const override { return "router"; }
   const char * kind() const override { return "router"; }
   std::string key( const Entry & ) const override { return "router"; }
   bool has( const RouterState & state, const Entry & ) const override { return !!state.intfBook().routerMac(); }

   ChangeResult replace( RouterState & state, const Entry & entry, Source ) const override {
      entry.only( { "mac" } );
      return state.routerMacIs( entry.value< Kynet::EthAddr >( "mac", "a MAC address", {} ) );
   }
   ChangeResult del( RouterState & state, const Entry & ) const override { return state.routerMacIs( {} ); }
   std::vector< ChangeResult > delOthers( RouterState & state, Source,
                                          const std::set< std::string > & keys ) const override {
      if ( keys.empty() ) state.routerMacIs( {} );
      return {};
   }
};

} // namespace

std::unique_ptr< const Section > routerSection() { return std::make_unique< RouterSection >(); }

} // namespace Host
