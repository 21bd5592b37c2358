// The channel over gRPC: batches on the engine's stream, or, where the data plane does not implement it, the same
// requests one by one through the control API.
#pragma once

#include "VexBatchWriter.h"
#include "VexChannel.h"
#include "VexLiveness.h"
#include "VexPeer.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace vex::pb {
class BatchReply;
class Hello;
class Refusal;
} // namespace vex::pb

namespace Vex {

class Heartbeat;
class Transport;
struct DescribedRequest;

// How the data plane changed over to what a session has told.
struct InStep {
   bool changed = false; // another graph forwarded until then
   double held = 0;      // seconds that packets waited for it
   Gant::String early{}; // why the other one went before; empty: it did not
};

// Requests are encoded into the open batch. It is closed at the end of the loop's turn, or when it is full, and waits
// until fewer than `outstandingMax` batches are on their way. So a slow data plane holds the queue, and nothing blocks.
//
// States: connecting (nothing is sent until the data plane has begun the session), standing by (nor is it while another
// agent has the data plane), running, lost. It is lost too when the data plane is found not to be there any more
// (Liveness), from the first moment on.
class GrpcChannel : public Channel {
 public:
   static constexpr U32 batchRequestsMax = 4096;
   static constexpr size_t batchBytesMax = 1 << 20;
   static constexpr size_t outstandingMax = 8;

   // Connects at once. `takeOver`: also from another agent that has the data plane. `silenceMost`: seconds, as Liveness
   // takes them. `beside`: what the data plane forwards by goes on until inStepIs().
   explicit GrpcChannel( Peer peer, bool takeOver = false, double silenceMost = 3, bool beside = false );
   ~GrpcChannel() override;
   const char * fwkType() const override { return "Vex::GrpcChannel"; }

   void createModule( OriginId origin, const Gant::String & name, const char * moduleClass,
                      const Message * initArgs ) override;
   void destroyModule( OriginId origin, const Gant::String & name ) override;
   void connectModules( OriginId origin, const Gant::String & from, GateId outGate, const Gant::String & to,
                        GateId inGate ) override;
   void disconnectModules( OriginId origin, const Gant::String & from, GateId outGate ) override;
   void command( OriginId origin, std::string_view module, std::string_view action, const Message & message,
                 bool changesForwarding ) override;
   google::protobuf::Arena & arena() override;

   const Peer & peer() const { return peer_; }
   bool running() const { return running_; }
   // True: by the stream. False: by unary calls.
   bool streaming() const;
   // What the data plane said of itself when the session began; empty before.
   const Gant::String & dataPlaneVersion() const { return dataPlaneVersion_; }
   // The counter table's file, empty when there is none.
   const Gant::String & counterPath() const { return counterPath_; }

   // The routes that its FIB has room for; 0: it has not said.
   U32 routesMost() const { return routesMost_; }

   // Since the session's begin: another graph forwards, until this session is in step.
   bool beside() const { return beside_; }
   // What was queued before is all that there is to tell: the data plane changes over behind it, and answers.
   void inStepIs();
   // What it has answered; nothing before.
   const std::optional< InStep > & inStep() const { return inStep_; }
   // The session is over, and what is queued from here on goes nowhere. Nobody is told.
   void leave();

   // Requests that wait in this process, and those on their way.
   size_t requestsWaiting() const;
   size_t requestsOutstanding() const;
   size_t bytesWaiting() const;
   // So much waits that whoever can wait with more does.
   bool congested() const;
   // Seconds since the oldest outstanding batch was sent; 0 when there is none.
   double oldestOutstanding() const;
   // The oldest requests that are not answered, in words; those on their way first.
   void describeQueue( size_t most,
                       const std::function< void( const DescribedRequest &, bool outstanding ) > & each ) const;

 private:
   struct Batch;
   class Inbox;
   class Watch;

   void noteOrigin( OriginId origin );
   void added( bool changesForwarding );
   void lookAfterPeer();
   void closeBatch( bool inStep = false );
   void sendWaiting();
   void begun( const vex::pb::Hello & hello );
   void replied( const vex::pb::BatchReply & reply );
   void ended( const Gant::String & reason, bool unimplemented );
   bool refuse( const Batch & batch, const vex::pb::BatchReply & reply, U64 before );
   Refusal inWords( const vex::pb::Refusal & refused, DescribedRequest request ) const;
   void trace( const Refusal & refusal, const Gant::String & others ) const;

   const Peer peer_;
   std::shared_ptr< Inbox > inbox_;
   std::unique_ptr< Transport > transport_;
   Liveness liveness_;
   U64 answersSeen_ = 0;
   std::unique_ptr< Heartbeat > heartbeat_;
   std::unique_ptr< Watch > watch_; // null: nobody looks
   std::unique_ptr< google::protobuf::Arena > arena_;
   BatchWriter open_;
   // Origins of the open batch's requests: from this request on, this one.
   std::vector< std::pair< U32, OriginId > > openOrigins_;
   std::deque< Batch > waiting_;
   std::deque< Batch > outstanding_;
   U64 nextNumber_ = 1;
   double floodTracedAt_ = -1; // seconds of the activity clock
   bool flushPosted_ = false;
   bool running_ = false;
   Gant::String dataPlaneVersion_;
   Gant::String counterPath_;
   U32 routesMost_ = 0;
   bool beside_ = false;
   std::optional< InStep > inStep_;
};

} // namespace Vex
