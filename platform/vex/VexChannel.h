// The way to the data plane: requests go out in one total order, answers come back with their request's origin.
//
// A channel is one session. The data plane starts it from an empty graph. Once it is lost it stays lost: its owner
// makes a new one and feeds it from the state.
#pragma once

#include "GantEnum.h"
#include "GantNotify.h"
#include "HulProgress.h"
#include "VexTypes.h"

#include <deque>
#include <string_view>
#include <vector>

namespace google::protobuf {
class Any;
class Arena;
class Message;
} // namespace google::protobuf

namespace Vex {

GANT_ENUM( GrpcRequestType, U8, ( unknownRequest, 0 ), ( createModule, 1 ), ( destroyModule, 2 ), ( connectModules, 3 ),
           ( disconnectModules, 4 ), ( moduleCommand, 5 ) )

// A request that the data plane refused.
struct Refusal {
   double time = 0; // seconds of the activity clock
   GrpcRequestType type;
   Gant::String module;
   Gant::String action;   // the command's name, otherwise the type's
   Gant::String argument; // in words
   S32 code = 0;          // a positive errno
   Gant::String text;
   Gant::String status; // a serialized google.rpc.Status with its details, empty when the data plane gave none
};

class Channel : public Gant::PtrInterface {
 public:
   using Message = google::protobuf::Message;

   // Where a request came from: gets what comes back for it.
   class Origin {
    public:
      virtual ~Origin() = default;
      virtual void response( const google::protobuf::Any & data ) = 0;
      virtual void refused( const Refusal & refusal ) = 0;
      // Whether it hears of every refusal, however many there are.
      virtual bool wantsRefusals() const = 0;
   };
   using OriginId = U16;

   class Notifiee : public Gant::NotifieeOf< Channel > {
    public:
      using NotifieeOf::NotifieeOf;
      // Requests up to requestsAcknowledged() have been applied or refused.
      virtual void onAcknowledged() {}
      // Of many requests of one kind that are refused together, the first one and the newest.
      virtual void onRefusal( const Refusal & ) {}
      // Another agent has the data plane: the session waits for it. owner() says who.
      virtual void onOwner() {}
      // The data plane has answered that the session is in step.
      virtual void onInStep() {}
      // The session is over. The reason is in lossReason().
      virtual void onLost() {}
   };
   GANT_NOTIFIER( Notifiee )

   // The origin deletes itself before it goes; what comes back for it later is only counted.
   OriginId originAdd( Origin * origin );
   void originDel( OriginId id );

   virtual void createModule( OriginId origin, const Gant::String & name, const char * moduleClass,
                              const Message * initArgs ) = 0;
   // The data plane disconnects the module first.
   virtual void destroyModule( OriginId origin, const Gant::String & name ) = 0;
   virtual void connectModules( OriginId origin, const Gant::String & from, GateId outGate, const Gant::String & to,
                                GateId inGate ) = 0;
   virtual void disconnectModules( OriginId origin, const Gant::String & from, GateId outGate ) = 0;
   // The message is read at once and may go afterwards. `changesForwarding` is false for shows and counter assignments.
   virtual void command( OriginId origin, std::string_view module, std::string_view action, const Message & message,
                         bool changesForwarding ) = 0;

   // Where the messages of commands are made that are queued in the same function: they are gone once queued.
   virtual google::protobuf::Arena & arena() = 0;

   // Requests queued since the start, and those answered.
   U64 requestsQueued() const { return progress_->told(); }
   U64 requestsAcknowledged() const { return progress_->acknowledged(); }
   U64 requestsRefused() const { return requestsRefused_; }
   // The same for the layer: a request's number is requestsQueued() right after it was queued.
   const Gant::Ptr< Hul::Progress > & progress() const { return progress_; }
   // Counts changes of what the data plane holds: two equal values have nothing between them.
   U64 forwardingGeneration() const { return forwardingGeneration_; }
   // Who has the data plane, in words, while the session waits for it; empty otherwise.
   const Gant::String & owner() const { return owner_; }
   // Since when, seconds since 1970.
   double ownedSince() const { return ownedSince_; }
   bool lost() const { return lost_; }
   const Gant::String & lossReason() const { return lossReason_; }
   // The newest refusals, oldest first.
   static constexpr size_t refusalsKept = 256;
   const std::deque< Refusal > & refusals() const { return refusals_; }

 protected:
   void requestQueued( bool changesForwarding ) {
      progress_->toldInc();
      forwardingGeneration_ += changesForwarding;
   }
   void responseIs( OriginId origin, const google::protobuf::Any & data );
   // Each refused request, in order, by its number; then those in words that somebody is to hear of.
   void refusedIs( U64 number, S32 code, std::string_view text );
   void refusalIs( OriginId origin, Refusal refusal );
   bool wantsRefusals( OriginId id ) const;
   void acknowledgedIs( U64 requests );
   void ownerIs( const Gant::String & owner, double since );
   void tellInStep();
   void lostIs( const Gant::String & reason );

 private:
   Origin * origin( OriginId id ) const { return id < origins_.size() ? origins_[ id ] : nullptr; }

   std::vector< Origin * > origins_;
   std::deque< Refusal > refusals_;
   const Gant::Ptr< Hul::Progress > progress_ = Gant::make< Hul::Progress >();
   U64 requestsRefused_ = 0;
   U64 forwardingGeneration_ = 0;
   Gant::String owner_;
   double ownedSince_ = 0;
   Gant::String lossReason_;
   bool lost_ = false;
};

} // namespace Vex
