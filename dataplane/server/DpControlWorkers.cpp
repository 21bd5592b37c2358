// Of the control API: workers, traffic classes, gate hooks.
#include "DpControlService.h"

#include <csignal>
#include <unistd.h>

namespace Vexdp {

using grpc::Status;
using namespace bess::pb;

namespace {

void refuseClass( const char * action, const TcRequest & request, EmptyResponse & response ) {
   report( { request.class_().name(), {}, action },
           refuse( EOPNOTSUPP, "a traffic class comes and goes with its port, and has no parameters" ), response );
}

} // namespace

Status ControlService::AddWorker( Context *, const AddWorkerRequest * request, EmptyResponse * response ) {
   report( { {}, {}, "AddWorker" }, engine_.addWorker( *request ), *response );
   return Status::OK;
}

Status ControlService::DestroyWorker( Context *, const WorkerRequest * request, EmptyResponse * response ) {
   report( { {}, {}, "DestroyWorker" }, engine_.destroyWorker( request->wid() ), *response );
   return Status::OK;
}

Status ControlService::PauseWorker( Context *, const WorkerRequest * request, EmptyResponse * response ) {
   report( { {}, {}, "PauseWorker" }, engine_.pauseWorker( request->wid(), true ), *response );
   return Status::OK;
}

Status ControlService::ResumeWorker( Context *, const WorkerRequest * request, EmptyResponse * response ) {
   report( { {}, {}, "ResumeWorker" }, engine_.pauseWorker( request->wid(), false ), *response );
   return Status::OK;
}

Status ControlService::ResetWorkers( Context *, const EmptyRequest *, EmptyResponse * response ) {
   report( { {}, {}, "ResetWorkers" }, engine_.resetWorkers(), *response );
   return Status::OK;
}

Status ControlService::ListTcs( Context *, const ListTcsRequest * request, ListTcsResponse * response ) {
   engine_.list( *request, *response );
   return Status::OK;
}

Status ControlService::GetTcStats( Context *, const GetTcStatsRequest * request, GetTcStatsResponse * response ) {
   engine_.describe( *request, *response );
   return Status::OK;
}

Status ControlService::AddTc( Context *, const TcRequest * request, EmptyResponse * response ) {
   refuseClass( "AddTc", *request, *response );
   return Status::OK;
}

Status ControlService::UpdateTcParams( Context *, const TcRequest * request, EmptyResponse * response ) {
   refuseClass( "UpdateTcParams", *request, *response );
   return Status::OK;
}

Status ControlService::UpdateTcParent( Context *, const TcRequest * request, EmptyResponse * response ) {
   refuseClass( "UpdateTcParent", *request, *response );
   return Status::OK;
}

// None was made but those of ports.
Status ControlService::ResetTcs( Context *, const EmptyRequest *, EmptyResponse * ) { return Status::OK; }

Status ControlService::CheckSchedulingConstraints( Context *, const EmptyRequest *,
                                                   CheckSchedulingConstraintsResponse * ) {
   return Status::OK;
}

Status ControlService::ListPlugins( Context *, const EmptyRequest *, ListPluginsResponse * ) { return Status::OK; }

Status ControlService::ListGateHookClass( Context *, const EmptyRequest *, ListGateHookClassResponse * response ) {
   GateHooks::listClasses( *response );
   return Status::OK;
}

Status ControlService::GetGateHookClassInfo( Context *, const GetGateHookClassInfoRequest * request,
                                             GetGateHookClassInfoResponse * response ) {
   report( { request->name(), {}, "GetGateHookClassInfo" }, GateHooks::describeClass( request->name(), *response ),
           *response );
   return Status::OK;
}

Status ControlService::ConfigureGateHook( Context *, const ConfigureGateHookRequest * request,
                                          ConfigureGateHookResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::ListGateHooks( Context *, const EmptyRequest *, ListGateHooksResponse * response ) {
   engine_.list( *response );
   return Status::OK;
}

Status ControlService::GateHookCommand( Context *, const GateHookCommandRequest * request,
                                        CommandResponse * response ) {
   engine_.apply( *request, *response );
   return Status::OK;
}

Status ControlService::KillBess( Context *, const EmptyRequest *, EmptyResponse * ) {
   kill( getpid(), SIGTERM );
   return Status::OK;
}

} // namespace Vexdp
