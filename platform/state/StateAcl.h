// Access lists: what the user wrote, where it is applied, and what of it is programmed.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"
#include "StateAclRule.h"

namespace Acl {

GANT_ENUM( AclType, U8, ( ip, 0 ), ( ipv6, 1 ), ( mac, 2 ) )
inline constexpr auto ip = AclType::ip_;
inline constexpr auto ipv6 = AclType::ipv6_;
inline constexpr auto mac = AclType::mac_;

GANT_ENUM( AclDirection, U8, ( in, 0 ), ( out, 1 ) )
inline constexpr auto in = AclDirection::in_;
inline constexpr auto out = AclDirection::out_;

// A list. Lists of different types may share a name.
class ListKey {
   GANT_VALUE( "Acl::ListKey", ListKey, ( AclType, type ), ( Gant::String, name ) )
};

// Where a list is applied: one of each type and direction on an interface.
class IntfAclKey {
   GANT_VALUE( "Acl::IntfAclKey", IntfAclKey, ( Kynet::IntfId, intfId ), ( AclType, type ),
               ( AclDirection, direction ) )
};

// An entry of a list: a rule, or a remark, which matches nothing.
struct Entry {
   IpRuleConfig rule;
   Gant::String remark;
   bool isRemark = false;
   UniqueId uniqueId; // given by the list
   friend bool operator==( const Entry &, const Entry & ) = default;
};
using Entries = Gant::OrderedMap< U32, Entry >; // by sequence number, the order of matching

// One list. It changes as a whole: a change gives it a new version, and tells.
class AclConfig : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< AclConfig > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVersion() {}
   };
   GANT_NOTIFIER( Notifiee )
   explicit AclConfig( ListKey key ) : key_( std::move( key ) ) {}
   const char * fwkType() const override { return "Acl::AclConfig"; }

   GANT_CONST( ListKey, key )
   const Entries & entries() const { return entries_; }
   const UniqueId & version() const { return version_; }
   // The `uniqueId` of the argument's entries is not read: an entry keeps the identity of the one that it equals, under
   // its sequence number or else under another one, and is new otherwise. Equal entries change nothing.
   void entriesIs( Entries entries );

 private:
   Entries entries_;
   UniqueId version_ = newUniqueId();
};

// Lists by key.
class ConfigBase : public Gant::Entity {
 public:
   using AclConfigs = Gant::OrderedMap< ListKey, Gant::Ptr< AclConfig > >;
   class Notifiee : public Gant::NotifieeOf< ConfigBase > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onAclConfig( const ListKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( AclConfigs, aclConfig, onAclConfig )
};

// What all inputs merge into. Written by AclConfigAggregatorSm where there is one, otherwise by the host.
class Config : public ConfigBase {
 public:
   using ConfigBase::ConfigBase;
};

class ParamConfig : public Gant::Entity {
 public:
   using Entity::Entity;
};

// Which lists are applied, by name.
class IntfConfig : public Gant::Entity {
 public:
   using Names = Gant::OrderedMap< IntfAclKey, Gant::String >;
   class Notifiee : public Gant::NotifieeOf< IntfConfig > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onAclName( const IntfAclKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Names, aclName, onAclName )
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
   using Versions = Gant::OrderedMap< ListKey, UniqueId >;
   using Names = Gant::OrderedMap< IntfAclKey, Gant::String >;
   class Notifiee : public Gant::NotifieeOf< StatusDp > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onProgrammedVersion( const ListKey & ) {}
      virtual void onAppliedName( const IntfAclKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using StatusBase::StatusBase;
   GANT_WATCHED_MAP( Versions, programmedVersion, onProgrammedVersion )
   GANT_WATCHED_MAP( Names, appliedName, onAppliedName )
};

namespace Input {

class Config : public ConfigBase {
 public:
   using ConfigBase::ConfigBase;
};

} // namespace Input

// Merges the inputs into one configuration: a list comes from the command line's, or else from the first of the others
// that has it, by name.
//
//   watches  Acl::Input::Config::aclConfig of aclCliConfig and of every entity of aclInputConfig
//   writes   Acl::Config::aclConfig
class AclConfigAggregatorSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< const Gant::Dir > aclInputConfig{};
      Gant::Ptr< const Input::Config > aclCliConfig{};
      Gant::Ptr< Config > aclConfig{};
   };
   explicit AclConfigAggregatorSm( Args args );
   ~AclConfigAggregatorSm() override;
   const Args & args() const { return args_; }

 private:
   struct GantInput;
   struct GantInputDir;
   void reviewAll();
   void reviewInput( const Gant::Name & name );
   void review( const ListKey & key );

   Args args_;
   Gant::OrderedMap< Gant::Name, std::unique_ptr< GantInput > > inputReactors_;
   std::unique_ptr< GantInput > cliReactor_;
   std::unique_ptr< GantInputDir > dirReactor_;
};

} // namespace Acl
