// The service vex.pb.Engine on an engine: sessions, and what is asked beside them.
#pragma once

#include "DpEngine.h"

#include "vex/engine.grpc.pb.h"

#include <memory>

namespace Vexdp {

// All but Session run on gRPC's threads. That is served by SessionServer, which takes bytes, so that it can tell a
// client that ends from one that sends no batch.
class EngineService final : public vex::pb::Engine::WithRawMethod_Session< vex::pb::Engine::Service > {
 public:
   explicit EngineService( Engine & engine ) : engine_( engine ) {}

   grpc::Status Dump( grpc::ServerContext *, const vex::pb::DumpRequest * request,
                      grpc::ServerWriter< vex::pb::Batch > * writer ) override;
   grpc::Status Lookup( grpc::ServerContext *, const vex::pb::LookupRequest * request,
                        vex::pb::LookupReply * reply ) override;
   grpc::Status TracePacket( grpc::ServerContext *, const vex::pb::TracePacketRequest * request,
                             vex::pb::TracePacketReply * reply ) override;
   grpc::Status Capture( grpc::ServerContext *, const vex::pb::CaptureRequest * request,
                         vex::pb::CaptureReply * reply ) override;
   grpc::Status Probe( grpc::ServerContext *, const vex::pb::ProbeRequest * request,
                       vex::pb::ProbeReply * reply ) override;
   grpc::Status Gates( grpc::ServerContext *, const vex::pb::GatesRequest * request,
                       vex::pb::GatesReply * reply ) override;
   grpc::Status Drops( grpc::ServerContext *, const vex::pb::DropsRequest * request,
                       vex::pb::DropsReply * reply ) override;

 private:
   Vexdp::Engine & engine_;
};

} // namespace Vexdp
