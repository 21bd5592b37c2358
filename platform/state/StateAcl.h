// Access lists.
#pragma once

#include "GantEntity.h"
#include "GantValue.h"

namespace Acl {

// A version of an access list.
class UniqueId {
   GANT_SCALAR( UniqueId, U64, 0 )
};

// What all inputs merge into.
class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

class ParamConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

class IntfConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

class StatusBase : public Gant::Entity {
 public:
   using Entity::Entity;
   // Makes the object ready to be written. Call it before the first write.
   void initialize() { initialized_ = true; }
   bool initialized() const { return initialized_; }

 private:
   bool initialized_ = false;
};

// What one data plane has programmed.
class StatusDp : public StatusBase {
 public:
   using StatusBase::StatusBase;
};

namespace Input {

class Config : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Input

// Merges the inputs into one configuration.
class AclConfigAggregatorSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Gant::Dir > aclInputConfig{};
      Gant::Ptr< const Input::Config > aclCliConfig{};
      Gant::Ptr< Config > aclConfig{};
   };
   explicit AclConfigAggregatorSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace Acl
