// Tells of every change of every access list. Not for public headers.
#pragma once

#include "StateAcl.h"

#include <functional>
#include <memory>

namespace Hul {

//   watches  Acl::Config::aclConfig, and the version of each list
class AclLists {
 public:
   // `changed` is called for a list that came, changed or went, while `owner` listens.
   AclLists( Gant::StateMachine * owner, Gant::Ptr< const Acl::ConfigBase > config,
             std::function< void( const Acl::ListKey & ) > changed );
   ~AclLists();
   // Tells of all lists, as if they had just changed.
   void reviewAll();

 private:
   struct GantConfig;
   struct GantList;
   void review( const Acl::ListKey & list );

   Gant::StateMachine * owner_;
   std::function< void( const Acl::ListKey & ) > changed_;
   std::unique_ptr< GantConfig > configReactor_;
   Gant::OrderedMap< Acl::ListKey, std::unique_ptr< GantList > > listReactors_;
};

} // namespace Hul
