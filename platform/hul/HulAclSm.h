// Access lists: the machine that tells the data plane's helper.
#pragma once

#include "GantActivity.h"
#include "HulAclTypes.h"
#include "HulAnswers.h"
#include "HulPending.h"

#include <memory>

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

class AclLists;
class HulCommonSmData;
class Posted;

// What a rule has counted since its list was applied.
struct AclRuleCount {
   U32 sequence = 0; // 0: the drop that ends the list
   U64 packets = 0;
   U64 recentPackets = 0; // between the last two calls
   double recentSeconds = 0;
};

//   watches  Acl::Config::aclConfig, and the version of each list
//            Acl::IntfConfig::aclName of aclIntfConfigCli and of every entity of aclIntfConfigDir
//            HulCommonSmData::port, aclRoom
//            Progress                                 what the data plane has answered
//   calls    HulHelper::AclHelper
//   writes   Acl::StatusDp; HulCommonSmData::aclRoom
//
// Whatever changes in one turn of the loop is programmed together in the next one, at start at once, and also before an
// interface comes up to which some of it applies: it is not open for the rest of the turn. A change costs
// what its lists and their interfaces cost. A list that is wrong, or for which there is no room, is not programmed:
// what was programmed of it stays, and an interface keeps the list that it has. Where the room that a list waits for is
// that of lists which the same interfaces leave, they are exchanged: between the two these interfaces let nothing
// through.
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
   explicit AclSm( Args args );
   ~AclSm() override;
   const Args & args() const { return args_; }

   // Called right after construction, with true: from now on it calls its helper. With false at its end, where the data
   // plane stays: it takes every list from there.
   virtual void startIs( bool start );
   bool start() const { return start_; }

   // What is configured and not programmed, with the reason.
   Pendings pending() const;
   // What the data plane said of a list that is applied; of another one: pending.
   RouteState state( const Acl::ListKey & key ) const;
   // In the order of the rules, the closing drop last. Empty for a list that is not applied. Remarks are left out.
   std::vector< AclRuleCount > counts( const Acl::ListKey & key );

 private:
   struct GantIntfConfig;
   struct GantIntfConfigDir;
   struct GantCommon;
   struct Batch;
   using IntfAclKeys = Gant::OrderedSet< Acl::IntfAclKey >;
   // The counts of a list when they were last asked for.
   struct Counted {
      Gant::HashMap< Acl::UniqueId, AclRuleCount > rules;
      double at = 0;
   };

   void reviewAll();
   void reviewList( const Acl::ListKey & key );
   void reviewBinding( const Acl::IntfAclKey & key );
   void reviewIntfConfig( const Gant::Name & name );
   void reviewRefused();
   void portIs( Kynet::IntfId intfId );

   Gant::String wantedList( const Acl::IntfAclKey & key ) const;
   void checkList( const Acl::ListKey & key );
   void plan( Batch & batch );
   void planMove( Batch & batch, const Acl::IntfAclKey & key );
   void build( Batch & batch );
   AclCreateError buildList( const AclData & data, const AclDataPtr & aclData );
   void refuse( Batch & batch, const AclKey & key, AclCreateError error );
   AclCreateError buildVersion( const Gant::Ptr< AclData > & aclData );
   void bind( Batch & batch );
   void release( Batch & batch );
   bool leave( const Acl::IntfAclKey & binding, const Gant::String & name, bool appliedToAnother );
   bool exchange( const Gant::OrderedSet< Acl::ListKey > & lists );
   bool exchangeRefused();
   void programChanges();
   void program();

   AclData * data( const AclKey & key ) const;

   Args args_;
   bool start_ = false;
   Gant::OrderedMap< Gant::Name, std::unique_ptr< GantIntfConfig > > intfReactors_;
   std::unique_ptr< AclLists > lists_;
   std::unique_ptr< GantIntfConfig > cliReactor_;
   std::unique_ptr< GantIntfConfigDir > dirReactor_;
   std::unique_ptr< GantCommon > commonReactor_;

   // What has changed since the last batch.
   Gant::OrderedSet< Acl::ListKey > changedLists_;
   IntfAclKeys changedBindings_;
   // What the user wants, by list, and what is wrong with it.
   Gant::OrderedMap< Acl::ListKey, IntfAclKeys > wantedBy_;
   Gant::OrderedMap< Acl::IntfAclKey, Gant::String > wanted_;
   Gant::OrderedMap< Acl::ListKey, Pendings > listErrors_;
   Gant::OrderedMap< Acl::ListKey, AclCreateError > refusals_;
   // What the helper was told.
   Gant::OrderedMap< Acl::IntfAclKey, Gant::String > applied_;
   Gant::OrderedMap< AclKey, Gant::Ptr< AclData > > data_;
   Answers< AclKey > answers_;
   Gant::OrderedMap< Acl::ListKey, Counted > counted_;
   std::unique_ptr< Posted > posted_;
};

} // namespace Hul
