// Quality-of-service policies: the machine that tells the data plane's helper.
#pragma once

#include "GantEntity.h"

namespace Acl {
class Config;
}
namespace HulHelper {
class QosAclHelper;
}
namespace HwEpoch {
class Status;
}
namespace Kyt {
class TimerWheel;
}
namespace Qos {
class AclHwStatus;
class AclSliceHwStatus;
class CounterConfig;
class HwStatus;
class Status;
namespace Input {
class Config;
}
} // namespace Qos

namespace Hul {

class HulCommonSmData;

class QosAclSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< const Qos::CounterConfig > qosCliCounterConfig{};
      Gant::Ptr< const Gant::Dir > qosCounterConfigDir{};
      Gant::Ptr< const Qos::Status > qosStatus{};
      Gant::Ptr< Qos::HwStatus > qosHwStatus{};
      Gant::Ptr< Gant::Dir > qosSliceHwStatusDir{};
      Gant::Ptr< Qos::AclHwStatus > qosAclHwStatus{};
      Gant::Ptr< Qos::AclSliceHwStatus > qosAclSliceHwStatus{};
      Gant::Ptr< Qos::Input::Config > qosPdpHwCfg{};
      Gant::Ptr< const HwEpoch::Status > hwEpochStatus{};
      Gant::Ptr< Acl::Config > aclConfig{};
      Gant::Ptr< HulHelper::QosAclHelper > qosAclHelper{};
      Gant::Ptr< Kyt::TimerWheel > clock{};
   };
   explicit QosAclSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

   // Called right after construction, with true: from now on it may call its helper.
   virtual void startIs( bool start ) { start_ = start; }
   bool start() const { return start_; }

 private:
   Args args_;
   bool start_ = false;
};

} // namespace Hul
