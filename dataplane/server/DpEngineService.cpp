#include "DpEngineService.h"

namespace Vexdp {

using grpc::Status;

Status EngineService::Dump( grpc::ServerContext *, const vex::pb::DumpRequest * request,
                            grpc::ServerWriter< vex::pb::Batch > * writer ) {
   std::unique_ptr< Vexdp::Dump > dump;
   if ( const auto out = engine_.dump( *request, dump ); !out.ok() )
      return { grpc::StatusCode::NOT_FOUND, out.refusal().reason };
   dump->tell( [ writer ]( const vex::pb::Batch & batch ) { return writer->Write( batch ); } );
   return Status::OK;
}

Status EngineService::Lookup( grpc::ServerContext *, const vex::pb::LookupRequest * request,
                              vex::pb::LookupReply * reply ) {
   engine_.lookup( *request, *reply );
   return Status::OK;
}

Status EngineService::TracePacket( grpc::ServerContext *, const vex::pb::TracePacketRequest * request,
                                   vex::pb::TracePacketReply * reply ) {
   engine_.trace( *request, *reply );
   return Status::OK;
}

Status EngineService::Capture( grpc::ServerContext *, const vex::pb::CaptureRequest * request,
                               vex::pb::CaptureReply * reply ) {
   engine_.capture( *request, *reply );
   return Status::OK;
}

Status EngineService::Probe( grpc::ServerContext *, const vex::pb::ProbeRequest * request,
                             vex::pb::ProbeReply * reply ) {
   engine_.probe( *request, *reply );
   return Status::OK;
}

Status EngineService::Gates( grpc::ServerContext *, const vex::pb::GatesRequest *, vex::pb::GatesReply * reply ) {
   engine_.gates( *reply );
   return Status::OK;
}

Status EngineService::Drops( grpc::ServerContext *, const vex::pb::DropsRequest *, vex::pb::DropsReply * reply ) {
   engine_.drops( *reply );
   return Status::OK;
}

} // namespace Vexdp
