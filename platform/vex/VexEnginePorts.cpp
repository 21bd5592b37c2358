#include "VexEnginePorts.h"

#include "bess/control.grpc.pb.h"
#include "VexTransportChannel.h"
#include "VexUnaryCall.h"

namespace Vex {

struct EnginePorts::Stub : Connected< bess::pb::BESSControl > {
   using Connected::Connected;
};

namespace {

using Service = bess::pb::BESSControl::StubInterface::async_interface;

template < typename Request >
Request portNamed( const Gant::String & name ) {
   Request request;
   request.set_name( name );
   return request;
}

} // namespace

EnginePorts::EnginePorts( const Peer & peer ) : stub_( std::make_shared< Stub >( peer ) ) {}

EnginePorts::~EnginePorts() = default;

EnginePorts::Call EnginePorts::createPort( const bess::pb::CreatePortRequest & request,
                                           Done< bess::pb::CreatePortResponse > done ) {
   return askUnary( stub_, request, std::move( done ), &Service::CreatePort );
}

EnginePorts::Call EnginePorts::destroyPort( const Gant::String & name, Done< bess::pb::EmptyResponse > done ) {
   return askUnary( stub_, portNamed< bess::pb::DestroyPortRequest >( name ), std::move( done ),
                    &Service::DestroyPort );
}

EnginePorts::Call EnginePorts::listPorts( Done< bess::pb::ListPortsResponse > done ) {
   return askUnary( stub_, bess::pb::EmptyRequest(), std::move( done ), &Service::ListPorts );
}

EnginePorts::Call EnginePorts::setPortConf( const bess::pb::SetPortConfRequest & request,
                                            Done< bess::pb::CommandResponse > done ) {
   return askUnary( stub_, request, std::move( done ), &Service::SetPortConf );
}

EnginePorts::Call EnginePorts::portConf( const Gant::String & name, Done< bess::pb::GetPortConfResponse > done ) {
   return askUnary( stub_, portNamed< bess::pb::GetPortConfRequest >( name ), std::move( done ),
                    &Service::GetPortConf );
}

EnginePorts::Call EnginePorts::portStats( const Gant::String & name, Done< bess::pb::GetPortStatsResponse > done ) {
   return askUnary( stub_, portNamed< bess::pb::GetPortStatsRequest >( name ), std::move( done ),
                    &Service::GetPortStats );
}

EnginePorts::Call EnginePorts::linkStatus( const Gant::String & name, Done< bess::pb::GetLinkStatusResponse > done ) {
   return askUnary( stub_, portNamed< bess::pb::GetLinkStatusRequest >( name ), std::move( done ),
                    &Service::GetLinkStatus );
}

EnginePorts::Call EnginePorts::listWorkers( Done< bess::pb::ListWorkersResponse > done ) {
   return askUnary( stub_, bess::pb::EmptyRequest(), std::move( done ), &Service::ListWorkers );
}

EnginePorts::Call EnginePorts::dumpMempool( Done< bess::pb::DumpMempoolResponse > done ) {
   bess::pb::DumpMempoolRequest request;
   request.set_socket( -1 );
   return askUnary( stub_, request, std::move( done ), &Service::DumpMempool );
}

} // namespace Vex
