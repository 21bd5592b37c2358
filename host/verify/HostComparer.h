// Comparers: each knows what one module of its class should hold, and is told what it holds.
#pragma once

#include "HostAgentView.h"
#include "HostFindings.h"
#include "VexKyAclDb.h"

#include <google/protobuf/any.pb.h>
#include <optional>

namespace Host {

// An entry of a next-hop table as the agent means it.
struct NexthopIntent {
   S32 command; // of next_hop_command.h
   Kynet::EthAddr mac;
   VexL3Unicast::FecKey fecKey;
};

// What the comparers of one run share. The agent does not change while it is read: a run is given up at the first step
// after a change, and what it points at is not owned.
struct Comparison {
   Comparison( const AgentView & session, size_t mostFindings );

   const AgentView session;
   Findings findings;
   const std::map< std::string, Vex::Module * > modules;      // the agent's
   std::map< const Vex::Module *, Kynet::IntfId > classified; // the interface of each EtherClassify
   // By interface and index: of the FECs that are in the data plane.
   std::map< Kynet::IntfId, std::map< U32, NexthopIntent > > nexthops;

   // What the data plane has, for those who refer to it: output gates that lead somewhere, table entries by index.
   std::set< std::pair< std::string, U64 > > connected;
   std::map< std::string, std::set< U32 > > entries;
   std::set< std::pair< Vex::AclTarget, U32 > > ruleTables; // by target and id

   bool leads( const std::string & module, U32 gate ) const { return connected.contains( { module, gate } ); }
   bool has( const std::string & module, U32 index ) const {
      const auto at = entries.find( module );
      return at != entries.end() && at->second.contains( index );
   }
};

class Comparer {
 public:
   Comparer( Comparison & comparison, Vex::Module & module ) : comparison_( comparison ), module_( module ) {}
   virtual ~Comparer() = default;

   // The arguments with which the data plane made the module. By default they are those of the proxy.
   virtual void created( const google::protobuf::Any & arg );
   // A command that would bring the module to its state, with its serialized argument. The counters of every module
   // are compared here.
   void command( const std::string & cmd, const std::string & type, const std::string & arg );
   // After everything has been told, to all: what is missing, and what dangles. False: there is more to do, in another
   // slice.
   virtual bool finish() { return true; }
   void finishCounters();

 protected:
   // False: the class does not know the command.
   virtual bool told( const std::string &, const std::string & ) { return false; }

   Comparison & comparison() const { return comparison_; }
   Findings & findings() const { return comparison_.findings; }
   const AgentView & session() const { return comparison_.session; }
   Vex::Module & module() const { return module_; }
   const std::string & name() const { return module_.name(); }

 private:
   Comparison & comparison_;
   Vex::Module & module_;
   std::set< U32 > counters_;
};

// None for what is no MAC.
Kynet::EthAddr macOf( const std::string & bytes );

using MakeComparer = std::unique_ptr< Comparer > ( * )( Comparison & comparison, Vex::Module & module );

// By class. A class without one has its arguments compared, and its commands named as not compared.
std::unique_ptr< Comparer > comparerOf( Comparison & comparison, Vex::Module & module );

std::unique_ptr< Comparer > fibComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > nexthopComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > resolveComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > ipInputComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > ipOutputComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > portComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > classifyComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > ruleTablesComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > accessListComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > policyComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > ipsecComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > tunnelComparer( Comparison & comparison, Vex::Module & module );
std::unique_ptr< Comparer > trapComparer( Comparison & comparison, Vex::Module & module );

} // namespace Host
