// Quality-of-service policies: the machine that tells the data plane's helper.
#pragma once

#include "HulAnswers.h"
#include "HulPending.h"
#include "HulQosTypes.h"

#include <memory>

namespace HulHelper {
class QosAclHelper;
}
namespace HwEpoch {
class Status;
}
namespace Kyt {
class TimerWheel;
}

namespace Hul {

class AclLists;
class HulCommonSmData;
class Posted;

//   watches  Qos::Status::classMap, policyMap, servicePolicy
//            Acl::Config::aclConfig, and the version of each list
//            HulCommonSmData::port, aclRoom
//            Progress                                 what the data plane has answered
//   calls    HulHelper::QosAclHelper
//   writes   HulCommonSmData::aclRoom
//
// Whatever changes in one turn of the loop is programmed in the next one, at start at once. A policy map that is
// applied nowhere costs nothing. One that is wrong, or for which there is no room, is not programmed: what was
// programmed of it stays, and an interface keeps the policy that it has. An interface whose port goes leaves its policy
// before that, and comes back with it.
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
   explicit QosAclSm( Args args );
   ~QosAclSm() override;
   const Args & args() const { return args_; }

   // Called right after construction, with true: from now on it calls its helper. Without a `qosAclHwStatus` there is
   // no quality of service, and nothing happens.
   virtual void startIs( bool start );
   bool start() const { return start_; }

   // What is configured and not programmed, with the reason.
   Pendings pending() const;
   // What the data plane said of a policy map that is applied; of another one: pending.
   RouteState state( const Gant::String & policyMap ) const;
   // Packets of each class of a policy map, in the order of matching. Empty for one that is not applied.
   std::vector< std::pair< Gant::String, U64 > > counts( const Gant::String & policyMap ) const;

 private:
   struct GantStatus;
   struct GantCommon;
   struct Batch;
   using StatePtr = Gant::Ptr< QosPolicyMapState >;
   using Names = Gant::OrderedSet< Gant::String >;

   void reviewAll();
   void reviewClassMap( const Gant::String & name );
   void reviewList( const Acl::ListKey & key );
   void reviewPolicy( const Gant::String & name );
   void reviewIntf( Kynet::IntfId intfId );
   void portIs( Kynet::IntfId intfId );

   Gant::String wantedPolicy( Kynet::IntfId intfId ) const;
   bool check( const Gant::String & policyMap );
   void plan( Batch & batch );
   void planMove( Batch & batch, Kynet::IntfId intfId );
   std::vector< QosClassDataPtr > classesOf( const Gant::String & policyMap ) const;
   void build( Batch & batch );
   AclCreateError buildPolicy( const StatePtr & state );
   void buildRules( const StatePtr & state, const QosClassDataPtr & classData, const AclKey & key );
   void refuse( Batch & batch, const Gant::String & policyMap );
   void moveIntfs( Batch & batch );
   void commit( Batch & batch );
   void cleanUp( Batch & batch );
   void intfIs( const StatePtr & state, Kynet::IntfId intfId, bool applied );
   void program();

   Args args_;
   bool start_ = false;
   std::unique_ptr< GantStatus > statusReactor_;
   std::unique_ptr< AclLists > lists_;
   std::unique_ptr< GantCommon > commonReactor_;

   // What has changed since the last batch.
   Names changedPolicies_;
   Gant::OrderedSet< Kynet::IntfId > changedIntfs_;
   // What is wrong with what the user wants.
   Gant::OrderedMap< Gant::String, Pendings > errors_;
   Names refusals_; // no room for them
   // What the helper was told.
   Gant::OrderedMap< Kynet::IntfId, Gant::String > applied_;
   Gant::OrderedMap< Gant::String, StatePtr > states_;
   Answers< Gant::String > answers_; // by policy map
   std::unique_ptr< Posted > posted_;
};

} // namespace Hul
