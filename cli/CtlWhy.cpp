#include "CtlWhy.h"

#include <fmt/format.h>

namespace Ctl {

namespace {

std::string joinedBy( const char * between, const std::vector< std::string > & words ) {
   std::string out;
   for ( const auto & word : words )
      if ( !word.empty() ) out += ( out.empty() ? "" : between ) + word;
   return out;
}

std::string named( const char * name, const std::string & value ) {
   return value.empty() || *name == 0 ? value : std::string( name ) + " " + value;
}

std::string viasInWords( const Json & offer ) {
   std::vector< std::string > hops;
   for ( const auto & hop : offer.value( "via", Json::array() ) )
      hops.push_back( joinedBy( " ", { member( hop, "address" ),
                                       named( hop.contains( "address" ) ? "on" : "", member( hop, "interface" ) ),
                                       named( "weight", member( hop, "weight" ) ) } ) );
   const auto type = member( offer, "type" );
   return joinedBy( " ", { type == "forward" ? "by" : type, joinedBy( ", ", hops ) } );
}

std::string placesInWords( const Json & nexthops ) {
   std::vector< std::string > places;
   for ( const auto & hop : nexthops )
      places.push_back(
           joinedBy( " ", { member( hop, "interface" ), member( hop, "command" ), member( hop, "mac" ),
                            named( "through", member( hop, "tunnel" ) ), named( "gate", member( hop, "gate" ) ),
                            named( "index", member( hop, "index" ) ) } ) );
   return places.empty() ? "no next hops" : joinedBy( ", ", places );
}

class WhyView : public View {
 public:
   using View::View;
   void row( const Json & row ) override {
      fate( row );
      route( row );
      for ( const auto & offer : row.value( "offers", Json::array() ) )
         line( "Offered by", member( offer, "source" ) + ", " + viasInWords( offer ) +
                                  ( offer.value( "inUse", false ) ? ", in use" : ", waits behind it" ) );
      ways( row.value( "ways", Json::array() ), "Way" );
      fec( row );
      dataPlane( row.value( "dataPlane", Json::object() ) );
      line( "Packets", packets( row ) );
   }
   void end( const Json & ) override {}

 private:
   void line( const std::string & title, const std::string & text ) {
      if ( !text.empty() ) out() << fmt::format( "{:<12}{}\n", title == last_ ? "" : title, text );
      last_ = title;
   }

   void fate( const Json & row ) {
      const auto fate = member( row, "fate" );
      out() << fmt::format( "Packets to {} in VRF {} {}\n", member( row, "address" ), member( row, "vrf" ),
                            fate == "forwarded"    ? "are forwarded"
                            : fate == "local"      ? "are for the router itself"
                            : fate == "kernel"     ? "are left to the kernel"
                            : fate == "partlyLost" ? "are partly LOST"
                            : fate == "misrouted"  ? "go ANOTHER WAY than was told"
                            : fate == "unknown"    ? "go where another agent sends them"
                                                   : "are LOST" );
      for ( const auto & lost : row.value( "lost", Json::array() ) )
         line( fate == "misrouted" || fate == "unknown" ? "Because" : "Lost at",
               member( lost, "where" ) + ": " + member( lost, "why" ) );
      line( "", member( row, "note" ) );
   }

   void route( const Json & row ) {
      std::string acknowledged;
      if ( row.contains( "acknowledged" ) )
         acknowledged = row.at( "acknowledged" ).get< bool >()
                             ? "acknowledged " + seconds( row.at( "acknowledgedSecondsAgo" ).get< double >() ) + " ago"
                             : "not acknowledged";
      line( "Route",
            joinedBy( ", ",
                      { joinedBy( " ", { member( row, "prefix" ), member( row, "type" ), member( row, "builtIn" ) } ),
                        member( row, "state" ), acknowledged, member( row, "reason" ) } ) );
   }

   void ways( const Json & ways, const std::string & title ) {
      for ( const auto & way : ways ) {
         line( title,
               joinedBy( ", ",
                         { joinedBy( " ", { member( way, "kind" ), member( way, "address" ),
                                            named( "on", member( way, "interface" ) ) } ),
                           member( way, "state" ), named( "port", member( way, "port" ) ),
                           joinedBy( " ", { named( "neighbour", member( way, "neighbor" ) ), member( way, "mac" ) } ),
                           named( "to the tunnel's end", member( way, "tunnelEnd" ) ),
                           named( "by", member( way, "tunnelEndBy" ) ),
                           named( "access list", member( way, "accessList" ) ), member( way, "note" ),
                           named( "LOST:", member( way, "lost" ) ) } ) );
         this->ways( way.value( "ways", Json::array() ), "  its end" );
      }
   }

   void fec( const Json & row ) {
      if ( !row.contains( "fec" ) ) return;
      line( "FEC", joinedBy( ", ", { member( row, "fec" ), named( "version", member( row, "fecVersion" ) ),
                                     named( "of adjacency", member( row, "adjacency" ) ),
                                     named( "routes on it:", member( row, "fecRoutes" ) ) } ) );
      if ( row.contains( "nexthops" ) ) line( "Next hops", placesInWords( row.at( "nexthops" ) ) );
   }

   void dataPlane( const Json & copy ) {
      if ( const auto error = member( copy, "error" ); !error.empty() ) {
         line( "Data plane", "not asked: " + error );
      } else if ( copy.contains( "found" ) && !copy.value( "found", false ) ) {
         line( "Data plane", "has no route" );
      } else if ( copy.contains( "prefix" ) ) {
         line( "Data plane",
               joinedBy( ", ", { "has " + member( copy, "prefix" ), named( "FEC", member( copy, "fec" ) ),
                                 placesInWords( copy.value( "nexthops", Json::array() ) ),
                                 copy.value( "agrees", false ) ? "as the agent" : "UNLIKE the agent" } ) );
      }
   }

   static std::string packets( const Json & row ) {
      std::vector< std::string > out;
      for ( const auto & way : row.value( "ways", Json::array() ) )
         if ( way.contains( "packetsOut" ) )
            out.push_back( grouped( way.at( "packetsOut" ).get< std::uint64_t >() ) + " out of " +
                           member( way, "interface" ) );
      return joinedBy( "; ", { "not counted by route", joinedBy( ", ", out ) } );
   }

   std::string last_;
};

} // namespace

Show whyShow() {
   return { .command = "why",
            .help = "why packets to an address go where they go, and where they would be lost",
            .words = { { "", "address", "ADDRESS" }, { "vrf", "vrf", "NAME" } },
            .record = true,
            .view = []( const Given &, std::ostream & out ) -> std::unique_ptr< View > {
               return std::make_unique< WhyView >( out );
            } };
}

} // namespace Ctl
