// The next-hop tables of the interfaces, and the resolve tables of the tunnels.

#include "HostComparer.h"
#include "StateBridging.h"
#include "vex/next_hop.pb.h"

namespace Host {

using namespace VexL3Unicast;

namespace {

std::string inWords( S32 command, const Kynet::EthAddr & mac ) {
   static const char * const commands[] = { "punt", "forward", "drop" };
   const auto word = command >= 0 && command <= 2 ? commands[ command ] : "command " + std::to_string( command );
   return !mac ? word : word + " to " + mac.stringValue();
}

class NexthopComparer : public Comparer {
 public:
   NexthopComparer( Comparison & comparison, Vex::Module & module ) :
        Comparer( comparison, module ), intfId_( static_cast< NextHopMod & >( module ).intfId() ),
        meant_( comparison.nexthops[ intfId_ ] ) {
      comparison.entries[ name() ];
   }

   bool finish() override {
      const auto & held = comparison().entries[ name() ];
      for ( const auto & [ index, intent ] : meant_ )
         if ( !held.contains( index ) )
            findings().missing( name(), object( index ),
                                inWords( intent.command, intent.mac ) + " for FEC " +
                                     std::to_string( intent.fecKey.value() ) );
      finishSource();
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & arg ) override {
      if ( cmd == "setSrcMacAddr" ) {
         vex::pb::EthernetConfigArg mac;
         if ( !mac.ParseFromString( arg ) ) return false;
         source_ = macOf( mac.mac_addr() );
         return true;
      }
      vex::pb::NextHopWriteNHArg entries;
      if ( cmd != "writeNH" || !entries.ParseFromString( arg ) ) return false;
      for ( const auto & entry : entries.nexthopinfo() ) compare( entry );
      return true;
   }

 private:
   static std::string object( U32 index ) { return "next hop " + std::to_string( index ); }

   void compare( const vex::pb::NextHopWriteNHArg::NextHopInfo & entry ) {
      findings().compared( "next hops" );
      comparison().entries[ name() ].insert( entry.nh_index() );
      const auto held = inWords( entry.pkt_cmd(), macOf( entry.mac_da() ) );
      const auto at = meant_.find( entry.nh_index() );
      if ( at == meant_.end() ) return findings().unexpected( name(), object( entry.nh_index() ), held );
      findings().compare( name(), object( entry.nh_index() ), inWords( at->second.command, at->second.mac ), held );
   }

   // The interface's MAC and the bridge's are both written here, and the last one stands.
   void finishSource() {
      const auto & l2Intf = session().vexcsd()->l2Intf( intfId_ );
      if ( !l2Intf ) return;
      const auto & bridge = session().agent()->bridgingConfig()->bridgeMacAddr();
      if ( source_ != l2Intf->macAddr() && ( !bridge || source_ != bridge ) )
         findings().different( name(), "source MAC", textOrNone( l2Intf->macAddr() ), textOrNone( source_ ) );
   }

   const Kynet::IntfId intfId_;
   const std::map< U32, NexthopIntent > & meant_;
   Kynet::EthAddr source_;
};

class ResolveComparer : public Comparer {
 public:
   ResolveComparer( Comparison & comparison, Vex::Module & module ) :
        Comparer( comparison, module ), resolve_( static_cast< NhResolve & >( module ) ) {
      comparison.entries[ name() ];
      for ( const auto & [ key, index ] : resolve_.nhrEntryIterator() )
         // 0 is reserved, and not written.
         if ( index != 0 )
            meant_[ index ] = { resolve_.intfIdToOutGate( key.intf() ).value(), key.nhLocalIndex(), key.intf() };
   }

   bool finish() override {
      const auto & held = comparison().entries[ name() ];
      for ( const auto & [ index, entry ] : meant_ ) {
         if ( !held.contains( index ) ) {
            findings().missing( name(), object( index ), inWords( entry.gate, entry.nexthop ) );
            continue;
         }
         // One that the agent means without a gate waits for its interface.
         if ( entry.gate != Vex::GateId().value() && !comparison().leads( name(), entry.gate ) )
            findings().dangling( name(), object( index ), inWords( entry.gate, entry.nexthop ) + ": it leads nowhere" );
         const auto & nexthops = session().l3Modules()->nextHopMod( entry.intfId );
         if ( nexthops && !comparison().has( nexthops->name(), entry.nexthop ) )
            findings().dangling( name(), object( index ),
                                 nexthops->name() + " has no entry " + std::to_string( entry.nexthop ) );
      }
      return true;
   }

 protected:
   bool told( const std::string & cmd, const std::string & arg ) override {
      vex::pb::NhResolveEntryInfoArg entry;
      if ( cmd != "addNhResolveEntry" || !entry.ParseFromString( arg ) ) return false;
      findings().compared( "resolve entries" );
      comparison().entries[ name() ].insert( entry.nhr_index() );
      const auto held = inWords( entry.ogate(), entry.nhm_index() );
      const auto at = meant_.find( entry.nhr_index() );
      if ( at == meant_.end() )
         findings().unexpected( name(), object( entry.nhr_index() ), held );
      else
         findings().compare( name(), object( entry.nhr_index() ), inWords( at->second.gate, at->second.nexthop ),
                             held );
      return true;
   }

 private:
   struct Entry {
      U32 gate;
      U32 nexthop;
      Kynet::IntfId intfId;
   };
   static std::string object( U32 index ) { return "resolve entry " + std::to_string( index ); }
   static std::string inWords( U32 gate, U32 nexthop ) {
      return ( gate == Vex::GateId().value() ? "no gate" : "gate " + std::to_string( gate ) ) + ", next hop " +
             std::to_string( nexthop );
   }

   NhResolve & resolve_;
   std::map< U32, Entry > meant_;
};

} // namespace

std::unique_ptr< Comparer > nexthopComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< NexthopComparer >( comparison, module );
}

std::unique_ptr< Comparer > resolveComparer( Comparison & comparison, Vex::Module & module ) {
   return std::make_unique< ResolveComparer >( comparison, module );
}

} // namespace Host
