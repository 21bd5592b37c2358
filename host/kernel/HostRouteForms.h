// Requests that tell the kernel a route, without what tells one prefix from another.
#pragma once

#include "GantTypes.h"
#include "MirelSlab.h"

#include <string>
#include <unordered_map>

struct nlmsghdr;

namespace Host {

// Of a million routes few lead elsewhere than many others do: a route keeps its prefix and the number of its form. A
// form is there as long as somebody uses it.
class RouteForms {
 public:
   // The form of a request for an IPv4 route, made where there is none, with one user more. Never 0.
   U32 acquire( const nlmsghdr & request );
   void release( U32 form );
   U32 metric( U32 form ) const { return forms_[ form - 1 ].metric; }
   // The request of the form for the prefix, up to the next call.
   nlmsghdr & request( U32 form, U32 address, U8 len );
   void clear();

 private:
   struct Form {
      const std::string * bytes = nullptr; // of its key
      U32 users = 0;
      U32 metric = 0;
      U32 addressAt = 0; // 0: it has none, as that of the default route
   };
   Mirel::Slab< Form > forms_; // the number is the place and one
   std::unordered_map< std::string, U32 > numbers_;
   std::string room_;
};

} // namespace Host
