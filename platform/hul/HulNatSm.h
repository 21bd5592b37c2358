// Address translation: the machine that tells the data plane's helper, and the next hops that translations want.
#pragma once

#include "HulNatHelper.h"
#include "HulTypes.h"

#include <memory>

namespace Hul {

class HulCommonSmData;

// Addresses whose next hops are wanted.
class NextHopMapConfig : public Gant::Entity {
 public:
   using Requests = Gant::OrderedSet< Kynet::IpAddr >;
   class Notifiee : public Gant::NotifieeOf< NextHopMapConfig > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onRouteResolverRequest( const Kynet::IpAddr & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_SET( Requests, routeResolverRequest, onRouteResolverRequest )
};

// Those that are known.
class NextHopMapStatus : public Gant::Entity {
 public:
   using NextHops = Gant::OrderedMap< Kynet::IpAddr, Gant::Ptr< const NatNextHopInfo > >;
   class Notifiee : public Gant::NotifieeOf< NextHopMapStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onNextHop( const Kynet::IpAddr & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( NextHops, nextHop, onNextHop )
};

//   watches  Ip::Nat::Status::staticConnection, dynamicRule
//            NextHopMapStatus::nextHop                 of translated destinations
//            VerifyData::verify
//   calls    HulHelper::HulHelperNat
//   writes   Ip::Nat::HwStatus                         what the helper took
//            NextHopMapConfig::routeResolverRequest    the translated destinations
//
// A translation that changes is deleted and added. A dynamic rule is an address-only deny-all rule of its list.
class NatSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< HulCommonSmData > vexcsd{};
      Gant::Ptr< Ip::Nat::Status > natStatus{};
      Gant::Ptr< Ip::Nat::HwStatus > natHwStatus{};
      Gant::Ptr< Ip::Nat::HwCapabilities > natHwCapabilities{};
      Gant::Ptr< NextHopMapConfig > nhMapConfig{};
      Gant::Ptr< NextHopMapStatus > nhMapStatus{};
      Gant::Ptr< HulHelper::HulHelperNat > natHelper{};
      Gant::Ptr< MrouteLib::StaticNatInfo > staticNatInfo{};
   };
   // Any may be empty. Without a helper nobody is called.
   explicit NatSm( Args args );
   ~NatSm() override;
   const Args & args() const { return args_; }

   // Called right after construction, with true: from now on it calls its helper. False takes everything back.
   virtual void startIs( bool start );
   bool start() const { return start_; }
   // Brings the packet counts of the static translations up to date.
   void pollCounters();

 private:
   struct GantNatStatus;
   struct GantNextHops;
   struct GantVerifyData;

   bool calling() const { return start_ && args_.natHelper; }
   void review();
   void handleStaticConnection( const Ip::Nat::StaticKey & key );
   void handleDynamicRule( const Ip::Nat::DynamicKey & key );
   void handleNextHop( Kynet::IpAddr addr );
   void handleVerify();
   bool add( const Ip::Nat::StaticKey & key, const Ip::Nat::StaticConnection & connection );
   void del( const Ip::Nat::StaticKey & key );
   void requestIs( Kynet::IpAddr addr );
   void withdraw();

   Args args_;
   bool start_ = false;
   std::unique_ptr< GantNatStatus > natReactor_;
   std::unique_ptr< GantNextHops > nextHopReactor_;
   std::unique_ptr< GantVerifyData > verifyReactor_;
};

} // namespace Hul
