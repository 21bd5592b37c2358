// IKE connections: the machine that tells the data plane's helper.
#pragma once

#include "HulIpsecSmHelper.h"

#include <memory>

namespace HulIpsec {

//   watches  Ipsec::Ike::ConnectionTable::connection
//   calls    HulIpsecSmHelper, what differs from what it was told
//
// The connections that are there are told when the machine is made. A change of several parts is told in an order that
// loses no packet: the interfaces, then what the peer may send with, then what this end sends with.
class HulConnectionTableSm : public Gant::StateMachine {
 public:
   // Without a helper or a table there is nothing to do.
   struct Args {
      Gant::Ptr< HulIpsecSmHelper > platformHelper{};
      Gant::Ptr< const Ipsec::Ike::ConnectionTable > connectionTable{};
   };
   explicit HulConnectionTableSm( Args args );
   ~HulConnectionTableSm() override;
   const Args & args() const { return args_; }

 private:
   struct GantConnectionTable;

   void reviewAll();
   void review( const Ipsec::Ike::ConnectionKey & key );
   void create( const Ipsec::Ike::ConnectionKey & key, const Ipsec::Ike::Connection & wanted );
   void update( const Ipsec::Ike::ConnectionKey & key, const Ipsec::Ike::Connection & wanted );

   Args args_;
   Ipsec::Ike::ConnectionTable::Connections told_;
   std::unique_ptr< GantConnectionTable > tableReactor_;
};

} // namespace HulIpsec
