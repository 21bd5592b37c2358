// Rule records and their counters: what all users of the rule database share. These are the access lists
// (Vex::AclHelper), the quality-of-service policies (Vex::QosAclHelper) and the control-plane policy
// (Vex::QosCpuPolicy).
#pragma once

#include "HulAclTypes.h"
#include "VexCommonSmData.h"
#include "VexCounterDb.h"
#include "VexKyAclDb.h"
#include "VexL3Export.h"

namespace vex::pb {
class KyIpAclArg_IpRule;
}

namespace Vex {

// What a rule does to a packet. A half whose `set...` is false is left alone.
class VexAclRuleAction {
   GANT_VALUE( "Vex::VexAclRuleAction", VexAclRuleAction, ( bool, setPermit ), ( bool, permit ), ( bool, setLog ),
               ( bool, log ), ( bool, setDscp ), ( U8, dscp ), ( bool, setTc ), ( U8, tc ) )
};

// The counters of one list's rules. A counter follows its rule from version to version, whatever its number.
//
// Invariant: counterId and lastCount have the same keys.
class VexAclCommonData : public Gant::PtrInterface {
 public:
   using CounterIds = Gant::HashMap< Acl::UniqueId, CounterId >;
   using Counts = Gant::HashMap< Acl::UniqueId, U64 >;
   using RuleIds = Gant::HashMap< Acl::UniqueId, bool >;
   const char * fwkType() const override { return "Vex::VexAclCommonData"; }

   GANT_MAP( CounterIds, counterId )
   GANT_MAP( Counts, lastCount ) // at the last poll of the rule
   GANT_MAP( RuleIds, ruleId )   // the rules of the version under construction, or of the present one
};

VEXL3_EXPORT Gant::Ptr< VexAclCommonData > vexAclCommonDataFactory();

// A rule table under construction: a vex::pb::KyIpAclArg, owned until it is handed over.
class KyIpAclMessage : public Gant::PtrInterface {
 public:
   using Message = google::protobuf::Message;
   KyIpAclMessage( U16 aclId, AclTarget target );
   ~KyIpAclMessage() override;
   const char * fwkType() const override { return "Vex::KyIpAclMessage"; }
   // Null once it was handed over.
   Message * message() const { return message_.get(); }
   Message * release() { return message_.release(); }

 private:
   std::unique_ptr< Message > message_;
};
using KyIpAclMessagePtr = Gant::Ptr< KyIpAclMessage >;

// A half that is not set is not in the record; whether DSCP and traffic class are set always is.
void setRuleAction( vex::pb::KyIpAclArg_IpRule & rule, const VexAclRuleAction & action );

// Turns configured rules into records, appended to the message in the order of the calls, and keeps their counters.
// It holds nothing of a list: that is in the list's data.
//
// For each version of a list: clear the data's ruleId, make all rules, hand the table over, and then
// freeCounterIds( data, false ). The subrules of a rule share its unique id, and so its counter.
class AclCommonHelper : public Gant::PtrInterface {
 public:
   using Message = google::protobuf::Message;
   using DataPtr = Gant::Ptr< VexAclCommonData >;
   using Match = Hul::SubruleMatch;

   // `counterMirel` may be null: every count reads as 0.
   AclCommonHelper( Gant::Ptr< VexCommonSmData > vexcsd,
                    Gant::Ptr< const VexModules::MirelCounterDbStatus > counterMirel );
   ~AclCommonHelper() override;
   const char * fwkType() const override { return "Vex::AclCommonHelper"; }

   GANT_CONST( Gant::Ptr< VexCommonSmData >, vexcsd )
   GANT_CONST( Gant::Ptr< const VexModules::MirelCounterDbStatus >, counterMirel )

   // Marks the rule as live, and gives it a counter of that name if it has none.
   void allocateCounterId( const DataPtr & data, const Gant::String & counterName, const Acl::UniqueId & uniqueId );
   // Packets since the counter was allocated; 0 for a rule without one.
   U64 getCounter( const DataPtr & data, const Acl::UniqueId & uniqueId ) const;
   // Releases the counters of the rules that are not live, or all of them. ruleId stays.
   void freeCounterIds( const DataPtr & data, bool all );

   // A rule of any type takes a counter. IPv6 is refused; types other than the two of IP add no record.
   Hul::AclCreateError createIpAclSubrule( const DataPtr & data, const Gant::String & counterName, Message * message,
                                           Acl::AclType type, const VexAclRuleAction & action,
                                           const Acl::RuleConfig & ruleConfig, const Acl::UniqueId & uniqueId,
                                           U32 ruleNum, U32 subruleNum, const Match & match );
   Hul::AclCreateError createIpv4AclSubrule( const DataPtr & data, Message * message, Acl::AclType type,
                                             const VexAclRuleAction & action, const Acl::RuleConfig & ruleConfig,
                                             const Acl::UniqueId & uniqueId, U32 ruleNum, U32 subruleNum,
                                             const Match & match );
   Hul::AclCreateError createIpv6AclSubrule( const DataPtr & data, Message * message, Acl::AclType type,
                                             const VexAclRuleAction & action, const Acl::RuleConfig & ruleConfig,
                                             const Acl::UniqueId & uniqueId, U32 ruleNum, U32 subruleNum,
                                             const Match & match );
   // Adds nothing: the record can't tell fragments.
   Hul::AclCreateError createIpFragRule( const DataPtr & data, Message * message, const VexAclRuleAction & action,
                                         const Acl::RuleConfig & ruleConfig, const Acl::UniqueId & uniqueId,
                                         U32 ruleNum, U32 subruleNum );
   // A record that matches everything.
   Hul::AclCreateError createFinalAclRule( const DataPtr & data, const Gant::String & counterName, Message * message,
                                           Acl::AclType type, const Acl::UniqueId & uniqueId,
                                           const VexAclRuleAction & action, U32 ruleNum );
   Hul::AclCreateError createIpv4FinalAclRule( const DataPtr & data, Message * message, Acl::AclType type,
                                               const VexAclRuleAction & action, const Acl::UniqueId & uniqueId,
                                               U32 ruleNum );
   Hul::AclCreateError createIpv6FinalAclRule( const DataPtr & data, Message * message, Acl::AclType type,
                                               const VexAclRuleAction & action, const Acl::UniqueId & uniqueId,
                                               U32 ruleNum );
};

} // namespace Vex
