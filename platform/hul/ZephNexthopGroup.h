// Next-hop groups. This data plane has none: the machines hold their place.
#pragma once

#include "GantEntity.h"

namespace Ip {
class Status;
}
namespace Ip6 {
class Status;
}
namespace Quorl {
class EntityManager;
}
namespace Routing::Hardware {
class Status;
}
namespace Routing::NexthopGroup {
class Config;
class ConfigInput;
class EntryStatus;
class Status;
} // namespace Routing::NexthopGroup

namespace Zeph {

class NexthopGroupSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< Routing::NexthopGroup::Config > nexthopGroupConfig{};
      Gant::Ptr< Routing::NexthopGroup::Status > nexthopGroupStatus{};
      Gant::Ptr< const Ip::Status > ipStatus{};
      Gant::Ptr< const Ip6::Status > ip6Status{};
      Gant::Ptr< Routing::Hardware::Status > routingHwStatus{};
      Gant::Ptr< Routing::NexthopGroup::EntryStatus > nexthopGroupEntryStatus{};
   };
   explicit NexthopGroupSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

   // The table of the groups' entries. A writer's call makes it where there is none; others get nothing then.
   static Gant::Ptr< Routing::NexthopGroup::EntryStatus > mirelMountNhgStatus(
        const Gant::Ptr< Quorl::EntityManager > & em, bool writer );

 private:
   Args args_;
};

class NexthopGroupConfigMergeSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< Routing::NexthopGroup::Config > nexthopGroupConfig{};
      Gant::Ptr< const Routing::NexthopGroup::ConfigInput > nexthopGroupCliConfig{};
      Gant::Ptr< const Gant::Dir > nexthopGroupConfigInput{};
      Gant::Ptr< Quorl::EntityManager > em{};
   };
   explicit NexthopGroupConfigMergeSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace Zeph
