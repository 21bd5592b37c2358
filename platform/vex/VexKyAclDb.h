// The rule tables of access lists, of quality-of-service policies and of the control plane's policy.
#pragma once

#include "VexModule.h"

#include <deque>

namespace Vex {

// Who uses a table. A table's id is one of a common set, whatever it is for.
enum class AclTarget : U32 { security = 0, qos = 1, cpu = 2 };

// The module that holds every rule table, and that owns the counters of their rules. The modules on the interfaces and
// the trap module point at a table by id: a table that is made again under its id is swapped for all of them at once.
//
// Ids go from 0 to maxAcls() - 1. One that was given back comes last again, so that what still refers to it in the data
// plane does not meet another table.
class KyAclDb : public Module {
 public:
   explicit KyAclDb( Gant::Ptr< ModuleConfigStatusPair > pair );
   const char * fwkType() const override { return "Vex::KyAclDb"; }

   static constexpr U32 maxAcls() { return 128; }
   size_t freeAclIds() const { return freeAclIds_.size(); }
   // Of an id that is free; there must be one.
   U16 freeAclIdDeq();
   void freeAclIdEnq( U16 id );

   // Takes a vex::pb::KyIpAclArg. It makes the table, or replaces the one of its id.
   void createAcl( Message * message );
   void destroyAcl( U16 id );
   // The same for policies. Those that go are of quality of service.
   void createPolicy( Message * message );
   void destroyPolicy( U16 id );

 private:
   void destroy( const char * action, U16 id, AclTarget target );

   std::deque< U16 > freeAclIds_;
};

} // namespace Vex
