// What all state machines of the layer share: the engine's ports, the room for rule tables, the request to verify, and
// where its findings go.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "HulProgress.h"
#include "KynetIntfId.h"

namespace HulTypes {

GANT_ENUM( VerifyResult, U8, ( verifyPass, 0 ), ( verifyFail, 1 ) )
inline VerifyResult verifyFail() { return VerifyResult::verifyFail(); }

} // namespace HulTypes

namespace Hul {

// One finding, as a simulated run reports it.
class VerifyOutput {
   GANT_VALUE( "Hul::VerifyOutput", VerifyOutput, ( Gant::String, description ), ( U32, lineNum ),
               ( Gant::String, filename ), ( Gant::String, function ), ( HulTypes::VerifyResult, verifyResult ) )
};

class VerifyData : public Gant::Entity {
 public:
   class Notifiee : public Gant::NotifieeOf< VerifyData > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onVerify() {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   // Counted up by each request.
   GANT_WATCHED( U64, verify, onVerify )
   GANT_ATTR( VerifyOutput, verifyOutput )
   // Findings for the command line: a text and the function that found it.
   void updateCliVerifyOutput( const Gant::String & text, const Gant::String & function ) {
      cliVerifyOutput_.push_back( function + ": " + text );
   }
   const std::vector< Gant::String > & cliVerifyOutput() const { return cliVerifyOutput_; }
   void cliVerifyOutputDelAll() { cliVerifyOutput_.clear(); }

 private:
   std::vector< Gant::String > cliVerifyOutput_;
};

// A forwarding engine's shared state derives from it.
class HulCommonSmData : public Gant::Entity {
 public:
   using Ports = Gant::OrderedSet< Kynet::IntfId >;
   class Notifiee : public Gant::NotifieeOf< HulCommonSmData > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onPort( const Kynet::IntfId & ) {}
      virtual void onAclRoom() {}
   };
   GANT_NOTIFIER( Notifiee )
   // `progress` is that of the engine's channel; none: nothing is ever under way.
   explicit HulCommonSmData( Gant::Name name = {}, Gant::Ptr< Progress > progress = nullptr ) :
        Entity( std::move( name ) ), verifyData_( Gant::make< VerifyData >( "verifyData" ) ),
        progress_( progress ? std::move( progress ) : Gant::make< Progress >() ) {}
   GANT_CONST( Gant::Ptr< VerifyData >, verifyData )
   GANT_CONST( Gant::Ptr< Progress >, progress )
   // The routes that the engine's data plane has room for; 0: nobody knows.
   GANT_ATTR( U32, routesMost, 0 )
   // The layer-2 interfaces that the engine has. One enters once it stands, and leaves before it goes.
   GANT_WATCHED_SET( Ports, port, onPort )
   // Counted up when an access list or a policy has given its rule table back.
   GANT_WATCHED( U64, aclRoom, onAclRoom, 0 )
};

} // namespace Hul
