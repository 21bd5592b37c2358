// The virtual routers' MACs that the router is told.
#pragma once

#include "HostIntfBook.h"

namespace Host {

// The layers above take a MAC where its interface is, and do not come back to one whose interface was not there or is
// made anew. So a MAC is refused without its interface, goes with it, and is told again when it was rebuilt.
class VirtualMacBook {
 public:
   using Key = std::pair< Kynet::IntfId, Kynet::EthAddr >;
   using VirtualMacs = std::map< Key, Told< VirtualMacFact > >;

   VirtualMacBook( StateTree & tree, const IntfBook & intfs ) : tree_( tree ), intfs_( intfs ) {}

   ChangeResult virtualMacIs( const VirtualMacFact & fact, Teller teller );
   ChangeResult virtualMacDel( const VirtualMacFact & fact );
   // The interface has gone.
   void intfDel( Kynet::IntfId intfId );
   // The interface's port is another one than before.
   void rebuilt( Kynet::IntfId intfId );

   const VirtualMacs & virtualMacs() const { return virtualMacs_; }

 private:
   // "virtual MAC 00:00:5e:00:01:07 on Ethernet1"
   static Gant::String nameOf( const VirtualMacFact & fact );
   std::vector< VirtualMacFact > macsOf( Kynet::IntfId intfId ) const;
   void announce( const VirtualMacFact & fact, bool present );

   StateTree & tree_;
   const IntfBook & intfs_;
   VirtualMacs virtualMacs_;
};

} // namespace Host
