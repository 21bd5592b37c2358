// The data plane's ports and workers, by unary calls beside the session.
#pragma once

#include "VexEngineQuery.h"

namespace bess::pb {
class CreatePortRequest;
class CreatePortResponse;
class CommandResponse;
class DumpMempoolResponse;
class EmptyResponse;
class GetLinkStatusResponse;
class GetPortConfResponse;
class GetPortStatsResponse;
class ListPortsResponse;
class ListWorkersResponse;
class SetPortConfRequest;
} // namespace bess::pb

namespace Vex {

// Calls of one port are to be made one after the other: two that are under way at once may arrive in any order. Letting
// go of a call that changes something leaves open whether it was done.
class EnginePorts {
 public:
   template < typename Reply >
   using Done = EngineQuery::Done< Reply >;
   using Call = std::unique_ptr< EngineCall >;

   // As EngineQuery.
   explicit EnginePorts( const Peer & peer );
   ~EnginePorts();
   EnginePorts( const EnginePorts & ) = delete;
   EnginePorts & operator=( const EnginePorts & ) = delete;

   Call createPort( const bess::pb::CreatePortRequest & request, Done< bess::pb::CreatePortResponse > done );
   Call destroyPort( const Gant::String & name, Done< bess::pb::EmptyResponse > done );
   Call listPorts( Done< bess::pb::ListPortsResponse > done );
   Call setPortConf( const bess::pb::SetPortConfRequest & request, Done< bess::pb::CommandResponse > done );
   Call portConf( const Gant::String & name, Done< bess::pb::GetPortConfResponse > done );
   Call portStats( const Gant::String & name, Done< bess::pb::GetPortStatsResponse > done );
   Call linkStatus( const Gant::String & name, Done< bess::pb::GetLinkStatusResponse > done );
   Call listWorkers( Done< bess::pb::ListWorkersResponse > done );
   // Of all sockets.
   Call dumpMempool( Done< bess::pb::DumpMempoolResponse > done );

 private:
   struct Stub;
   std::shared_ptr< Stub > stub_;
};

} // namespace Vex
