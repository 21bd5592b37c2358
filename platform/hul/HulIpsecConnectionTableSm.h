// IKE connections: the machine that tells the data plane's helper.
#pragma once

#include "GantNotify.h"

namespace Ipsec::Ike {
class ConnectionTable;
}

namespace HulIpsec {

class HulIpsecSmHelper;

class HulConnectionTableSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulIpsecSmHelper > platformHelper{};
      Gant::Ptr< Ipsec::Ike::ConnectionTable > connectionTable{};
   };
   explicit HulConnectionTableSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace HulIpsec
