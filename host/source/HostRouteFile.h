// The plain route file: one prefix a line, and behind it, where it has some of its own, its next hops.
#pragma once

#include "HostFile.h"
#include "HostRouterState.h"
#include "HostSourceErrors.h"

#include <string_view>
#include <unordered_map>

namespace Host {

struct RouteFileConfig {
   std::string path; // empty: there is none
   L3::VrfName vrf = L3::VrfName::defaultVrf();
   // Where the prefixes of lines without next hops go.
   struct Group {
      std::vector< Hop > hops;
      int line; // of the description
   };
   std::vector< Group > groups{};
   std::string description{}; // the file that has them
};

// Brings the FIB in line with the file, in steps. The routes are in the FIB and nowhere else.
//
//    10.0.0.0/8
//    192.0.2.0/24  10.0.1.2 10.0.2.2*3 10.0.3.2%Ethernet3 Tunnel1
//    198.51.100.0/24 blackhole
//
// Which group a prefix without next hops goes to depends on the prefix and the number of groups alone, so a line that
// comes or goes moves no other. Text after # is a comment.
//
// A file that somebody is still writing (it changed while it was read, it ends within a line, it is empty) adds what it
// has and takes nothing away: a comment alone says that there is no route.
//
// States: reading (lines come into the FIB), removing (what it did not tell again is swept), over.
class RouteFile {
 public:
   RouteFile( RouterState & state, RouteFileConfig config, SourceErrors & errors );
   ~RouteFile();
   RouteFile( const RouteFile & ) = delete;
   RouteFile & operator=( const RouteFile & ) = delete;

   // Reads so many lines, or looks at so many routes; false once it is over.
   bool step( size_t most );

 private:
   enum class Phase { reading, removing, over };
   // FECs by the text of a line's next hops, each with a user while this lives. A FEC of 0: the text is wrong.
   struct Known {
      Mirel::RouteType kind;
      U64 fecId;
      std::string wrong;
   };
   template < typename P >
   struct Family {
      RouteBook< P > & book;
      std::vector< Known > groups{};
      std::unordered_map< std::string, Known > known{};
      U32 at = 0; // of the sweep
   };

   void end( LineFile::Next how );
   void line( std::string_view text );
   template < typename P >
   void route( Family< P > & family, const P & prefix, std::string_view hops );
   template < typename P >
   const Known & waysOf( Family< P > & family, const P & prefix, std::string_view hops );
   template < typename P >
   Known acquire( Family< P > & family, const Ways & ways );
   template < typename P >
   void makeGroups( Family< P > & family, bool tellErrors );
   template < typename P >
   void forget( Family< P > & family );
   void error( std::string text );

   RouterState & state_;
   const RouteFileConfig config_;
   SourceErrors & errors_;
   Phase phase_ = Phase::reading;
   U32 vrfId_ = 0;
   LineFile in_;
   int line_ = 0;
   size_t notes_ = 0; // told: the first ones, each for the first line with such next hops
   Family< Kynet::Prefix > v4_;
   Family< Kynet::Ip6Prefix > v6_;
};

} // namespace Host
