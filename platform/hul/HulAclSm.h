// Access lists: the machine that tells the data plane's helper.
#pragma once

#include "GantActivity.h"
#include "GantEntity.h"

namespace Acl {
class Config;
class IntfConfig;
class ParamConfig;
class StatusDp;
} // namespace Acl
namespace Bridging {
class Config;
}
namespace Errdisable {
class CauseStatus;
}
namespace HulHelper {
class AclHelper;
}
namespace Lag::Input {
class Config;
}

namespace Hul {

class HulCommonSmData;

class AclSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< Acl::Config > aclConfig{};
      Gant::Ptr< const Acl::ParamConfig > aclParamConfig{};
      Gant::Ptr< const Gant::Dir > aclIntfConfigDir{};
      Gant::Ptr< const Acl::IntfConfig > aclIntfConfigCli{};
      Gant::Ptr< const Gant::Dir > aclHwConfig{};
      Gant::Ptr< Acl::StatusDp > aclStatusDp{};
      Gant::Ptr< Errdisable::CauseStatus > aclCauseStatus{};
      Gant::Ptr< const Lag::Input::Config > lagInputConfig{};
      Gant::Ptr< HulHelper::AclHelper > aclHelper{};
      Gant::Ptr< Gant::Clock > clock{};
      Gant::Ptr< const Bridging::Config > bridgingConfig{};
   };
   explicit AclSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

   // Called right after construction, with true: from now on it may call its helper.
   virtual void startIs( bool start ) { start_ = start; }
   bool start() const { return start_; }

 private:
   Args args_;
   bool start_ = false;
};

} // namespace Hul
