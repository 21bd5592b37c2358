// IKE connections: the machine that tells the data plane's helper.
#pragma once

#include "HulAnswers.h"
#include "HulIpsecSmHelper.h"
#include "HulPending.h"

#include <memory>

namespace HulIpsec {

//   watches  Ipsec::Ike::ConnectionTable::connection
//            Hul::Progress                              what the data plane has answered
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
      Gant::Ptr< const Hul::Progress > progress{}; // none: nothing is ever under way
   };
   // What is told of a connection.
   enum class Part : U8 { intfs, inboundSas, outboundSa };
   explicit HulConnectionTableSm( Args args );
   ~HulConnectionTableSm() override;
   const Args & args() const { return args_; }

   // What the data plane said of it.
   Hul::RouteState state( const Ipsec::Ike::ConnectionKey & key, Part part ) const;
   // What is told and not programmed, with the reason.
   Hul::Pendings pending() const;

 private:
   struct GantConnectionTable;

   void reviewAll();
   void review( const Ipsec::Ike::ConnectionKey & key );
   void create( const Ipsec::Ike::ConnectionKey & key, const Ipsec::Ike::Connection & wanted );
   template < typename Call >
   void tell( const Ipsec::Ike::ConnectionKey & key, Part part, const Call & call );
   void update( const Ipsec::Ike::ConnectionKey & key, const Ipsec::Ike::Connection & wanted );

   Args args_;
   Ipsec::Ike::ConnectionTable::Connections told_;
   Hul::Answers< std::pair< Ipsec::Ike::ConnectionKey, Part > > answers_;
   std::unique_ptr< GantConnectionTable > tableReactor_;
};

} // namespace HulIpsec
