#include "DpControlService.h"

#include "DpCleanse.h"
#include "DpListing.h"
#include "DpVersion.h"

namespace Vexdp {

using grpc::Status;
using namespace bess::pb;

Status ControlService::GetVersion( Context *, const EmptyRequest *, VersionResponse * response ) {
   response->set_version( kVersion );
   return Status::OK;
}

Status ControlService::ResetAll( Context *, const EmptyRequest *, EmptyResponse * ) {
   engine_.reset();
   return Status::OK;
}

Status ControlService::PauseAll( Context *, const EmptyRequest *, EmptyResponse * ) { return Status::OK; }

Status ControlService::ResumeAll( Context *, const EmptyRequest *, EmptyResponse * ) { return Status::OK; }

Status ControlService::ListMclass( Context *, const EmptyRequest *, ListMclassResponse * response ) {
   listClasses( *response );
   return Status::OK;
}

Status ControlService::GetMclassInfo( Context *, const GetMclassInfoRequest * request,
                                      GetMclassInfoResponse * response ) {
   report( { request->name(), {}, "GetMclassInfo" }, describeClass( request->name(), *response ), *response );
   return Status::OK;
}

Status ControlService::ResetModules( Context *, const EmptyRequest *, EmptyResponse * ) {
   engine_.resetModules();
   return Status::OK;
}

Status ControlService::ListModules( Context *, const EmptyRequest *, ListModulesResponse * response ) {
   engine_.list( *response );
   return Status::OK;
}

Status ControlService::CreateModule( Context *, const CreateModuleRequest * request, CreateModuleResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::DestroyModule( Context *, const DestroyModuleRequest * request, EmptyResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::GetModuleInfo( Context *, const GetModuleInfoRequest * request,
                                      GetModuleInfoResponse * response ) {
   engine_.describe( request->name(), *response );
   return Status::OK;
}

Status ControlService::ConnectModules( Context *, const ConnectModulesRequest * request, EmptyResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::DisconnectModules( Context *, const DisconnectModulesRequest * request,
                                          EmptyResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::ModuleCommand( Context *, const CommandRequest * request, CommandResponse * response ) {
   engine_.apply( *request, *response );
   cleanse( *request );
   return Status::OK;
}

Status ControlService::ListDrivers( Context *, const EmptyRequest *, ListDriversResponse * response ) {
   for ( const auto & name : PortTable::drivers() ) response->add_driver_names( name );
   return Status::OK;
}

Status ControlService::GetDriverInfo( Context *, const GetDriverInfoRequest * request,
                                      GetDriverInfoResponse * response ) {
   const auto & name = request->driver_name();
   const auto help = PortTable::help( name );
   if ( help.empty() ) {
      report( { name, {}, "GetDriverInfo" }, refuse( ENOENT, "there is no such driver" ), *response );
   } else {
      response->set_name( name );
      response->set_help( help );
   }
   return Status::OK;
}

Status ControlService::CreatePort( Context *, const CreatePortRequest * request, CreatePortResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::DestroyPort( Context *, const DestroyPortRequest * request, EmptyResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::ListPorts( Context *, const EmptyRequest *, ListPortsResponse * response ) {
   engine_.list( *response );
   return Status::OK;
}

Status ControlService::SetPortConf( Context *, const SetPortConfRequest * request, CommandResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::GetPortConf( Context *, const GetPortConfRequest * request, GetPortConfResponse * response ) {
   engine_.describe( *request, *response );
   return Status::OK;
}

Status ControlService::GetPortStats( Context *, const GetPortStatsRequest * request, GetPortStatsResponse * response ) {
   engine_.describe( *request, *response );
   return Status::OK;
}

Status ControlService::GetLinkStatus( Context *, const GetLinkStatusRequest * request,
                                      GetLinkStatusResponse * response ) {
   engine_.describe( *request, *response );
   return Status::OK;
}

Status ControlService::ResetPorts( Context *, const EmptyRequest *, EmptyResponse * ) {
   engine_.resetPorts();
   return Status::OK;
}

Status ControlService::ListWorkers( Context *, const EmptyRequest *, ListWorkersResponse * response ) {
   engine_.list( *response );
   return Status::OK;
}

Status ControlService::DumpMempool( Context *, const DumpMempoolRequest * request, DumpMempoolResponse * response ) {
   engine_.dump( *request, *response );
   return Status::OK;
}

} // namespace Vexdp
