// The service bess.pb.BESSControl on an engine.
//
// PauseAll and ResumeAll always succeed, and do nothing: the engine holds the workers for as long as a change takes.
#pragma once

#include "DpEngine.h"

#include "bess/control.grpc.pb.h"

namespace Vexdp {

class ControlService final : public bess::pb::BESSControl::Service {
 public:
   explicit ControlService( Engine & engine ) : engine_( engine ) {}

   using Context = grpc::ServerContext;
   using EmptyRequest = bess::pb::EmptyRequest;
   using EmptyResponse = bess::pb::EmptyResponse;

   grpc::Status GetVersion( Context *, const EmptyRequest *, bess::pb::VersionResponse * response ) override;
   grpc::Status ResetAll( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status PauseAll( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ResumeAll( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ListMclass( Context *, const EmptyRequest *, bess::pb::ListMclassResponse * response ) override;
   grpc::Status GetMclassInfo( Context *, const bess::pb::GetMclassInfoRequest * request,
                               bess::pb::GetMclassInfoResponse * response ) override;
   grpc::Status ResetModules( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ListModules( Context *, const EmptyRequest *, bess::pb::ListModulesResponse * response ) override;
   grpc::Status CreateModule( Context *, const bess::pb::CreateModuleRequest * request,
                              bess::pb::CreateModuleResponse * response ) override;
   grpc::Status DestroyModule( Context *, const bess::pb::DestroyModuleRequest * request,
                               EmptyResponse * response ) override;
   grpc::Status GetModuleInfo( Context *, const bess::pb::GetModuleInfoRequest * request,
                               bess::pb::GetModuleInfoResponse * response ) override;
   grpc::Status ConnectModules( Context *, const bess::pb::ConnectModulesRequest * request,
                                EmptyResponse * response ) override;
   grpc::Status DisconnectModules( Context *, const bess::pb::DisconnectModulesRequest * request,
                                   EmptyResponse * response ) override;
   grpc::Status ModuleCommand( Context *, const bess::pb::CommandRequest * request,
                               bess::pb::CommandResponse * response ) override;

   grpc::Status ListDrivers( Context *, const EmptyRequest *, bess::pb::ListDriversResponse * response ) override;
   grpc::Status GetDriverInfo( Context *, const bess::pb::GetDriverInfoRequest * request,
                               bess::pb::GetDriverInfoResponse * response ) override;
   grpc::Status CreatePort( Context *, const bess::pb::CreatePortRequest * request,
                            bess::pb::CreatePortResponse * response ) override;
   grpc::Status DestroyPort( Context *, const bess::pb::DestroyPortRequest * request,
                             EmptyResponse * response ) override;
   grpc::Status ListPorts( Context *, const EmptyRequest *, bess::pb::ListPortsResponse * response ) override;
   grpc::Status SetPortConf( Context *, const bess::pb::SetPortConfRequest * request,
                             bess::pb::CommandResponse * response ) override;
   grpc::Status GetPortConf( Context *, const bess::pb::GetPortConfRequest * request,
                             bess::pb::GetPortConfResponse * response ) override;
   grpc::Status GetPortStats( Context *, const bess::pb::GetPortStatsRequest * request,
                              bess::pb::GetPortStatsResponse * response ) override;
   grpc::Status GetLinkStatus( Context *, const bess::pb::GetLinkStatusRequest * request,
                               bess::pb::GetLinkStatusResponse * response ) override;
   grpc::Status ResetPorts( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ListWorkers( Context *, const EmptyRequest *, bess::pb::ListWorkersResponse * response ) override;
   // DpControlWorkers.cpp
   grpc::Status AddWorker( Context *, const bess::pb::AddWorkerRequest * request, EmptyResponse * response ) override;
   grpc::Status DestroyWorker( Context *, const bess::pb::WorkerRequest * request, EmptyResponse * response ) override;
   grpc::Status PauseWorker( Context *, const bess::pb::WorkerRequest * request, EmptyResponse * response ) override;
   grpc::Status ResumeWorker( Context *, const bess::pb::WorkerRequest * request, EmptyResponse * response ) override;
   grpc::Status ResetWorkers( Context *, const EmptyRequest *, EmptyResponse * response ) override;
   grpc::Status ListTcs( Context *, const bess::pb::ListTcsRequest * request,
                         bess::pb::ListTcsResponse * response ) override;
   grpc::Status GetTcStats( Context *, const bess::pb::GetTcStatsRequest * request,
                            bess::pb::GetTcStatsResponse * response ) override;
   grpc::Status AddTc( Context *, const bess::pb::TcRequest * request, EmptyResponse * response ) override;
   grpc::Status UpdateTcParams( Context *, const bess::pb::TcRequest * request, EmptyResponse * response ) override;
   grpc::Status UpdateTcParent( Context *, const bess::pb::TcRequest * request, EmptyResponse * response ) override;
   grpc::Status ResetTcs( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status CheckSchedulingConstraints( Context *, const EmptyRequest *,
                                            bess::pb::CheckSchedulingConstraintsResponse * ) override;
   grpc::Status ListPlugins( Context *, const EmptyRequest *, bess::pb::ListPluginsResponse * ) override;
   grpc::Status ListGateHookClass( Context *, const EmptyRequest *,
                                   bess::pb::ListGateHookClassResponse * response ) override;
   grpc::Status GetGateHookClassInfo( Context *, const bess::pb::GetGateHookClassInfoRequest * request,
                                      bess::pb::GetGateHookClassInfoResponse * response ) override;
   grpc::Status ConfigureGateHook( Context *, const bess::pb::ConfigureGateHookRequest * request,
                                   bess::pb::ConfigureGateHookResponse * response ) override;
   grpc::Status ListGateHooks( Context *, const EmptyRequest *, bess::pb::ListGateHooksResponse * response ) override;
   grpc::Status GateHookCommand( Context *, const bess::pb::GateHookCommandRequest * request,
                                 bess::pb::CommandResponse * response ) override;
   grpc::Status KillBess( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status DumpMempool( Context *, const bess::pb::DumpMempoolRequest * request,
                             bess::pb::DumpMempoolResponse * response ) override;

 private:
   Engine & engine_;
};

} // namespace Vexdp
