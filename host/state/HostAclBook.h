// The access lists, class maps and policy maps that the router is told.
#pragma once

#include "HostIntfBook.h"
#include "StateAcl.h"
#include "StateQos.h"

namespace Host {

struct AclFact {
   Acl::ListKey key; // no two lists of one name, whatever their types
   Acl::Entries entries;
};

struct ClassMapFact {
   Gant::String name;
   Qos::ClassMapConfig config;
};

struct PolicyMapFact {
   Gant::String name;
   Qos::PolicyMapConfig config;
};

// What an object names has to be there when it is told, and stays while it is named: a list of class maps and
// interfaces, a class map of policy maps, a policy map of interfaces. Everything is checked before it reaches the state
// tree. A change that is accepted and does less than it says is done, with a message.
class AclBook {
 public:
   using Lists = std::map< Gant::String, Told< AclFact > >;
   using ClassMaps = std::map< Gant::String, Told< ClassMapFact > >;
   using PolicyMaps = std::map< Gant::String, Told< PolicyMapFact > >;

   AclBook( StateTree & tree, const IntfBook & intfs ) : tree_( tree ), intfs_( intfs ) {}

   ChangeResult listIs( const AclFact & fact, Teller teller );
   ChangeResult listDel( const Gant::String & name );
   ChangeResult classMapIs( const ClassMapFact & fact, Teller teller );
   ChangeResult classMapDel( const Gant::String & name );
   ChangeResult policyMapIs( const PolicyMapFact & fact, Teller teller );
   ChangeResult policyMapDel( const Gant::String & name );

   const Lists & lists() const { return lists_; }
   const ClassMaps & classMaps() const { return classMaps_; }
   const PolicyMaps & policyMaps() const { return policyMaps_; }

   // Why the interface cannot have its filters; empty when it can.
   Gant::String wrong( const IntfFact & fact ) const;

 private:
   void noteDenies( const ClassMapFact & fact, const Gant::String & list, ChangeResult & verdict ) const;
   Gant::String listUser( const Gant::String & name ) const;
   Gant::String wrongList( const Gant::String & name ) const;
   size_t tablesWith( const IntfFact & fact ) const;

   StateTree & tree_;
   const IntfBook & intfs_;
   Lists lists_;
   ClassMaps classMaps_;
   PolicyMaps policyMaps_;
};

} // namespace Host
