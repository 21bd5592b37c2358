// Questions to the data plane beside the session. They change nothing there, and may be asked while batches are on
// their way: the answer is the state of some moment between two batches.
#pragma once

#include "VexPeer.h"

#include <functional>
#include <memory>

namespace vex::pb {
class Batch;
class CaptureReply;
class CaptureRequest;
class DropsReply;
class DumpRequest;
class GatesReply;
class LookupReply;
class LookupRequest;
class ProbeReply;
class ProbeRequest;
class TracePacketReply;
class TracePacketRequest;
} // namespace vex::pb

namespace Vex {

// A question that was asked. Letting go of it cancels it, and nothing is called any more.
class EngineCall {
 public:
   virtual ~EngineCall() = default;
};

// A dump as it arrives. No more than a few batches wait here: the data plane is held up until they are taken.
class EngineDump {
 public:
   // Cancels what has not arrived.
   virtual ~EngineDump() = default;
   // The next batch, in order; null when it has not arrived, or when there is none left.
   virtual std::unique_ptr< vex::pb::Batch > next() = 0;
   // Everything has been taken, or the dump broke off: then error() says why.
   virtual bool ended() const = 0;
   virtual Gant::String error() const = 0;
};

class EngineQuery {
 public:
   // Called once, on the loop. A non-empty `error` is that of the transport; the reply carries its own.
   template < typename Reply >
   using Done = std::function< void( const Gant::String & error, const Reply & reply ) >;

   // Connects with the first question, by a connection of its own.
   explicit EngineQuery( const Peer & peer );
   ~EngineQuery();
   EngineQuery( const EngineQuery & ) = delete;
   EngineQuery & operator=( const EngineQuery & ) = delete;

   std::unique_ptr< EngineCall > lookup( const vex::pb::LookupRequest & request, Done< vex::pb::LookupReply > done );
   std::unique_ptr< EngineCall > tracePacket( const vex::pb::TracePacketRequest & request,
                                              Done< vex::pb::TracePacketReply > done );
   std::unique_ptr< EngineCall > capture( const vex::pb::CaptureRequest & request, Done< vex::pb::CaptureReply > done );
   // What was lost in the graph.
   std::unique_ptr< EngineCall > drops( Done< vex::pb::DropsReply > done );
   // What went from module to module.
   std::unique_ptr< EngineCall > gates( Done< vex::pb::GatesReply > done );
   // What would become of described packets.
   std::unique_ptr< EngineCall > probe( const vex::pb::ProbeRequest & request, Done< vex::pb::ProbeReply > done );
   // `ready` is called on the loop, any number of times: next() or ended() may have changed.
   std::unique_ptr< EngineDump > dump( const vex::pb::DumpRequest & request, std::function< void() > ready );

 private:
   struct Stub;
   std::shared_ptr< Stub > stub_;
};

} // namespace Vex
